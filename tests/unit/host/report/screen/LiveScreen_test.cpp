#include "host/report/screen/LiveScreen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>

#include "tests/support/Event.h"
#include "tests/support/Pty.h"

using testing::HasSubstr;

namespace {

VerdictRow Row(const std::string& strSubject, int nLevel) {
    return verdict_row::Judged("launch", strSubject, "/bin/sh", {nLevel, "none", ""}, true);
}

// File descriptor 1 is another one while this lives.
class OnDescriptor {
public:
    explicit OnDescriptor(int nFd) : m_nOld(dup(STDOUT_FILENO)) {
        setenv("TERM", "xterm", 1);
        fflush(stdout);
        (void)dup2(nFd, STDOUT_FILENO);
    }
    ~OnDescriptor() {
        (void)dup2(m_nOld, STDOUT_FILENO);
        close(m_nOld);
    }

    OnDescriptor(const OnDescriptor&) = delete;
    OnDescriptor& operator=(const OnDescriptor&) = delete;

private:
    const int m_nOld;
};

}  // namespace

TEST(LiveScreenTest, TheSameAgainIsFoldedIntoItsLineWhichIsTheLastThen) {
    Console output;
    LiveScreen view(
        output, [] { return ViewNumbers(); }, [] {});
    view.Add(Row("/bin/a", 10));
    view.Add(Row("/bin/b", 10));
    view.Add(Row("/bin/a", 10));

    const std::vector<VerdictRow> rows = view.Rows();
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ("/bin/b", rows[0].strSubject);
    EXPECT_EQ("/bin/a", rows[1].strSubject);
    EXPECT_EQ(2u, rows[1].nTimes);
}

TEST(LiveScreenTest, ABlockedProgramHasALineEveryTime) {
    Console output;
    LiveScreen view(
        output, [] { return ViewNumbers(); }, [] {});
    view.Add(Row("/bin/bad", 70));
    view.Add(Row("/bin/bad", 70));

    EXPECT_EQ(2u, view.Rows().size());
}

TEST(LiveScreenTest, WhatIsHeldIsBounded) {
    Console output;
    LiveScreen view(
        output, [] { return ViewNumbers(); }, [] {});
    for (size_t i = 0; i < 2 * LiveScreen::MOST_ROWS; ++i) {
        view.Add(Row(std::to_string(i), 40));
    }
    view.Add(Row("0", 40));

    EXPECT_EQ(300u, view.Rows().size());
    EXPECT_EQ(1u, view.Rows().back().nTimes);
}

TEST(LiveScreenTest, WithoutATerminalNothingChanges) {
    int fds[2] = {};
    ASSERT_EQ(0, pipe(fds));
    bool bBegun = true;
    {
        const OnDescriptor onPipe(fds[1]);
        Console output;
        LiveScreen view(
            output, [] { return ViewNumbers(); }, [] {});
        bBegun = view.Begin();
        output.Line("a line");
    }
    char szLine[64] = "";
    EXPECT_EQ(7, read(fds[0], szLine, sizeof(szLine)));
    EXPECT_FALSE(bBegun);
    EXPECT_STREQ("a line\n", szLine);
    close(fds[0]);
    close(fds[1]);
}

TEST(LiveScreenTest, LinesOfTheOutputAreLinesOfTheViewAndErrorsAreToldOnceMoreAfterIt) {
    const Pty pty;
    const OnDescriptor onTerminal(pty.Terminal());
    Console output;
    LiveScreen view(
        output, [] { return ViewNumbers(); }, [] {});
    ASSERT_TRUE(view.Begin());
    view.State("watching");
    testing::internal::CaptureStderr();

    output.Line("12:00:00  a line\nand another");
    output.Error("an error");
    view.Add(Row("/bin/program", 40));
    const std::string strDrawn = pty.ReadUntil("/bin/program");
    view.End();
    output.Line("after it");

    EXPECT_THAT(strDrawn, HasSubstr("a line"));
    EXPECT_THAT(strDrawn, HasSubstr("and another"));
    EXPECT_THAT(strDrawn, HasSubstr("an error"));
    EXPECT_THAT(pty.ReadUntil("after it"), HasSubstr("\033[?1049l"));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("an error\n"));
}

TEST(LiveScreenTest, TheViewFollowsTheSizeOfTheTerminal) {
    const Pty pty;
    const OnDescriptor onTerminal(pty.Terminal());
    Console output;
    LiveScreen view(
        output, [] { return ViewNumbers(); }, [] {});
    ASSERT_TRUE(view.Begin());
    pty.ReadUntil("unexplained");
    pty.Resize(120, 30);

    EXPECT_THAT(pty.ReadUntil("OWNER"), HasSubstr("OWNER"));
}

TEST(LiveScreenTest, ATerminalThatHungUpIsToldOnce) {
    Pty pty;
    const OnDescriptor onTerminal(pty.Terminal());
    Console output;
    std::atomic<int> nVanished{0};
    Event gone;
    LiveScreen view(
        output, [] { return ViewNumbers(); },
        [&] {
            ++nVanished;
            gone.Set();
        });
    ASSERT_TRUE(view.Begin());
    pty.HangUp();
    EXPECT_TRUE(gone.WaitFor(HANGS_AFTER));
    view.End();

    EXPECT_EQ(1, nVanished);
}
