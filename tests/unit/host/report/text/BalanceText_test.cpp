#include "host/report/text/BalanceText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/account/Balance.h"

using testing::HasSubstr;

namespace {

Balance Numbers() {
    Balance balance;
    balance.bFinal = true;
    balance.launches.nSensed = 1010;
    balance.launches.nPrograms = 1007;
    balance.launches.nUnresolvable = 1;
    balance.launches.nLost = 2;
    balance.launches.nScripts = 3;
    balance.files.nSensed = 25;
    balance.files.nTold = 5;
    balance.files.nElsewhere = 20;
    balance.files.nOverflows = 1;
    balance.events.nSent = 1015;
    balance.events.nRefused = 2;
    balance.events.nNotStored = 1;
    balance.events.nWaiting = 10;
    balance.events.nBegun = 1002;
    balance.events.nNoInterest = 1;
    balance.events.nQuestions = 1002;
    balance.events.nQueried = 4;
    balance.events.nCached = 996;
    balance.events.nGone = 1;
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
        "  sensed            1,010 launches        = 1,007 told + 1 unresolvable + 2 lost\n"
        "                       25 file operations = 5 told + 20 in no watched place + 0 "
        "unresolvable\n"
        "  told              1,015 events          = 1,013 delivered + 2 refused\n"
        "  delivered         1,013 events          = 1,012 stored + 1 not stored\n"
        "  stored            1,012 events          = 1,002 looked at + 10 waiting in the queue\n"
        "  looked at         1,002 events          = 1 of no interest + 1,001 with 1,002 "
        "questions\n"
        "  questions         1,002                 = 4 asked + 996 cached + 1 gone before that + 1 "
        "pipes of a known program\n"
        "  queries               4                 = 3 answered (packaged 2, bad 1) + 1 that "
        "want no answer + 0 outstanding\n"
        "  of these              1 times the kernel's queue of file operations was full; what it "
        "lost is not known\n"
        "                        3 scripts told beside their interpreters\n"
        "  unexplained           0",
        balance_text::Text(Console(), Numbers()));
}

TEST(BalanceTextTest, EventsOfEarlierRunsStandApart) {
    Balance balance = Numbers();
    balance.events.nEarlierBegun = 7;
    EXPECT_THAT(
        balance_text::Text(Console(), balance),
        HasSubstr("  looked at         1,009 events          = 1,002 of this run + 7 of "
                  "earlier runs or once more\n"
                  "                    1,009                 = 1 of no interest + 1,008 with "));
}

TEST(BalanceTextTest, TheJsonHasTheSameNumbers) {
    JsonObject record;
    EXPECT_EQ(
        R"({"sensed":1010,"delivered":1007,"unresolvable":1,"lost":2,"own":0,"broken":0,"unread":0,)"
        R"("scripts":3,"scripts_untold":0,"args_cut":0,"args_unreadable":0,"others_lost":0,)"
        R"("files":{"sensed":25,"told":5,"elsewhere":20,"unresolvable":0,"own":0,"unread":0,)"
        R"("no_program":0,"broken":0,"events":0,"sense_us":0,"overflows":1},)"
        R"("told":1015,"in_the_making":0,"events":1015,"refused":2,)"
        R"("not_stored":1,"waiting":10,"looked_at":1002,"looked_at_earlier":0,)"
        R"("earlier_messages_waiting":0,"no_interest":1,"questions":1002,"asked":4,"cached":996,)"
        R"("gone":1,"no_hash":0,"no_stat":0,"known_maker":1,"silent":0,"beside":0,"not_sent":0,)"
        R"("queries":4,"answers":3,"answers_by_level":{"10":2,"70":1},"known":0,"no_key":1,)"
        R"("query_lost":0,"outstanding":0,"unexplained":0})",
        balance_text::AddNumbers(record, Numbers()).Text());
}

TEST(BalanceTextTest, WithoutSensorsItBeginsWithWhatWasTold) {
    Balance balance;
    balance.input = balance.events.nSent = 1;
    EXPECT_EQ(0u,
              balance_text::Text(Console(), balance)
                  .find("Balance\n"
                        "  told                  1 events          = 1 delivered + 0 refused\n"));

    JsonObject record;
    EXPECT_EQ(0u, balance_text::AddNumbers(record, balance)
                      .Text()
                      .find(R"({"input":1,"told":1,"in_the_making":0,"events":1,)"));
}
