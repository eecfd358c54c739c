#include "host/program/HeldFiles.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/TestDir.h"

namespace {

class HeldFilesTest : public testing::Test {
protected:
    HeldFiles::MatchOf Matching(HeldFiles::Match eMatch) {
        return [this, eMatch](const std::string& strPath, FileStatus& status) {
            ++m_nLooks;
            return file_look::AtTarget(strPath, status) ? eMatch : HeldFiles::MATCH_NONE;
        };
    }
    HeldFileRef Hold(HeldFiles& files, const FileVersion& version, const std::string& strPath,
                     HeldFiles::Match eMatch = HeldFiles::MATCH_SURE) {
        return files.Hold(version, strPath, "/true/name", Matching(eMatch));
    }
    static std::string ContentOf(const HeldFileRef& pFile) {
        char content[64] = {};
        const ssize_t nRead = pread(pFile->Descriptor(), content, sizeof(content), 0);
        return std::string(content, nRead > 0 ? static_cast<size_t>(nRead) : 0);
    }

    const TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("program", "content");
    const FileVersion m_version = {1, 2, 3, 4};
    int m_nLooks = 0;
};

}  // namespace

TEST_F(HeldFilesTest, AVersionIsHeldOnceAsLongAsSomebodyHasIt) {
    HeldFiles files(8);
    HeldFileRef pFile = Hold(files, m_version, m_strFile);
    ASSERT_NE(nullptr, pFile);
    EXPECT_EQ(1, m_nLooks);
    ASSERT_EQ(0, unlink(m_strFile.c_str()));

    EXPECT_EQ(pFile, files.Find(m_version));
    EXPECT_EQ("content", ContentOf(pFile));
    EXPECT_EQ("/true/name", pFile->Name());
    EXPECT_EQ(1u, files.Count());
    EXPECT_EQ(nullptr, files.Find({1, 2, 3, 5}));

    pFile.reset();
    EXPECT_EQ(0u, files.Count());
    EXPECT_EQ(nullptr, files.Find(m_version));
}

TEST_F(HeldFilesTest, AnotherFileIsNotHeld) {
    HeldFiles files(8);
    EXPECT_EQ(nullptr, Hold(files, m_version, m_strFile, HeldFiles::MATCH_NONE));
    EXPECT_EQ(nullptr, Hold(files, m_version, m_dir.Path() + "/missing"));
    EXPECT_EQ(1, m_nLooks);
    EXPECT_EQ(0u, files.Count());
}

TEST_F(HeldFilesTest, WhatMayHaveChangedIsNobodyElses) {
    HeldFiles files(8);
    const HeldFileRef pFile = Hold(files, m_version, m_strFile, HeldFiles::MATCH_INODE);
    ASSERT_NE(nullptr, pFile);
    EXPECT_FALSE(pFile->IsSure());
    EXPECT_EQ(nullptr, files.Find(m_version));
}

TEST_F(HeldFilesTest, AVersionThatIsNotKnownIsNeverFound) {
    HeldFiles files(8);
    const FileVersion unknown = {1, 2, 0, 0};
    const HeldFileRef pFile = Hold(files, unknown, m_strFile);
    ASSERT_NE(nullptr, pFile);
    EXPECT_EQ(nullptr, files.Find(unknown));
}

TEST_F(HeldFilesTest, BeyondTheBoundNothingIsOpened) {
    HeldFiles files(2);
    HeldFileRef pFirst = Hold(files, {1, 1, 1, 1}, m_strFile);
    const HeldFileRef pSecond = Hold(files, {1, 2, 1, 1}, m_strFile);
    m_nLooks = 0;

    EXPECT_EQ(nullptr, Hold(files, {1, 3, 1, 1}, m_strFile));
    EXPECT_EQ(0, m_nLooks);
    EXPECT_EQ(1u, files.Refused());
    EXPECT_EQ(pSecond, files.Find({1, 2, 1, 1}));

    pFirst.reset();
    EXPECT_NE(nullptr, Hold(files, {1, 3, 1, 1}, m_strFile));
}

TEST_F(HeldFilesTest, TheBoundIsAPartOfTheDescriptorsThatThereMayBe) {
    const HeldFiles files;
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_EQ(limit.rlim_max, limit.rlim_cur);
    const size_t nPart = limit.rlim_cur / HeldFiles::DESCRIPTORS_PART;
    EXPECT_EQ(std::min<size_t>(nPart, HeldFiles::MOST_FILES), files.Most());
}

TEST_F(HeldFilesTest, WhatNobodyHasIsForgotten) {
    HeldFiles files(8);
    for (uint64_t i = 0; i < 5000; ++i) {
        ASSERT_NE(nullptr, Hold(files, {1, i, 1, 1}, m_strFile));
    }
    const HeldFileRef pFile = Hold(files, m_version, m_strFile);
    EXPECT_EQ(pFile, files.Find(m_version));
    EXPECT_EQ(1u, files.Count());
}
