#include "host/WatchBlock.h"

#include <gtest/gtest.h>

#include "host/WatchReport.h"

namespace {

WatchBalance Numbers() {
    WatchBalance balance;
    balance.bFinal = true;
    balance.launches.nSensed = 10;
    balance.launches.nPrograms = 7;
    balance.launches.nUnresolvable = 1;
    balance.launches.nLost = 2;
    balance.launches.nScripts = 3;
    balance.events.nSent = 10;
    balance.events.nHeard = 9;
    balance.events.nGone = 1;
    balance.module.nQueries = 4;
    balance.module.nAnswers = 4;
    balance.module.nCached = 5;
    return balance;
}

}  // namespace

TEST(WatchBlockTest, EverySumStandsWithWhatItIsMadeOf) {
    EXPECT_EQ(
        "Balance\n"
        "  sensed      10 launches = 7 delivered + 1 unresolvable + 2 lost\n"
        "  events      10 = 7 programs + 3 scripts\n"
        "              10 handed over = 9 looked at + 1 gone before that + 0 waiting in the queue\n"
        "  looked at   9 = 4 queries + 5 from the cache\n"
        "  queries     4 = 4 answered\n"
        "  of these    0 with arguments cut, 0 with arguments unreadable, 0 scripts not told\n"
        "  unexplained 0",
        watch_block::Text(Output(), Numbers()));
}

TEST(WatchBlockTest, TheJsonHasTheSameNumbers) {
    JsonObject record;
    EXPECT_EQ(
        R"({"sensed":10,"delivered":7,"unresolvable":1,"lost":2,"own":0,"broken":0,"unread":0,)"
        R"("scripts":3,"scripts_untold":0,"args_cut":0,"args_unreadable":0,"others_lost":0,)"
        R"("events":10,"looked_at":9,"gone":1,"waiting":0,"refused":0,"silent":0,"queries":4,)"
        R"("cached":5,"answers":4,"unexplained":0})",
        watch_block::AddNumbers(record, Numbers()).Text());
}
