#include "host/report/metrics/MetricsFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <new>
#include <vector>

#include "tests/support/Event.h"
#include "tests/support/FileSizeLimit.h"
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

TEST(MetricsFileTest, AnErrorIsPrintedOnce) {
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

// The directory comes and goes as the texts are made.
TEST(MetricsFileTest, AnErrorIsReportedAgainOnceWritingHadWorkedInBetween) {
    const TestDir dir;
    const std::string strDir = dir.Path() + "/metrics";
    std::atomic<int> nTexts{0};
    std::vector<std::string> errors;
    MetricsFile file(
        strDir + "/a.prom", std::chrono::milliseconds(1),
        [&] {
            ++nTexts;
            if (nTexts == 3) {
                std::filesystem::create_directory(strDir);
            } else if (nTexts == 4) {
                std::filesystem::remove_all(strDir);
            }
            return std::string("x");
        },
        [&errors](const std::string& strError) { errors.push_back(strError); });

    file.Begin();
    EXPECT_TRUE(Eventually([&nTexts] { return nTexts >= 6; }));
    file.End();

    const std::string strError = "cannot write " + strDir + "/a.prom: No such file or directory";
    EXPECT_EQ((std::vector<std::string>{strError, strError}), errors);
}

TEST(MetricsFileTest, ATextThatFindsNoMemoryLeavesTheFileAsItIsUntilTheNextTime) {
    const TestDir dir;
    const std::string strFile = dir.WriteFile("metrics.prom", "of an earlier run");
    std::vector<std::string> errors;
    int nTexts = 0;
    std::string strBetween;
    MetricsFile file(
        strFile, std::chrono::hours(1),
        [&]() -> std::string {
            if (++nTexts == 1) {
                throw std::bad_alloc();
            }
            strBetween = FileText(strFile);
            return "whole";
        },
        [&errors](const std::string& strError) { errors.push_back(strError); });

    file.Begin();
    file.End();

    EXPECT_EQ("of an earlier run", strBetween);
    EXPECT_EQ("whole", FileText(strFile));
    EXPECT_EQ(std::vector<std::string>(), errors);
}

TEST(MetricsFileTest, WhatWasNeverBegunWritesNothingAndWhatHasEndedNothingMore) {
    const TestDir dir;
    int nTexts = 0;
    {
        MetricsFile file(
            dir.Path() + "/metrics.prom", std::chrono::hours(1),
            [&nTexts] { return std::to_string(++nTexts); }, [](const std::string&) {});
        file.End();
        EXPECT_EQ(0, nTexts);

        file.Begin();
        file.Begin();
        file.End();
        file.End();
    }

    EXPECT_EQ(2, nTexts);  // at the beginning and at the end
}

TEST(MetricsFileTest, ALinkAtItsPlaceIsReplacedAndNotFollowed) {
    const TestDir dir;
    const std::string strOther = dir.WriteFile("other", "not ours", 0600);
    const std::string strFile = dir.Path() + "/metrics.prom";
    std::filesystem::create_symlink(strOther, strFile);

    EXPECT_EQ(0, MetricsFile::Write(strFile, "ours"));

    EXPECT_FALSE(std::filesystem::is_symlink(strFile));
    EXPECT_EQ("ours", FileText(strFile));
    EXPECT_EQ("not ours", FileText(strOther));
}

TEST(MetricsFileTest, WhatFindsNoRoomLeavesTheOldFileWholeAndNothingBesideIt) {
    const TestDir dir;
    const std::string strFile = dir.WriteFile("metrics.prom", "old");
    {
        const FileSizeLimit full(4096);
        EXPECT_EQ(EFBIG, MetricsFile::Write(strFile, std::string(10000, 'x')));
    }

    EXPECT_EQ("old", FileText(strFile));
    EXPECT_EQ(1u, FilesIn(dir.Path()));
}
