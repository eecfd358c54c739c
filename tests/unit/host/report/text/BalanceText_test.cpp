#include "host/report/text/BalanceText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/host/DistinctBalance.h"
#include "tests/support/host/OnTerminal.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

Balance Numbers() {
    Balance balance;
    balance.bFinal = true;
    balance.launches.nCaptured = 1010;
    balance.launches.nReported = 1007;
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

TEST(BalanceTextTest, EveryNumberHasItsPlace) {
    EXPECT_EQ(
        "Balance\n"
        "  captured            101 launches        = 106 reported + 116 repeated + 105 unresolved "
        "+ "
        "102 lost + 104 "
        "the host's own + 103 broken records\n"
        "                      201 file operations = 205 reported + 203 in no watched place + 204 "
        "unresolved + 202 the host's own\n"
        "  reported            531 events          = 2,699 delivered + 302 refused + 314 in a "
        "batch\n"
        "  delivered         2,699 events          = 2,394 stored + 305 not stored\n"
        "  stored            2,394 events          = 306 analysed + 303 waiting in the queue\n"
        "  analysed            614 events          = 306 of this run + 308 of earlier runs or once "
        "more\n"
        "                      614                 = 309 ignored + 305 with 310 expected queries\n"
        "  expected            310 queries         = 311 queried + 312 cached + 315 vanished + 313 "
        "unreadable + 314 stat failed + 316 pipes of a known program + 317 missing\n"
        "  queries           2,010                 = 401 answered (packaged 411, good 412, unknown "
        "413, bad 414) + 402 answered before + 403 that want no answer + 404 lost + 400 "
        "outstanding\n"
        "  of these            208 times the kernel's queue of file operations was full; what it "
        "lost is not known\n"
        "                      107 scripts reported in addition to their interpreters\n"
        "                      113 launches reported once more, by links to their files\n"
        "                      409 launches whose files were others when the module hashed them\n"
        "                      115 launches of files perhaps written to since, judged only if they "
        "are "
        "bad\n"
        "                      114 launches whose files are not held\n"
        "                      109 scripts not reported\n"
        "                      110 launches with arguments cut\n"
        "                      111 launches with arguments unreadable\n"
        "                      209 records about files that are no event\n"
        "                      207 file operations without the program that did them\n"
        "                      212 file operations found by comparing the watched places\n"
        "                      213 files made and gone before they were examined, perhaps pipes\n"
        "                      112 copies and ends of processes lost, so that a starter may be "
        "wrong\n"
        "                      307 messages of earlier runs waiting in the queue\n"
        "                      318 queries and log records of the module that match no expected "
        "query\n"
        "                      405 queries that the module could not send\n"
        "                      408 bad runs: a program with a bad verdict was launched or acted\n"
        "  unexplained       7,605",
        balance_text::Text(Console(), DistinctBalance()));
}

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
        "pipe of a known program\n"
        "  queries               4                 = 3 answered (packaged 2, bad 1) + 1 that "
        "wants no answer + 0 outstanding\n"
        "  of these              1 time the kernel's queue of file operations was full; what it "
        "lost is not known\n"
        "                        3 scripts reported in addition to their interpreters\n"
        "  unexplained           0",
        balance_text::Text(Console(), Numbers()));
}

TEST(BalanceTextTest, OneOfAKindHasTheWordOfOne) {
    Balance balance;
    balance.files.nOverflows = balance.files.nBroken = balance.files.nNoProgram = 1;
    balance.files.nFound = balance.files.nGone = 1;
    balance.launches.nScripts = balance.launches.nScriptsUnreported = 1;
    balance.launches.nArgsCut = balance.launches.nArgsUnreadable = 1;
    balance.launches.nOthersLost = balance.events.nEarlierWaiting = balance.events.nUnmatched = 1;
    balance.module.nNotSent = balance.module.nBadRuns = 1;
    const std::string strText = balance_text::Text(Console(), balance);

    EXPECT_THAT(
        strText.substr(strText.find("  of these")),
        StartsWith(
            "  of these              1 time the kernel's queue of file operations was full; "
            "what it lost is not known\n"
            "                        1 script reported in addition to its interpreter\n"
            "                        1 script not reported\n"
            "                        1 launch with arguments cut\n"
            "                        1 launch with arguments unreadable\n"
            "                        1 record about files that is no event\n"
            "                        1 file operation without the program that did it\n"
            "                        1 file operation found by comparing the watched places\n"
            "                        1 file made and gone before it was examined, perhaps a pipe\n"
            "                        1 copy or end of a process lost, so that a starter may "
            "be wrong\n"
            "                        1 message of earlier runs waiting in the queue\n"
            "                        1 query or log record of the module that matches no "
            "expected query\n"
            "                        1 query that the module could not send\n"
            "                        1 bad run: a program with a bad verdict was launched or "
            "acted\n"));
}

TEST(BalanceTextTest, ASumOfOneHasTheWordOfOneAndSoHaveItsParts) {
    Balance balance;
    balance.launches.nCaptured = balance.launches.nBroken = balance.files.nCaptured = 1;
    balance.events.nAnalysed = balance.events.nExpected = balance.events.nKnownMaker = 1;
    balance.module.nQueries = balance.module.nNoKey = 1;

    const std::string strText = balance_text::Text(Console(), balance);

    for (const char* const pszPart :
         {"              1 launch          = ", " + 1 broken record\n",
          "              1 file operation  = ", "              1 event           = 0 ignored",
          " + 1 with 1 expected query\n", "              1 query           = ",
          " + 1 pipe of a known program\n", " + 1 that wants no answer + "}) {
        EXPECT_THAT(strText, HasSubstr(pszPart));
    }
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
        R"({"launches":{"captured":1010,"reported":1007,"repeated":0,"unresolved":1,"lost":2,"own":0,)"
        R"("broken":0,"unread":0,"scripts":3,"scripts_unreported":0,"args_cut":0,"args_unreadable":0,)"
        R"("processes_lost":0,"again":0,"not_held":0,"fresh":0},)"
        R"("files":{"captured":25,"reported":5,"unwatched":20,"unresolved":0,"own":0,"unread":0,)"
        R"("no_program":0,"found":0,"gone":0,"broken":0,"events":0,"capture_us":0,"overflows":1},)"
        R"("reported":1015,"batched":0,"delivered":1013,"refused":2,)"
        R"("not_stored":1,"waiting":10,"analysed":1002,"analysed_earlier":0,)"
        R"("earlier_messages_waiting":0,"ignored":1,"expected":1002,"queried":4,"cached":996,)"
        R"("vanished":1,"unreadable":0,"stat_failed":0,"known_maker":1,"missing":0,"unmatched":0,)"
        R"("queries_not_sent":0,)"
        R"("queries":4,"answers":3,"answers_by_level":{"10":2,"70":1},"known":0,"no_key":1,)"
        R"("queries_lost":0,"outstanding":0,"bad_runs":0,"changed":0,"unexplained":0})",
        balance_text::AddNumbers(record, Numbers()).Text());
}

TEST(BalanceTextTest, WithoutSensorsItBeginsWithWhatWasReported) {
    Balance balance;
    balance.input = balance.events.nSent = 1;
    EXPECT_EQ(0u,
              balance_text::Text(Console(), balance)
                  .find("Balance\n"
                        "  reported              1 event           = 1 delivered + 0 refused\n"));

    JsonObject record;
    EXPECT_EQ(0u, balance_text::AddNumbers(record, balance)
                      .Text()
                      .find(R"({"input":1,"unsent":0,"reported":1,"batched":0,"delivered":1,)"));
}

TEST(BalanceTextTest, ARunOfNothingHasItsSumsAndNoRemarks) {
    EXPECT_EQ(
        "Balance\n"
        "  captured              0 launches        = 0 reported + 0 unresolved + 0 lost\n"
        "                        0 file operations = 0 reported + 0 in no watched place + 0 "
        "unresolved\n"
        "  reported              0 events          = 0 delivered + 0 refused\n"
        "  delivered             0 events          = 0 stored + 0 not stored\n"
        "  stored                0 events          = 0 analysed + 0 waiting in the queue\n"
        "  analysed              0 events          = 0 ignored + 0 with 0 expected queries\n"
        "  expected              0 queries         = 0 queried + 0 cached + 0 vanished\n"
        "  queries               0                 = 0 answered + 0 outstanding\n"
        "  unexplained           0",
        balance_text::Text(Console(), Balance()));
}

TEST(BalanceTextTest, WhatIsOnItsWayStandsAtItsStation) {
    Balance balance;
    balance.launches.nCaptured = 5;
    balance.launches.nReported = 3;
    balance.launches.nBatched = 2;
    balance.files.nCaptured = 9;
    balance.files.nReported = balance.files.nBatched = 2;
    EXPECT_THAT(
        balance_text::Text(Console(), balance),
        HasSubstr(
            "  captured              5 launches        = 3 reported + 0 unresolved + 0 lost "
            "+ 2 not read yet\n"
            "                        9 file operations = 2 reported + 0 in no watched place + "
            "0 unresolved + 7 not read yet\n"
            "  reported              5 events          = 0 delivered + 0 refused + 4 in a "
            "batch\n"));

    balance.input = 7;
    balance.nUnsent = 6;
    EXPECT_THAT(balance_text::Text(Console(), balance),
                HasSubstr("Balance\n"
                          "  reported              7 events          = 0 delivered + 0 refused + 4 "
                          "in a batch + 6 unsent\n"));
}

TEST(BalanceTextTest, OnATerminalWhatIsUnexplainedIsRedAndNothingIsGreen) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    const Console output;
    Balance balance;
    EXPECT_EQ(0u, balance_text::Text(output, balance).find("\033[1mBalance\033[0m\n"));
    EXPECT_THAT(balance_text::Text(output, balance),
                EndsWith("\n\033[32m  unexplained           0\033[0m"));

    balance.events.nSent = 1;
    EXPECT_THAT(balance_text::Text(output, balance),
                EndsWith("\n\033[31m  unexplained           2\033[0m"));
}

TEST(BalanceTextTest, EveryNumberIsAMemberOfTheJson) {
    JsonObject record;
    EXPECT_EQ(
        R"({"launches":{"captured":101,"reported":106,"repeated":116,"unresolved":105,"lost":102,)"
        R"("own":104,"broken":103,"unread":0,"scripts":107,"scripts_unreported":109,"args_cut":110,)"
        R"("args_unreadable":111,"processes_lost":112,"again":113,"not_held":114,"fresh":115},)"
        R"("files":{"captured":201,"reported":205,"unwatched":203,"unresolved":204,"own":202,)"
        R"("unread":0,"no_program":207,"found":212,"gone":213,"broken":209,"events":210,"capture_us":2110000,)"
        R"("overflows":208},"reported":531,"batched":314,"delivered":2699,"refused":302,)"
        R"("not_stored":305,"waiting":303,"analysed":306,"analysed_earlier":308,)"
        R"("earlier_messages_waiting":307,"ignored":309,"expected":310,"queried":311,)"
        R"("cached":312,"vanished":315,"unreadable":313,"stat_failed":314,"known_maker":316,)"
        R"("missing":317,"unmatched":318,"queries_not_sent":405,"queries":2010,"answers":401,)"
        R"("answers_by_level":{"10":411,"20":412,"40":413,"70":414},"known":402,"no_key":403,)"
        R"("queries_lost":404,"outstanding":400,"bad_runs":408,"changed":409,"unexplained":7605})",
        balance_text::AddNumbers(record, DistinctBalance()).Text());
}
