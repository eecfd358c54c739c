#include "host/report/metrics/MetricsText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "tests/support/FileText.h"
#include "tests/support/host/DistinctBalance.h"

using testing::HasSubstr;

namespace {

// The row that docs/metrics.md has for it.
std::string Row(const metrics_text::Metric& metric) {
    std::string strLabels;
    for (const char* psz = metric.pszLabel; *psz != '\0'; ++psz) {
        strLabels += *psz == ',' ? std::string("`, `") : std::string(1, *psz);
    }
    return std::string("| `") + metric.pszName + "` | " + (metric.bCounter ? "counter" : "gauge") +
           " | " + (strLabels.empty() ? "" : "`" + strLabels + "`") + " | " + metric.pszHelp +
           " |\n";
}

// The text without its comments.
std::string Samples(const std::string& strText) {
    std::string strSamples;
    std::istringstream lines(strText);
    for (std::string strLine; std::getline(lines, strLine);) {
        strSamples += strLine.front() == '#' ? "" : strLine + "\n";
    }
    return strSamples;
}

}  // namespace

TEST(MetricsTextTest, TheDocumentHasTheRowsOfTheListAndNoOthers) {
    const std::string strDocument = FileText(TEV_SOURCE_DIR "/docs/metrics.md");
    std::string strRows;
    for (const metrics_text::Metric& metric : metrics_text::All()) {
        strRows += Row(metric);
    }

    const size_t nBegin = strDocument.find("| `tevmon_");
    ASSERT_NE(std::string::npos, nBegin);
    const size_t nEnd = strDocument.find("\n\n", nBegin);
    EXPECT_EQ(strRows, strDocument.substr(nBegin, nEnd - nBegin + 1));
}

TEST(MetricsTextTest, NamesAreUniqueAndOnlyCountersEndInTotal) {
    std::set<std::string> names;
    for (const metrics_text::Metric& metric : metrics_text::All()) {
        const std::string strName = metric.pszName;
        EXPECT_TRUE(names.insert(strName).second) << strName;
        const bool bTotal = strName.size() > 6 && strName.substr(strName.size() - 6) == "_total";
        EXPECT_EQ(metric.bCounter, bTotal) << strName;
    }
}

TEST(MetricsTextTest, TheTextHasTheNumbersOfTheBalance) {
    Balance balance;
    balance.launches.nCaptured = 1234567890;
    balance.files.nUnwatched = 7;
    balance.events.nCached = 3;
    balance.module.answersByLevel = {{70, 2}};
    balance.module.nQueries = 1;

    const std::string strText = metrics_text::Text(balance, 1700000000);

    for (const char* pszLine :
         {"# TYPE tevmon_captured_total counter\n",
          "tevmon_captured_total{source=\"launch\"} 1234567890\n",
          "tevmon_captured_fate_total{source=\"file\",fate=\"unwatched\"} 7\n",
          "tevmon_expected_queries_total{end=\"cached\"} 3\n",
          "tevmon_answers_total{level=\"70\"} 2\n", "tevmon_answers_total{level=\"40\"} 0\n",
          "# TYPE tevmon_queries_outstanding gauge\n", "tevmon_queries_outstanding 1\n",
          "tevmon_start_time_seconds 1700000000\n"}) {
        EXPECT_THAT(strText, HasSubstr(pszLine)) << pszLine;
    }
}

TEST(MetricsTextTest, EveryNumberHasASampleOfItsOwn) {
    EXPECT_EQ(
        R"(tevmon_captured_total{source="launch"} 101
tevmon_captured_total{source="file"} 201
tevmon_captured_fate_total{source="launch",fate="reported"} 106
tevmon_captured_fate_total{source="launch",fate="repeated"} 116
tevmon_captured_fate_total{source="launch",fate="unresolved"} 105
tevmon_captured_fate_total{source="launch",fate="lost"} 102
tevmon_captured_fate_total{source="launch",fate="own"} 104
tevmon_captured_fate_total{source="launch",fate="broken"} 103
tevmon_captured_fate_total{source="file",fate="reported"} 205
tevmon_captured_fate_total{source="file",fate="unwatched"} 203
tevmon_captured_fate_total{source="file",fate="unresolved"} 204
tevmon_captured_fate_total{source="file",fate="own"} 202
tevmon_file_queue_overflows_total 208
tevmon_file_events_total 210
tevmon_file_capture_seconds_total 2.11
tevmon_flaws_total{flaw="script_unreported"} 109
tevmon_flaws_total{flaw="args_cut"} 110
tevmon_flaws_total{flaw="args_unreadable"} 111
tevmon_flaws_total{flaw="processes_lost"} 112
tevmon_flaws_total{flaw="changed"} 409
tevmon_flaws_total{flaw="not_held"} 114
tevmon_flaws_total{flaw="fresh"} 115
tevmon_flaws_total{flaw="files_no_program"} 207
tevmon_flaws_total{flaw="files_found"} 212
tevmon_flaws_total{flaw="files_gone"} 213
tevmon_flaws_total{flaw="files_broken"} 209
tevmon_reported_total{kind="launch"} 106
tevmon_reported_total{kind="script"} 107
tevmon_reported_total{kind="again"} 113
tevmon_reported_total{kind="file"} 205
tevmon_events_total{fate="refused"} 302
tevmon_events_total{fate="not_stored"} 305
tevmon_events_total{fate="analysed"} 306
tevmon_events_total{fate="analysed_earlier"} 308
tevmon_events_waiting 303
tevmon_messages_waiting{run="this"} 304
tevmon_messages_waiting{run="earlier"} 307
tevmon_events_ignored_total 309
tevmon_expected_queries_total{end="queried"} 311
tevmon_expected_queries_total{end="cached"} 312
tevmon_expected_queries_total{end="vanished"} 315
tevmon_expected_queries_total{end="unreadable"} 313
tevmon_expected_queries_total{end="stat_failed"} 314
tevmon_expected_queries_total{end="known_maker"} 316
tevmon_expected_queries_missing 317
tevmon_unmatched_total 318
tevmon_queries_total{fate="answered"} 401
tevmon_queries_total{fate="known"} 402
tevmon_queries_total{fate="no_key"} 403
tevmon_queries_total{fate="lost"} 404
tevmon_queries_not_sent_total 405
tevmon_answers_total{level="10"} 411
tevmon_answers_total{level="20"} 412
tevmon_answers_total{level="40"} 413
tevmon_answers_total{level="70"} 414
tevmon_queries_outstanding 400
tevmon_bad_runs_total 408
tevmon_hashed_bytes_total 407
tevmon_unexplained 7605
tevmon_start_time_seconds 1700000000
)",
        Samples(metrics_text::Text(DistinctBalance(), 1700000000)));
}

// A reader takes a sample for untyped when its type comes later.
TEST(MetricsTextTest, EachMetricsHelpAndTypeStandBeforeItsSamples) {
    std::string strText = metrics_text::Text(Balance(), 0);

    for (const metrics_text::Metric& metric : metrics_text::All()) {
        const std::string strName = metric.pszName;
        const std::string strHead = "# HELP " + strName + " " + metric.pszHelp + "\n# TYPE " +
                                    strName + (metric.bCounter ? " counter\n" : " gauge\n");
        ASSERT_EQ(strHead, strText.substr(0, strHead.size()));
        strText.erase(0, strHead.size());
        ASSERT_EQ(strName, strText.substr(0, strName.size()));
        strText.erase(0, std::min(strText.find('#'), strText.size()));
    }
    EXPECT_EQ("", strText);
}

TEST(MetricsTextTest, AnswersOfALevelThatThisHostDoesNotGiveAreNotLost) {
    Balance balance;
    balance.module.answersByLevel = {{-1, 7}, {20, 2}, {55, 3}};

    EXPECT_THAT(metrics_text::Text(balance, 0),
                HasSubstr("tevmon_answers_total{level=\"-1\"} 7\n"
                          "tevmon_answers_total{level=\"10\"} 0\n"
                          "tevmon_answers_total{level=\"20\"} 2\n"
                          "tevmon_answers_total{level=\"40\"} 0\n"
                          "tevmon_answers_total{level=\"55\"} 3\n"
                          "tevmon_answers_total{level=\"70\"} 0\n"));
}

TEST(MetricsTextTest, MoreAnswersThanQueriesAreNoneOutstanding) {
    Balance balance;
    balance.module.nQueries = 1;
    balance.module.nAnswers = 2;

    EXPECT_THAT(metrics_text::Text(balance, 0), HasSubstr("\ntevmon_queries_outstanding 0\n"));
}

TEST(MetricsTextTest, ALargeNumberKeepsAllItsDigits) {
    Balance balance;
    balance.module.nHashedBytes = 9007199254740991;
    balance.files.nCaptureMicros = 1;

    const std::string strText = metrics_text::Text(balance, 0);

    EXPECT_THAT(strText, HasSubstr("\ntevmon_hashed_bytes_total 9007199254740991\n"));
    EXPECT_THAT(strText, HasSubstr("\ntevmon_file_capture_seconds_total 1e-06\n"));
}

TEST(MetricsTextTest, OnlyTheEndCallsAnOpenQueryUnexplained) {
    Balance balance;
    balance.module.nQueries = 3;
    EXPECT_THAT(metrics_text::Text(balance, 0), HasSubstr("\ntevmon_unexplained 0\n"));

    balance.bFinal = true;
    EXPECT_THAT(metrics_text::Text(balance, 0), HasSubstr("\ntevmon_unexplained 3\n"));
}
