#include "host/report/MetricsListener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
