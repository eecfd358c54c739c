#include "host/run/RunControl.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace {

// Signals are the process's, so the test that sends one does it in a child of its own.
void EndBySignal() {
    Console output;
    RunControl control(output);
    control.Begin();
    if (control.MustEnd()) {
        _exit(1);
    }
    kill(getpid(), SIGINT);
    while (!control.MustEnd()) {
        control.WaitFor(std::chrono::minutes(1));
    }
    _exit(control.Signal() == SIGINT ? 42 : 2);
}

}  // namespace

TEST(RunControlTest, ARunWithoutALimitGoesOn) {
    Console output;
    const RunControl control(output);
    EXPECT_FALSE(control.MustEnd());
    EXPECT_FALSE(control.HasLimit());
    EXPECT_EQ(0, control.Signal());
}

TEST(RunControlTest, TheLimitEndsTheRunAndALaterOneReplacesIt) {
    Console output;
    RunControl control(output);
    control.EndAfter(0);
    EXPECT_TRUE(control.HasLimit());
    EXPECT_TRUE(control.MustEnd());
    control.EndAfter(3600);
    EXPECT_FALSE(control.MustEnd());
}

TEST(RunControlTest, StandardOutputThatIsOfNoUseEndsTheRun) {
    Console output;
    const RunControl control(output);
    output.Break(EIO);
    EXPECT_TRUE(control.MustEnd());
}

TEST(RunControlDeathTest, ASignalEndsTheRun) {
    EXPECT_EXIT(EndBySignal(), testing::ExitedWithCode(42), "");
}
