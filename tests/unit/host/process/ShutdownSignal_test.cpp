#include "host/process/ShutdownSignal.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/FileText.h"

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

[[noreturn]] void StopBy(int nSignal) {
    ShutdownSignal stop;
    stop.Begin();
    kill(getpid(), nSignal);
    _exit(stop.WaitFor(minutes(1)) && stop.Signal() == nSignal ? 42 : 2);
}

[[noreturn]] void EndBy(int nFirst, int nSecond) {
    ShutdownSignal stop;
    stop.Begin();
    kill(getpid(), nFirst);
    if (stop.WaitFor(minutes(1))) {
        kill(getpid(), nSecond);
        pause();
    }
    _exit(1);
}

[[noreturn]] void RequestThenSignal() {
    ShutdownSignal stop;
    stop.Begin();
    stop.Request();
    kill(getpid(), SIGTERM);
    while (stop.Signal() == 0) {
        stop.TakeBalanceRequest();
    }
    _exit(stop.Signal() == SIGTERM ? 42 : 2);
}

[[noreturn]] void SignalAfterTheEnd() {
    sigset_t mine;
    sigemptyset(&mine);
    sigaddset(&mine, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &mine, nullptr);
    ShutdownSignal stop;
    stop.Begin();
    stop.End();
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2}) {
        kill(getpid(), nSignal);
    }
    sigset_t pending;
    sigpending(&pending);
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2}) {
        if (sigismember(&pending, nSignal) != 1) {
            _exit(nSignal);
        }
    }
    _exit(stop.IsRequested() || stop.TakeBalanceRequest() ? 2 : 42);
}

[[noreturn]] void GrowAFileTooLong() {
    ShutdownSignal stop;
    stop.Begin();
    const rlimit limit = {1, 1};
    const int nFd = memfd_create("file", MFD_CLOEXEC);
    if (nFd < 0 || setrlimit(RLIMIT_FSIZE, &limit) != 0 || write(nFd, "x", 1) != 1) {
        _exit(1);
    }
    _exit(write(nFd, "y", 1) < 0 && errno == EFBIG ? 42 : 2);
}

// The line of the thread's status with its effective capabilities.
std::string CapabilitiesOfThread(const std::string& strName) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (FileText((task.path() / "comm").string()) == strName + "\n") {
            const std::string strStatus = FileText((task.path() / "status").string());
            const size_t nAt = strStatus.find("CapEff:");
            return strStatus.substr(nAt, strStatus.find('\n', nAt) - nAt);
        }
    }
    return "no such thread";
}

[[noreturn]] void LookAtTheThread() {
    ShutdownSignal stop;
    stop.Begin();
    kill(getpid(), SIGUSR1);  // once it is taken the thread has come to its work
    while (!stop.TakeBalanceRequest()) {
        stop.WaitFor(milliseconds(1));
    }
    _exit(CapabilitiesOfThread("host_signals") == "CapEff:\t0000000000000000" ? 42 : 2);
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

TEST(ShutdownSignalDeathTest, EachOfThreeSignalsAsksForTheStopUnderItsNumber) {
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP}) {
        EXPECT_EXIT(StopBy(nSignal), testing::ExitedWithCode(42), "^$") << nSignal;
    }
}

TEST(ShutdownSignalDeathTest, TheExitCodeIsTheSecondSignalsAndACallBeforeItIsNoDuty) {
    EXPECT_EXIT(EndBy(SIGTERM, SIGINT), testing::ExitedWithCode(130), "^$");
    EXPECT_EXIT(EndBy(SIGINT, SIGHUP), testing::ExitedWithCode(129), "^$");
}

TEST(ShutdownSignalDeathTest, AfterARequestTheFirstSignalEndsNothing) {
    EXPECT_EXIT(RequestThenSignal(), testing::ExitedWithCode(42), "^$");
}

TEST(ShutdownSignalDeathTest, AfterTheEndTheSignalsStayBlockedAndSoDoThoseOfTheCaller) {
    EXPECT_EXIT(SignalAfterTheEnd(), testing::ExitedWithCode(42), "^$");
}

TEST(ShutdownSignalDeathTest, AFileThatGrewTooLongIsAnErrorAndNoDeath) {
    EXPECT_EXIT(GrowAFileTooLong(), testing::ExitedWithCode(42), "^$");
}

TEST(ShutdownSignalDeathTest, TheThreadThatTakesSignalsHasNoPrivilege) {
    EXPECT_EXIT(LookAtTheThread(), testing::ExitedWithCode(42), "^$");
}

TEST(ShutdownSignalTest, ARequestFromAnotherThreadEndsAWait) {
    ShutdownSignal stop;
    std::thread other([&stop] { stop.Request(); });

    EXPECT_TRUE(stop.WaitFor(minutes(10)));

    other.join();
    EXPECT_FALSE(stop.TakeBalanceRequest());
}
