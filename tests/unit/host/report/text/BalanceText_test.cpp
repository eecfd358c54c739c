#include "host/report/text/BalanceText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/account/Balance.h"

using testing::HasSubstr;

namespace {

Balance Numbers() {
    Balance balance;
    balance.bFinal = true;
    balance.launches.nCaptured = 1010;
    balance.launches.nPrograms = 1007;
    balance.launches.nUnresolved = 1;
    balance.launches.nLost = 2;
    balance.launches.nScripts = 3;
    balance.files.nCaptured = 25;
    balance.files.nReported = 5;
    balance.files.nUnwatched = 20;
    balance.files.nOverflows = 1;
    balance.events.nSent = 1015;
    balance.events.nRefused = 2;
    balance.events.nNotStored = 1;
    balance.events.nWaiting = 10;
    balance.events.nAnalysed = 1002;
    balance.events.nIgnored = 1;
    balance.events.nExpected = 1002;
    balance.events.nQueried = 4;
    balance.events.nCached = 996;
    balance.events.nVanished = 1;
    balance.events.nKnownMaker = 1;
    balance.module.nQueries = 4;
    balance.module.nAnswers = 3;
    balance.module.nNoKey = 1;
    balance.module.nCached = 996;
    balance.module.answersByLevel = {{10, 2}, {70, 1}};
    return balance;
}

}  // namespace

TEST(BalanceTextTest, EverySumStandsWithWhatItIsMadeOf) {
    EXPECT_EQ(
        "Balance\n"
        "  captured          1,010 launches        = 1,007 reported + 1 unresolved + 2 lost\n"
        "                       25 file operations = 5 reported + 20 in no watched place + 0 "
        "unresolved\n"
        "  reported          1,015 events          = 1,013 delivered + 2 refused\n"
        "  delivered         1,013 events          = 1,012 stored + 1 not stored\n"
        "  stored            1,012 events          = 1,002 analysed + 10 waiting in the queue\n"
        "  analysed          1,002 events          = 1 ignored + 1,001 with 1,002 expected "
        "queries\n"
        "  expected          1,002 queries         = 4 queried + 996 cached + 1 vanished + 1 "
        "pipes of a known program\n"
        "  queries               4                 = 3 answered (packaged 2, bad 1) + 1 that "
        "want no answer + 0 outstanding\n"
        "  of these              1 times the kernel's queue of file operations was full; what it "
        "lost is not known\n"
        "                        3 scripts reported in addition to their interpreters\n"
        "  unexplained           0",
        balance_text::Text(Console(), Numbers()));
}

TEST(BalanceTextTest, EventsOfEarlierRunsStandApart) {
    Balance balance = Numbers();
    balance.events.nEarlierAnalysed = 7;
    EXPECT_THAT(balance_text::Text(Console(), balance),
                HasSubstr("  analysed          1,009 events          = 1,002 of this run + 7 of "
                          "earlier runs or once more\n"
                          "                    1,009                 = 1 ignored + 1,008 with "));
}

TEST(BalanceTextTest, TheJsonHasTheSameNumbers) {
    JsonObject record;
    EXPECT_EQ(
        R"({"launches":{"captured":1010,"reported":1007,"unresolved":1,"lost":2,"own":0,"broken":0,)"
        R"("unread":0,"scripts":3,"scripts_unreported":0,"args_cut":0,"args_unreadable":0,)"
        R"("processes_lost":0},)"
        R"("files":{"captured":25,"reported":5,"unwatched":20,"unresolved":0,"own":0,"unread":0,)"
        R"("no_program":0,"broken":0,"events":0,"capture_us":0,"overflows":1},)"
        R"("reported":1015,"batched":0,"sent":1015,"refused":2,)"
        R"("not_stored":1,"waiting":10,"analysed":1002,"analysed_earlier":0,)"
        R"("earlier_messages_waiting":0,"ignored":1,"expected":1002,"queried":4,"cached":996,)"
        R"("vanished":1,"unreadable":0,"stat_failed":0,"known_maker":1,"missing":0,"unmatched":0,)"
        R"("not_sent":0,)"
        R"("queries":4,"answers":3,"answers_by_level":{"10":2,"70":1},"known":0,"no_key":1,)"
        R"("queries_lost":0,"outstanding":0,"unexplained":0})",
        balance_text::AddNumbers(record, Numbers()).Text());
}

TEST(BalanceTextTest, WithoutSensorsItBeginsWithWhatWasTold) {
    Balance balance;
    balance.input = balance.events.nSent = 1;
    EXPECT_EQ(0u,
              balance_text::Text(Console(), balance)
                  .find("Balance\n"
                        "  reported              1 events          = 1 delivered + 0 refused\n"));

    JsonObject record;
    EXPECT_EQ(0u, balance_text::AddNumbers(record, balance)
                      .Text()
                      .find(R"({"input":1,"unsent":0,"reported":1,"batched":0,"sent":1,)"));
}
