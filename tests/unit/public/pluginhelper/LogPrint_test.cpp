#include "public/pluginhelper/LogPrint.h"

#include <gtest/gtest.h>

#include <string>

#include "framework/log/CLogDebug.h"
#include "tests/support/LogCapture.h"

TEST(LogPrintTest, EveryPartOfTheRecordReachesTheLog) {
    const LogCapture log;

    EXPECT_EQ(1, LogPrint(LOG_TRACE, "tevmon/core/X", "Run", 42, "%s is %d\n", "seven", 7));

    const std::vector<CapturedLog> records = log.All();
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(2, records[0].nLevel);
    EXPECT_EQ("tevmon/core/X", records[0].strSource);
    EXPECT_EQ("Run", records[0].strFunction);
    EXPECT_EQ(42, records[0].nLine);
    EXPECT_EQ("%s is %d\n", records[0].strFormat);
    EXPECT_EQ("seven is 7\n", records[0].strText);
}

TEST(LogPrintTest, ALevelThatIsOffReturnsZeroAndPrintsNothing) {
    const LogCapture log;
    CLogDebug::Instance()->SetLevel(LOG_FAIL);

    EXPECT_EQ(0, LogPrint(LOG_SKIP, "s", "f", 1, "skip"));
    EXPECT_EQ(0, LogPrint(LOG_TRACE, "s", "f", 2, "trace"));
    EXPECT_EQ(1, LogPrint(LOG_FAIL, "s", "f", 3, "fail"));

    EXPECT_EQ(std::vector<std::string>{"fail"}, log.Texts());
}

TEST(LogPrintTest, ForeignTextIsNeverAFormat) {
    const LogCapture log;

    LogPrint(LOG_FAIL, "s", "f", 1, "[%s]", "%s%n%d%99999999999s");

    EXPECT_EQ(std::vector<std::string>{"[%s%n%d%99999999999s]"}, log.Texts());
}

TEST(LogPrintTest, ATextOfAnyLengthArrivesWhole) {
    const LogCapture log;
    const std::string strLong(1000000, 'x');

    LogPrint(LOG_TRACE, "s", "f", 1, "%s", strLong.c_str());

    ASSERT_EQ(1U, log.All().size());
    EXPECT_EQ(strLong, log.All()[0].strText);
}
