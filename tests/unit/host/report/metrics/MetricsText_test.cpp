#include "host/report/metrics/MetricsText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "host/account/Balance.h"
#include "tests/support/FileText.h"

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
