#include "host/report/metrics/MetricsFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <vector>

#include "tests/support/FileText.h"
#include "tests/support/TestDir.h"

namespace {

size_t FilesIn(const std::string& strDir) {
    size_t nFiles = 0;
    for (const auto& entry : std::filesystem::directory_iterator(strDir)) {
        nFiles += entry.is_regular_file() ? 1 : 0;
    }
    return nFiles;
}

}  // namespace

TEST(MetricsFileTest, TheFileIsWholeAndReadableByOthersWhateverTheUmask) {
    const TestDir dir;
    const std::string strFile = dir.Path() + "/metrics.prom";
    const mode_t nOld = umask(077);

    EXPECT_EQ(0, MetricsFile::Write(strFile, "first and longer\n"));
    EXPECT_EQ(0, MetricsFile::Write(strFile, "second\n"));
    umask(nOld);

    struct stat status = {};
    ASSERT_EQ(0, stat(strFile.c_str(), &status));
    EXPECT_EQ(0644u, status.st_mode & 07777u);
    EXPECT_EQ("second\n", FileText(strFile));
    EXPECT_EQ(1u, FilesIn(dir.Path()));  // nothing is left beside it
}

TEST(MetricsFileTest, WhatCannotBeWrittenIsAnErrorAndLeavesNothing) {
    const TestDir dir;
    const std::string strTaken = dir.Path() + "/taken";
    ASSERT_TRUE(std::filesystem::create_directory(strTaken));

    EXPECT_EQ(ENOENT, MetricsFile::Write(dir.Path() + "/no/metrics.prom", "x"));
    EXPECT_EQ(EISDIR, MetricsFile::Write(strTaken, "x"));
    EXPECT_EQ(0u, FilesIn(dir.Path()));
}

TEST(MetricsFileTest, ItIsWrittenAtTheBeginningAndAtTheEnd) {
    const TestDir dir;
    const std::string strFile = dir.Path() + "/metrics.prom";
    int nTexts = 0;
    MetricsFile file(
        strFile, std::chrono::hours(1), [&nTexts] { return std::to_string(++nTexts); },
        [](const std::string&) {});

    file.Begin();
    file.End();

    EXPECT_EQ("2", FileText(strFile));
}

TEST(MetricsFileTest, AnErrorIsToldOnce) {
    const TestDir dir;
    std::vector<std::string> errors;
    MetricsFile file(
        dir.Path() + "/no/metrics.prom", std::chrono::hours(1), [] { return std::string("x"); },
        [&errors](const std::string& strError) { errors.push_back(strError); });

    file.Begin();
    file.End();

    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ("cannot write " + dir.Path() + "/no/metrics.prom: No such file or directory",
              errors[0]);
}
