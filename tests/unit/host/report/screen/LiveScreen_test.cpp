#include "host/report/screen/LiveScreen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <new>

#include "tests/support/Event.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/host/DrawnScreen.h"
#include "tests/support/host/OnTerminal.h"

using testing::HasSubstr;
using testing::Not;

namespace {

VerdictRow Row(const std::string& strSubject, int nLevel) {
    return verdict_row::Judged("launch", strSubject, "/bin/sh", {nLevel, "none", ""}, true);
}

LiveScreen::MakeNumbers NoNumbers() {
    return [] { return ScreenNumbers(); };
}

// What stands in the rows, one a line.
std::string Subjects(const LiveScreen& screen) {
    std::string strSubjects;
    for (const VerdictRow& row : screen.Rows()) {
        strSubjects += row.strSubject + "\n";
    }
    return strSubjects;
}

}  // namespace

TEST(LiveScreenTest, TheSameAgainIsFoldedIntoItsLineWhichIsTheLastThen) {
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    screen.Add(Row("/bin/a", 10));
    screen.Add(Row("/bin/b", 10));
    screen.Add(Row("/bin/a", 10));

    const std::vector<VerdictRow> rows = screen.Rows();
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ("/bin/b", rows[0].strSubject);
    EXPECT_EQ("/bin/a", rows[1].strSubject);
    EXPECT_EQ(2u, rows[1].nTimes);
}

TEST(LiveScreenTest, ABadProgramHasALineEveryTime) {
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    screen.Add(Row("/bin/bad", 70));
    screen.Add(Row("/bin/bad", 70));

    EXPECT_EQ(2u, screen.Rows().size());
}

TEST(LiveScreenTest, WhatIsHeldIsBounded) {
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    for (size_t i = 0; i < 2 * LiveScreen::MOST_ROWS; ++i) {
        screen.Add(Row(std::to_string(i), 40));
    }
    screen.Add(Row("0", 40));

    EXPECT_EQ(300u, screen.Rows().size());
    EXPECT_EQ(1u, screen.Rows().back().nTimes);
}

TEST(LiveScreenTest, WithoutATerminalNothingChanges) {
    const Variable term("TERM", "xterm");
    const StdoutCapture standardOutput;
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});

    EXPECT_FALSE(screen.Begin());
    output.Line("a line");

    EXPECT_EQ("a line\n", standardOutput.Text());
}

TEST(LiveScreenTest, ATerminalThatCannotBeDrawnOnIsNone) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    const Variable term("TERM", "dumb");
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});

    EXPECT_FALSE(screen.Begin());
}

TEST(LiveScreenTest, LinesOfTheOutputAreLinesOfTheViewAndErrorsArePrintedOnceMoreAfterIt) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    ASSERT_TRUE(screen.Begin());
    screen.State("watching");
    testing::internal::CaptureStderr();

    output.Line("12:00:00  a line\nand another");
    output.Error("an error");
    screen.Add(Row("/bin/program", 40));
    const std::string strDrawn = pty.ReadUntil("/bin/program");
    screen.End();
    output.Line("after it");

    EXPECT_THAT(strDrawn, HasSubstr("a line"));
    EXPECT_THAT(strDrawn, HasSubstr("and another"));
    EXPECT_THAT(strDrawn, HasSubstr("an error"));
    EXPECT_THAT(pty.ReadUntil("after it"), HasSubstr("\033[?1049l"));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("an error\n"));
}

TEST(LiveScreenTest, TheViewFollowsTheSizeOfTheTerminal) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    ASSERT_TRUE(screen.Begin());
    pty.ReadUntil("unexplained");
    pty.Resize(120, 30);

    EXPECT_THAT(pty.ReadUntil("OWNER"), HasSubstr("OWNER"));
}

TEST(LiveScreenTest, ATerminalThatHungUpIsReportedOnce) {
    Pty pty;
    const OnTerminal onTerminal(pty);
    Console output;
    std::atomic<int> nVanished{0};
    Event gone;
    LiveScreen screen(
        output, [] { return ScreenNumbers(); },
        [&] {
            ++nVanished;
            gone.Set();
        });
    ASSERT_TRUE(screen.Begin());
    pty.HangUp();
    EXPECT_TRUE(gone.WaitFor(HANGS_AFTER));
    screen.End();

    EXPECT_EQ(1, nVanished);
}

TEST(LiveScreenTest, OnlyTheSameActOfTheSameProgramWithTheSameVerdictIsFolded) {
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    VerdictRow row = Row("/bin/a", 20);
    row.nTimes = 3;
    screen.Add(row);
    screen.Add(Row("/bin/b", 20));
    screen.Add(Row("/bin/a", 40));
    row.strBy = "/bin/bash";
    screen.Add(row);
    row.strWhat = "FileCreate";
    screen.Add(row);
    EXPECT_EQ("/bin/a\n/bin/b\n/bin/a\n/bin/a\n/bin/a\n", Subjects(screen));

    screen.Add(row);
    EXPECT_EQ(5u, screen.Rows().size());
    EXPECT_EQ(6u, screen.Rows().back().nTimes);
}

TEST(LiveScreenTest, ANameWithALineFeedIsNotTwoNames) {
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    VerdictRow row = Row("/tmp/a", 40);
    row.strBy = "/tmp/b\n/tmp/c";
    screen.Add(row);
    row.strSubject = "/tmp/a\n/tmp/b";
    row.strBy = "/tmp/c";
    screen.Add(row);
    row.strSubject = "/tmp/a\n";
    row.strBy = "/tmp/b/tmp/c";
    screen.Add(row);

    EXPECT_EQ(3u, screen.Rows().size());
}

TEST(LiveScreenTest, WhatIsNoVerdictAndWhatIsBadIsNeverFolded) {
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    for (int i = 0; i < 2; ++i) {
        screen.Add(Row("/bin/doubtful", 59));
        screen.Add(Row("/bin/bad", 60));
        screen.Add(verdict_row::Unjudged("lost", "launch", "1 launch", "why"));
        screen.ScreenLine("a line", false);
    }

    EXPECT_EQ("/bin/bad\n1 launch\na line\n/bin/doubtful\n/bin/bad\n1 launch\na line\n",
              Subjects(screen));
}

TEST(LiveScreenTest, EachLineOfATextIsARowWithoutItsOwnTime) {
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    screen.ScreenLine("09:30:00  queue\n  captured  1\n\nlast", false);
    screen.ScreenLine("09:30:00 one blank", false);
    screen.ScreenLine("09:30:00  ", false);
    screen.ScreenLine("", false);

    EXPECT_EQ("queue\n  captured  1\n\nlast\n09:30:00 one blank\n09:30:00  \n\n", Subjects(screen));
    EXPECT_EQ(8u, screen.Rows()[0].strTime.size());
    EXPECT_EQ("", screen.Rows()[0].strVerdict);
}

TEST(LiveScreenTest, OfManyErrorsTheLastArePrintedOnceMoreAndOnlyOnce) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    ASSERT_TRUE(screen.Begin());
    for (int i = 0; i < 32; ++i) {
        screen.ScreenLine("error " + std::to_string(i), true);
        screen.ScreenLine("no error", false);
    }
    testing::internal::CaptureStderr();
    screen.End();
    screen.End();

    std::string strErrors;
    for (int i = 2; i < 32; ++i) {
        strErrors += "error " + std::to_string(i) + "\n";
    }
    EXPECT_EQ(strErrors, testing::internal::GetCapturedStderr());
}

TEST(LiveScreenTest, ASecondViewDoesNotTakeTheTerminalFromTheFirst) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    ASSERT_TRUE(screen.Begin());
    {
        LiveScreen second(output, NoNumbers(), [] {});
        EXPECT_FALSE(second.Begin());
    }
    output.Line("a line");

    EXPECT_EQ("a line\n", Subjects(screen));
    EXPECT_THAT(pty.ReadUntil("a line"), Not(HasSubstr("\033[?1049l")));
}

TEST(LiveScreenTest, AScreenThatFindsNoMemoryIsLeftOutAndTheNextIsDrawn) {
    const Pty pty;
    const OnTerminal onTerminal(pty, STDOUT_FILENO, "1");
    Console output;
    std::atomic<int> nScreens{0};
    LiveScreen screen(
        output,
        [&nScreens] {
            if (++nScreens == 1) {
                throw std::bad_alloc();
            }
            ScreenNumbers numbers;
            numbers.nPackaged = 4711;
            return numbers;
        },
        [] {});
    ASSERT_TRUE(screen.Begin());

    EXPECT_THAT(DrawnScreen(pty).AwaitText(3, "packaged"), HasSubstr(" packaged     4,711 "));
}

TEST(LiveScreenTest, ItsTitleHasTheStateOfTheMoment) {
    const Pty pty;
    const OnTerminal onTerminal(pty, STDOUT_FILENO, "1");
    Console output;
    LiveScreen screen(output, NoNumbers(), [] {});
    ASSERT_TRUE(screen.Begin());
    DrawnScreen drawn(pty);

    EXPECT_THAT(drawn.AwaitText(1, "up 0:"), HasSubstr(" tevmon-host watch               "));
    screen.State("going on");
    EXPECT_THAT(drawn.AwaitText(1, "going"), HasSubstr(" tevmon-host watch   going on   "));
    screen.State("");
    EXPECT_THAT(drawn.AwaitText(1, "watch              "), Not(HasSubstr("going on")));
}

TEST(LiveScreenTest, RatesAreThoseOfTheLastSeconds) {
    const Variable encoding("LC_ALL", "C");
    const Pty pty;
    pty.Resize(120, 24);
    const OnTerminal onTerminal(pty, STDOUT_FILENO, "1");
    Console output;
    std::atomic<bool> bMore{true};
    LiveScreen screen(
        output,
        [&bMore, nLaunches = uint64_t{0}]() mutable {
            ScreenNumbers numbers;
            numbers.nLaunches = nLaunches += bMore ? 1000000000 : 0;
            return numbers;
        },
        [] {});
    ASSERT_TRUE(screen.Begin());
    DrawnScreen drawn(pty);

    const std::string strMany = "~ files              0  0/s  ";
    EXPECT_THAT(drawn.AwaitText(2, strMany), HasSubstr(strMany));
    bMore = false;
    const std::string strNone = "  0/s     files              0  0/s  ";
    EXPECT_THAT(drawn.AwaitText(2, strNone), HasSubstr(strNone));
}

TEST(LiveScreenTest, TheFirstVariableThatIsSetSaysWhetherTheTerminalTakesUnicode) {
    const struct {
        const char* pszAll;
        const char* pszType;
        const char* pszLang;
        const char* pszTimes;
    } CASES[] = {{nullptr, nullptr, "de_DE.UTF-8",
                  "\xC3\x97"
                  "2"},
                 {nullptr, "", "C.utf8",
                  "\xC3\x97"
                  "2"},
                 {"", "C", "de_DE.UTF-8", "x2"},
                 {"POSIX", "de_DE.UTF-8", nullptr, "x2"},
                 {nullptr, nullptr, nullptr, "x2"}};
    for (const auto& each : CASES) {
        const Variable all("LC_ALL", each.pszAll);
        const Variable type("LC_CTYPE", each.pszType);
        const Variable lang("LANG", each.pszLang);
        const Pty pty;
        const OnTerminal onTerminal(pty, STDOUT_FILENO, "1");
        Console output;
        LiveScreen screen(output, NoNumbers(), [] {});
        screen.Add(Row("/bin/a", 10));
        screen.Add(Row("/bin/a", 10));
        ASSERT_TRUE(screen.Begin());

        EXPECT_THAT(DrawnScreen(pty).AwaitText(7, "/bin/a"),
                    HasSubstr(std::string("  launch         ") + each.pszTimes + "  /bin/a "));
    }
}
