#include "host/process/ShutdownSignal.h"

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <csignal>

using std::chrono::milliseconds;
using std::chrono::minutes;

namespace {

// Signals are the process's, so each test that sends one does it in a child of its own.
void SignalThenWait(int nTimes) {
    ShutdownSignal stop;
    stop.Begin([] { (void)!write(STDERR_FILENO, "made sane", 9); });
    for (int i = 0; i < nTimes; ++i) {
        kill(getpid(), SIGTERM);
        if (!stop.WaitFor(minutes(1))) {
            _exit(1);
        }
    }
    if (nTimes > 1) {
        pause();  // the second signal ends the process
    }
    _exit(stop.IsRequested() && stop.Signal() == SIGTERM ? 42 : 2);
}

void AskForABalance() {
    ShutdownSignal stop;
    stop.Begin();
    if (stop.TakeBalanceRequest()) {
        _exit(1);
    }
    kill(getpid(), SIGUSR1);
    while (!stop.TakeBalanceRequest()) {
        stop.WaitFor(milliseconds(1));
    }
    _exit(!stop.TakeBalanceRequest() && !stop.IsRequested() ? 42 : 2);
}

void EndWithoutSignal() {
    ShutdownSignal stop;
    stop.Begin();
    stop.End();
    stop.End();
    _exit(stop.IsRequested() ? 1 : 42);
}

void WriteToAPipeWithoutReader() {
    ShutdownSignal stop;
    stop.Begin();
    int fds[2];
    if (pipe(fds) != 0) {
        _exit(1);
    }
    close(fds[0]);
    _exit(write(fds[1], "x", 1) < 0 ? 42 : 2);
}

}  // namespace

TEST(ShutdownSignalDeathTest, TheFirstSignalAsksForTheStop) {
    EXPECT_EXIT(SignalThenWait(1), testing::ExitedWithCode(42), "^$");
}

TEST(ShutdownSignalDeathTest, TheSecondSignalEndsTheProcessAfterTheCallThatWasAskedFor) {
    EXPECT_EXIT(SignalThenWait(2), testing::ExitedWithCode(128 + SIGTERM), "^made sane$");
}

TEST(ShutdownSignalDeathTest, SigUsr1AsksForOneBalanceAndStopsNothing) {
    EXPECT_EXIT(AskForABalance(), testing::ExitedWithCode(42), "");
}

TEST(ShutdownSignalDeathTest, ItEndsWithoutASignal) {
    EXPECT_EXIT(EndWithoutSignal(), testing::ExitedWithCode(42), "");
}

TEST(ShutdownSignalDeathTest, AReaderThatLeftIsAnErrorAndNoDeath) {
    EXPECT_EXIT(WriteToAPipeWithoutReader(), testing::ExitedWithCode(42), "");
}

TEST(ShutdownSignalTest, RequestStopsWaitsAtOnce) {
    ShutdownSignal stop;
    EXPECT_FALSE(stop.WaitFor(milliseconds(1)));

    stop.Request();

    EXPECT_TRUE(stop.WaitFor(minutes(10)));
    EXPECT_TRUE(stop.IsRequested());
    EXPECT_EQ(0, stop.Signal());
}
