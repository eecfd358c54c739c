// The plug-in object while the process exits and a thread of the host is still inside.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "framework/log/CLogDebug.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/support/Event.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/TestDir.h"
#include "tevmon/core/CTevCallGate.h"
#include "tevmon/core/CTevMonPlugin.h"

namespace {

// Holds a host's thread inside the module, where it says what it received.
class HoldingSink : public ILogSink {
public:
    int OnLog(const LogRecord& record, va_list) override {
        if (strcmp(record.pszFormat, "rvce <<< %s\n") == 0) {
            inside.Set();
            bLeft = bForGood ? forGood.Wait() : Eventually([] { return !CTevCallGate().IsOpen(); });
        }
        nExitLines += strstr(record.pszFormat, " exit.\n") != nullptr ? 1 : 0;
        return 1;
    }

    std::atomic<int> nExitLines{0};  // of the managers
    bool bForGood = false;           // otherwise it goes when it sees others turned away
    Event inside;
    Event forGood;
    std::atomic<bool> bLeft{false};
};

HoldingSink* s_pSink = nullptr;

// Runs last. Exit code 0 when the thread has left, and nothing of the module's is there any more.
void WasWaitedFor() {
    _exit(s_pSink->bLeft && CMsgRouterHolder::Instance() == nullptr ? 0 : 1);
}

// Exit code 0 when it has not, and all of the module's is still there for it.
void WasLeftInside() {
    _exit(!s_pSink->bLeft && CMsgRouterHolder::Instance() != nullptr ? 0 : 1);
}

// Exit code 0 when each of the two managers has written its exit line, once.
void HasWrittenItsExitLines() {
    _exit(!s_pSink->bLeft && s_pSink->nExitLines == 2 ? 0 : 1);
}

class CTevMonPluginExitTest : public testing::Test {
protected:
    // In a process of its own: what is registered at exit first runs last.
    CTevMonPluginExitTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        s_pSink = &m_sink;
        CLogDebug::Instance()->SetLevel(2);
        CLogDebug::Instance()->SetSink(&m_sink);
    }
    ~CTevMonPluginExitTest() override {
        CLogDebug::Instance()->SetSink(nullptr);
        CLogDebug::Instance()->SetLevel(4);
    }

    // Ends the process while a host's thread is inside.
    [[noreturn]] void ExitWithAThreadInside(void (*pfnLast)()) {
        (void)std::atexit(pfnLast);
        GetPluginInstance()->zkp_setopt(&m_router);
        if (m_bStart) {
            (void)GetPluginInstance()->zkp_start();
        }
        std::thread([this] { (void)m_router.Deliver(20002, "x"); }).detach();
        std::exit(m_sink.inside.Wait() ? 2 : 3);
    }

    bool m_bStart = false;
    const TestDir m_dir;
    FakeRouter m_router;
    HoldingSink m_sink;
};

}  // namespace

TEST_F(CTevMonPluginExitTest, AnExitWaitsForAHostThreadThatIsInside) {
    EXPECT_EXIT(ExitWithAThreadInside(&WasWaitedFor), testing::ExitedWithCode(0), "");
}

TEST_F(CTevMonPluginExitTest, AnExitGivesUpOnAHostThreadThatStaysInsideAndKeepsEverything) {
    m_sink.bForGood = true;

    EXPECT_EXIT(ExitWithAThreadInside(&WasLeftInside), testing::ExitedWithCode(0), "");
}

TEST_F(CTevMonPluginExitTest, AnExitThatGivesUpHasEachManagersExitLineOnce) {
    m_sink.bForGood = true;
    m_bStart = true;

    EXPECT_EXIT(ExitWithAThreadInside(&HasWrittenItsExitLines), testing::ExitedWithCode(0), "");
}
