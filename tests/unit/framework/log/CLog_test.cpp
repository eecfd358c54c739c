#include "framework/log/CLog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/log/CLogDebug.h"
#include "tests/support/LogCapture.h"

namespace {

TEST(CLogTest, ARecordReachesTheSinkWithItsTypeAndParts) {
    const LogCapture log;

    CLog::_emit(3, "public/pluginhelper/CCentreSession", "sendhub", 61, "[%s] ret:%d", "a/b", 5);

    const std::vector<CapturedLog> records = log.All();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(4, records[0].nLevel);
    EXPECT_EQ(3, records[0].nLogType);
    EXPECT_EQ("public/pluginhelper/CCentreSession", records[0].strSource);
    EXPECT_EQ("sendhub", records[0].strFunction);
    EXPECT_EQ(61, records[0].nLine);
    EXPECT_EQ("[%s] ret:%d", records[0].strFormat);
    EXPECT_EQ("[a/b] ret:5", records[0].strText);
}

TEST(CLogTest, ErrorsAndAboveAreLevelFourTheRestLevelTwo) {
    const LogCapture log;

    for (const int nLogType : {-1, 0, 1, 2, 3, 4}) {
        CLog::_emit(nLogType, "s", "f", 1, "%d", nLogType);
    }

    EXPECT_EQ((std::vector<std::string>{"-1", "0", "1", "2"}), log.Texts(2));
    EXPECT_EQ((std::vector<std::string>{"3", "4"}), log.Texts(4));
}

TEST(CLogTest, NothingIsEmittedBelowTheLevel) {
    const LogCapture log;
    CLogDebug::Instance()->SetLevel(4);

    CLog::_emit(2, "s", "f", 1, "quiet");
    CLog::_emit(3, "s", "f", 1, "loud");

    EXPECT_EQ(0u, log.Count("quiet"));
    EXPECT_EQ(1u, log.Count("loud"));
}

}  // namespace
