#include "host/kernel/file/KnownFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/host/kernel/file/FakeTree.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class KnownFilesTest : public testing::Test {
protected:
    explicit KnownFilesTest(size_t nMost = 100)
        : m_known(
              m_tree.Look(), m_tree.Names(),
              [](const std::string& strPath) { return strPath.find(".not") == std::string::npos; },
              nMost) {
        m_tree.files = {{"/p/job", {10}}, {"/p/link", {11, S_IFLNK}}, {"/p/pipe", {12, S_IFIFO}}};
        (void)m_known.Compare({"/p"});
    }

    std::vector<std::string> Found() {
        static const char* const ACTS[] = {"create", "write", "rename", "remove"};
        std::vector<std::string> lines;
        for (const FoundFile& found : m_known.Compare({"/p"})) {
            lines.push_back(std::string(ACTS[found.eAct]) + " " + found.strPath + " " +
                            std::to_string(found.nInode));
        }
        return lines;
    }

    FakeTree m_tree;
    KnownFiles m_known;
};

class KnownFilesOfThree : public KnownFilesTest {
protected:
    KnownFilesOfThree() : KnownFilesTest(3) {}
};

}  // namespace

TEST_F(KnownFilesTest, WhatIsAsItWasIsNotFound) {
    EXPECT_THAT(Found(), IsEmpty());
    EXPECT_EQ(3u, m_known.Size());
}

TEST_F(KnownFilesTest, ANewFileAGoneOneAndAnotherOneOfTheSameNameAreFoundOnce) {
    m_tree.files["/p/new"] = {20};
    m_tree.files.erase("/p/link");
    m_tree.files["/p/job"].nInode = 21;

    EXPECT_THAT(Found(), ElementsAre("create /p/job 21", "remove /p/link 11", "create /p/new 20"));
    EXPECT_THAT(Found(), IsEmpty());
}

TEST_F(KnownFilesTest, AnotherSizeOrTimeOfTheSameFileIsAWrite) {
    m_tree.files["/p/job"].nSize = 1;
    EXPECT_THAT(Found(), ElementsAre("write /p/job 10"));
    m_tree.files["/p/job"].tmWritten = 1;
    EXPECT_THAT(Found(), ElementsAre("write /p/job 10"));
    m_tree.files["/p/job"].tmChanged = 1;
    EXPECT_THAT(Found(), ElementsAre("write /p/job 10"));
}

TEST_F(KnownFilesTest, TheSameNumberOnAnotherFileSystemIsAnotherFile) {
    m_tree.files["/p/job"].nDevice = 2;

    EXPECT_THAT(Found(), ElementsAre("create /p/job 10"));
}

TEST_F(KnownFilesTest, FilesInDirectoriesBelowAreKnownAndDirectoriesAndDevicesAreNone) {
    m_tree.files["/p/below"] = {30, S_IFDIR};
    m_tree.files["/p/below/job"] = {31};
    m_tree.files["/p/null"] = {32, S_IFCHR};
    m_tree.files["/p/x.not"] = {33};

    EXPECT_THAT(Found(), ElementsAre("create /p/below/job 31"));
}

TEST_F(KnownFilesTest, AFileThatBecomesADirectoryIsGone) {
    m_tree.files["/p/job"].nKind = S_IFDIR;

    EXPECT_THAT(Found(), ElementsAre("remove /p/job 10"));
}

TEST_F(KnownFilesTest, WhatWasReportedIsKnownOnceAllUntilTheLookAtItWasReported) {
    m_tree.files["/p/job"].nSize = 1;
    m_tree.files["/p/new"] = {20};
    m_tree.files.erase("/p/link");
    for (const char* const pszPath : {"/p/job", "/p/new", "/p/link"}) {
        m_known.Reported(pszPath);
    }
    m_known.Settle();
    m_known.Settle();

    EXPECT_THAT(Found(), IsEmpty());
}

TEST_F(KnownFilesTest, WhatWasLostBeforeTheLookIsFoundAlthoughTheFileWasReportedBefore) {
    m_known.Reported("/p/job");
    m_tree.files["/p/job"].nSize = 1;  // of which the event is lost
    m_known.Settle();

    EXPECT_THAT(Found(), ElementsAre("write /p/job 10"));
}

TEST_F(KnownFilesTest, WhatIsFoundReplacesAnOlderLook) {
    m_known.Reported("/p/job");
    m_known.Settle();
    m_tree.files["/p/job"].nSize = 1;
    EXPECT_THAT(Found(), ElementsAre("write /p/job 10"));

    m_known.Settle();

    EXPECT_THAT(Found(), IsEmpty());
}

TEST_F(KnownFilesTest, WithADirectoryThatWentTheFilesBelowItAreKnownToBeGone) {
    m_tree.files["/p/d"] = {30, S_IFDIR};
    m_tree.files["/p/d/job"] = {31};
    m_tree.files["/p/d-job"] = {32};
    (void)Found();

    m_tree.files.erase("/p/d");
    m_tree.files.erase("/p/d/job");
    m_tree.files.erase("/p/d-job");
    m_known.Reported("/p/d");
    m_known.Settle();
    m_known.Settle();

    EXPECT_THAT(Found(), ElementsAre("remove /p/d-job 32"));
}

TEST_F(KnownFilesOfThree, FilesBeyondTheBoundAreNotKnownAndTheOthersAreComparedAllTheSame) {
    EXPECT_FALSE(m_known.IsFull());
    m_tree.files["/p/another"] = {20};
    m_tree.files["/p/job"].nSize = 1;

    EXPECT_THAT(Found(), ElementsAre("write /p/job 10"));
    EXPECT_TRUE(m_known.IsFull());
    EXPECT_EQ(3u, m_known.Size());
}

TEST_F(KnownFilesOfThree, AReportedFileBeyondTheBoundIsNotKnown) {
    m_tree.files["/p/another"] = {20};
    m_known.Reported("/p/another");
    m_known.Settle();
    m_known.Settle();

    EXPECT_TRUE(m_known.IsFull());
    EXPECT_EQ(3u, m_known.Size());
}

TEST_F(KnownFilesOfThree, ATreeOfDirectoriesWithoutEndIsLeftAtTheBound) {
    m_tree.files.clear();
    std::string strPath = "/p";
    for (int i = 0; i < 50; ++i) {
        strPath += "/d";
        m_tree.files[strPath] = {1, S_IFDIR};
    }
    m_tree.nLooks = 0;

    (void)Found();

    EXPECT_TRUE(m_known.IsFull());
    EXPECT_GE(4, m_tree.nLooks);
}

TEST_F(KnownFilesTest, AFileHasItsNameByItsInode) {
    EXPECT_EQ("/p/job", m_known.NameOf(10));
    EXPECT_EQ("", m_known.NameOf(99));

    m_known.Reported("/p/new", 99);
    m_known.Reported("/p/unknown");

    EXPECT_EQ("/p/new", m_known.NameOf(99));
    EXPECT_EQ("", m_known.NameOf(0));
}

TEST_F(KnownFilesTest, FilesWithFurtherLinksAreGivenWhenTheyBecomeKnownAndAtEachComparison) {
    EXPECT_THAT(m_known.TakeLinked(), IsEmpty());
    m_tree.files["/p/job"].nLinks = 2;
    m_tree.files["/p/link"].nLinks = 2;  // no regular file
    m_known.Reported("/p/job");
    m_known.Reported("/p/link");
    m_known.Settle();
    m_known.Settle();
    EXPECT_THAT(m_known.TakeLinked(), ElementsAre("/p/job"));
    EXPECT_THAT(m_known.TakeLinked(), IsEmpty());

    (void)Found();
    EXPECT_THAT(m_known.TakeLinked(), ElementsAre("/p/job"));
}

TEST_F(KnownFilesOfThree, NamesOfThePastGoWhenThereAreManyAndThoseOfFilesStay) {
    for (uint64_t nInode = 100; nInode < 103; ++nInode) {
        m_known.Reported("/p/past", nInode);
    }
    EXPECT_EQ("/p/past", m_known.NameOf(100));
    m_known.Reported("/p/newest", 103);

    EXPECT_EQ("", m_known.NameOf(100));
    EXPECT_EQ("/p/newest", m_known.NameOf(103));
    EXPECT_EQ("/p/job", m_known.NameOf(10));
}
