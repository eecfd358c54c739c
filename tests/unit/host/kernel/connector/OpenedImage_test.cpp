#include "host/kernel/connector/OpenedImage.h"

#include <gtest/gtest.h>

#include "tests/support/host/ExecNoticeBytes.h"

using exec_open_bytes::ElfHead;

namespace {

// What /bin/sh and the like lead to here; any other path leads to no file.
FileId Known(const std::string& strPath) {
    if (strPath == "/lib64/ld.so") {
        return {9, 1};
    }
    if (strPath == "/bin/sh") {
        return {2, 1};
    }
    if (strPath == "/srv/outer") {
        return {6, 1};
    }
    return strPath == "/srv/first" ? FileId{5, 1} : FileId();
}

OpenedFile Program(uint64_t nInode, const std::string& strPath, const std::string& strLoader = "") {
    return {{nInode, 1}, strPath, OPENED_PROGRAM, strLoader};
}

OpenedFile Script(uint64_t nInode, const std::string& strPath, const std::string& strInterp) {
    return {{nInode, 1}, strPath, OPENED_SCRIPT, strInterp};
}

const OpenedFile LOADER = Program(9, "/usr/lib/ld-2.so");
const OpenedFile SHELL = Program(2, "/usr/bin/dash", "/lib64/ld.so");

}  // namespace

TEST(OpenedImageTest, AProgramAndItsLoaderAreOneImage) {
    const auto images = ImagesOf({SHELL, LOADER}, Known);

    ASSERT_EQ(1u, images.size());
    EXPECT_EQ("/usr/bin/dash", images[0].program.strPath);
    EXPECT_EQ("", images[0].strScript);
}

TEST(OpenedImageTest, ALoaderStartedByItselfIsAnImage) {
    const auto images = ImagesOf({LOADER}, Known);

    ASSERT_EQ(1u, images.size());
    EXPECT_EQ("/usr/lib/ld-2.so", images[0].program.strPath);
}

TEST(OpenedImageTest, AStaticProgramAfterADynamicOneIsNoLoader) {
    const auto images = ImagesOf({SHELL, Program(7, "/srv/static")}, Known);

    ASSERT_EQ(2u, images.size());
    EXPECT_EQ("/srv/static", images[1].program.strPath);
}

TEST(OpenedImageTest, AScriptLeadsToItsInterpreter) {
    const auto images = ImagesOf({Script(5, "/srv/first", "/bin/sh"), SHELL, LOADER}, Known);

    ASSERT_EQ(1u, images.size());
    EXPECT_EQ("/usr/bin/dash", images[0].program.strPath);
    EXPECT_EQ("/srv/first", images[0].strScript);
    EXPECT_EQ("/bin/sh", images[0].strInterp);
}

TEST(OpenedImageTest, AScriptWhosePathLeadsToAnotherFileHereHasNoPath) {
    const auto images = ImagesOf({Script(7, "/srv/first", "/bin/sh"), SHELL, LOADER}, Known);

    ASSERT_EQ(1u, images.size());
    EXPECT_EQ("", images[0].strScript);
    EXPECT_EQ("/bin/sh", images[0].strInterp);
}

TEST(OpenedImageTest, OfNestedScriptsTheFirstAndTheLastInterpreterCount) {
    const auto images = ImagesOf(
        {Script(6, "/srv/outer", "/srv/first"), Script(5, "/srv/first", "/bin/sh"), SHELL, LOADER},
        Known);

    ASSERT_EQ(1u, images.size());
    EXPECT_EQ("/srv/outer", images[0].strScript);
    EXPECT_EQ("/bin/sh", images[0].strInterp);
}

TEST(OpenedImageTest, AScriptWhoseInterpreterDoesNotFollowBelongsToAStartThatFailed) {
    const auto images = ImagesOf({Script(5, "/srv/first", "/no/such/interpreter"), SHELL}, Known);

    ASSERT_EQ(1u, images.size());
    EXPECT_EQ("", images[0].strScript);
}

TEST(OpenedImageTest, AFileThatIsNoProgramIsNoImage) {
    EXPECT_TRUE(ImagesOf({{{3, 1}, "/srv/data", OPENED_OTHER, ""}}, Known).empty());
}

TEST(OpenedImageTest, TheFirstLineOfAScriptNamesItsInterpreter) {
    const struct {
        std::string strHead;
        const char* pszInterp;
    } CASES[] = {{"#!/bin/sh\nexit", "/bin/sh"},
                 {"#! \t/usr/bin/env python3 -x\n", "/usr/bin/env"},
                 {"#!/bin/sh", "/bin/sh"},
                 {"#!\n/bin/sh", ""},
                 {"#!", ""}};
    for (const auto& each : CASES) {
        OpenedFile file;
        ReadHead(each.strHead, file);
        EXPECT_EQ(OPENED_SCRIPT, file.eKind) << each.strHead;
        EXPECT_EQ(each.pszInterp, file.strInterp) << each.strHead;
    }
}

TEST(OpenedImageTest, AProgramsHeadNamesItsLoader) {
    OpenedFile file;

    ReadHead(ElfHead("/lib64/ld.so"), file);
    EXPECT_EQ(OPENED_PROGRAM, file.eKind);
    EXPECT_EQ("/lib64/ld.so", file.strInterp);
    ReadHead(ElfHead(""), file);
    EXPECT_EQ(OPENED_PROGRAM, file.eKind);
    EXPECT_EQ("", file.strInterp);
}

TEST(OpenedImageTest, ABrokenHeadIsReadToItsEndOnly) {
    const std::string strWhole = ElfHead("/lib64/ld.so");
    for (size_t nSize = 0; nSize < strWhole.size(); ++nSize) {
        OpenedFile file;
        ReadHead(strWhole.substr(0, nSize), file);
        EXPECT_NE("/lib64/ld.so\1", file.strInterp);
        EXPECT_EQ(nSize >= 5 ? OPENED_PROGRAM : OPENED_OTHER, file.eKind) << nSize;
    }
}
