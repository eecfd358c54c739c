#include "host/report/MetricsListener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Event.h"
#include "tests/support/FileText.h"
#include "tests/support/TestDir.h"

using testing::HasSubstr;

TEST(MetricsListenerTest, TheFileHasTheLastNumbers) {
    const TestDir dir;
    const std::string strFile = dir.Path() + "/metrics.prom";
    Console output;
    VerdictService service;
    RunJournal journal(service, {}, false);
    MetricsListener metrics(output, journal, strFile, std::chrono::hours(1));
    journal.AddListener(metrics);
    journal.Begin("module", 0);
    LaunchCounters counters;
    counters.nCaptured = counters.nLost = 4711;
    journal.Record(counters);

    journal.End(RunEnd());

    EXPECT_THAT(FileText(strFile),
                HasSubstr("tevmon_captured_fate_total{source=\"launch\",fate=\"lost\"} 4711\n"));
}

TEST(MetricsListenerTest, AFileThatCannotBeWrittenIsComplainedOfAndItsNameIsMadeSafe) {
    const TestDir dir;
    Console output;
    const VerdictService service;
    RunJournal journal(service, {}, false);
    MetricsListener metrics(output, journal, dir.Path() + "/no\033/metrics.prom",
                            std::chrono::hours(1));
    journal.AddListener(metrics);
    testing::internal::CaptureStderr();
    journal.Begin("module", 0);
    journal.End(RunEnd());

    EXPECT_EQ("tevmon-host: cannot write " + dir.Path() +
                  "/no\\x1B/metrics.prom: No such file or directory\n",
              testing::internal::GetCapturedStderr());
}

TEST(MetricsListenerTest, WhatIsMissingAtTheEndIsUnexplainedAndBeforeItIsNot) {
    const TestDir dir;
    const std::string strFile = dir.Path() + "/metrics.prom";
    Console output;
    const VerdictService service;
    RunJournal journal(service, {}, true);
    MetricsListener metrics(output, journal, strFile, std::chrono::milliseconds(1));
    journal.AddListener(metrics);
    LaunchCounters counters;
    counters.nCaptured = 3;  // none of them read
    journal.Record(counters);
    journal.Begin("module", 0);
    EXPECT_TRUE(Eventually([&strFile] { return !FileText(strFile).empty(); }));
    EXPECT_THAT(FileText(strFile), HasSubstr("\ntevmon_unexplained 0\n"));
    journal.End(RunEnd());
    EXPECT_THAT(FileText(strFile), HasSubstr("\ntevmon_unexplained 3\n"));
}

TEST(MetricsListenerTest, ARunThatNeverBeganHasNoFile) {
    const TestDir dir;
    const std::string strFile = dir.Path() + "/metrics.prom";
    Console output;
    const VerdictService service;
    RunJournal journal(service, {}, true);
    MetricsListener metrics(output, journal, strFile, std::chrono::hours(1));
    journal.AddListener(metrics);
    journal.Record(SensorNotice{"it cannot be watched"});
    journal.End(RunEnd());

    EXPECT_EQ("", FileText(strFile));
}
