// The channel while the process ends and its analysers are gone.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/TestDir.h"
#include "tevmon/core/CTevChennalMgr.h"
#include "tevmon/core/CTevFsMonitor.h"
#include "tevmon/core/CTevPsMonitor.h"

namespace {

class ExitChannel : public CTevChennalMgr {
public:
    ExitChannel() = default;
    ~ExitChannel() override { Exit(); }

    using CTevChennalMgr::DisathMsg;
};

ExitChannel* s_pChannel = nullptr;

// Exit code 0 when neither message is accepted.
void DispatchAtExit() {
    const bool bLaunch = s_pChannel->DisathMsg({1, 1, R"({"param":[]})", MID_PROCESS});
    const bool bFile = s_pChannel->DisathMsg({2, 1, R"({"param":[]})", MID_FILE});
    _exit(bLaunch || bFile ? 1 : 0);
}

}  // namespace

TEST(CTevChennalMgrExitTest, AMessageWhoseAnalyserIsGoneIsNotAcceptedAndSoIsKept) {
    // In a process of its own: what is registered at exit first runs last.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const TestDir dir;
    ExitChannel channel;
    s_pChannel = &channel;
    const auto work = [] {
        (void)std::atexit(&DispatchAtExit);
        (void)CTevPsMonitor::Instance();
        (void)CTevFsMonitor::Instance();
        std::exit(2);
    };

    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}
