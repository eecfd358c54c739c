// The built module under a host that does nothing but deliver and count.
#ifndef TESTS_STRESS_MODULE_H
#define TESTS_STRESS_MODULE_H

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <string>

#include "framework/abi/PluginOperationTable.h"
#include "framework/base/CThread.h"
#include "tests/support/SilentRouter.h"

constexpr int64_t TYPE_EVENT = 20002;
constexpr int64_t TYPE_VERDICT = 20003;

// Counts what is posted and delivers to the one receiver. Threads: any.
class CountingRouter : public SilentRouter {
public:
    std::atomic<long> nPosts{0};

    void Deliver(int64_t nMsgType, const std::string& strBody) {
        IMRReceiveComplete* pReceiver = m_pReceiver;
        const Guid sender = {};
        ASSERT_NE(nullptr, pReceiver);
        (void)pReceiver->ReceiveCallback(&sender, nMsgType, strBody.data(),
                                         static_cast<uint32_t>(strBody.size()), nullptr, 0);
    }

    uint32_t Post(const Guid*, int64_t, const void*, uint32_t) override {
        ++nPosts;
        return 0;
    }
    uint32_t RegisterReceiver(int64_t, IMRReceiveComplete* pReceiver, int64_t) override {
        m_pReceiver = pReceiver;
        return 0;
    }

private:
    std::atomic<IMRReceiveComplete*> m_pReceiver{nullptr};
};

const char* ModuleLibrary();  // the path of the built module

// Loaded, initialised and connected; started by Start.
class Module {
public:
    explicit Module(CountingRouter& router)
        : m_pLibrary(dlopen(ModuleLibrary(), RTLD_NOW | RTLD_LOCAL)) {
        const auto pfnCreate = reinterpret_cast<CreateObjectFn>(dlsym(m_pLibrary, "CreateObject"));
        m_pTable = static_cast<PluginOperationTable*>(pfnCreate(nullptr));
        (void)m_pTable->pfnInit(nullptr);
        m_pTable->pfnSetOpt(static_cast<IMsgRouter*>(&router));
    }
    ~Module() {
        (void)m_pTable->pfnStop();
        m_pTable->pfnUninit();
        (void)dlclose(m_pLibrary);
#ifndef __SANITIZE_THREAD__  // which unloads nothing
        EXPECT_EQ(nullptr, dlopen(ModuleLibrary(), RTLD_NOW | RTLD_NOLOAD)) << "still loaded";
#endif
    }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    void Start() {
        (void)m_pTable->pfnStart();
    }
    void Stop() {
        (void)m_pTable->pfnStop();
    }

private:
    void* m_pLibrary;
    PluginOperationTable* m_pTable;
};

// The module's waits of seconds and minutes last a millisecond while one lives.
class QuickWaits {
public:
    QuickWaits() {
        CThread::SetWaitHook([](uint32_t) -> uint32_t { return 1; });
    }
    ~QuickWaits() { CThread::SetWaitHook(nullptr); }
    QuickWaits(const QuickWaits&) = delete;
    QuickWaits& operator=(const QuickWaits&) = delete;
};

inline long ResidentKilobytes() {
    long nSize = 0;
    long nResident = 0;
    std::ifstream("/proc/self/statm") >> nSize >> nResident;
    return nResident * sysconf(_SC_PAGESIZE) / 1024;
}

// Runs work in a child of fork that ends by exit() with what it returns; a child that hangs ends by
// SIGALRM. Answers the wait status.
template <class Work>
int StatusOfChild(Work work, unsigned nSeconds = 100) {
    const pid_t nChild = fork();
    if (nChild == 0) {
        (void)alarm(nSeconds);
        std::exit(work());
    }
    int nStatus = -1;
    (void)waitpid(nChild, &nStatus, 0);
    return nStatus;
}

inline std::string EventBody(const std::string& strPath, size_t nPadding = 0) {
    return R"({"param":[{"grup":"cloudquery","context":"cloudad","path":")" + strPath +
           R"(","cmd":")" + std::string(nPadding, 'x') + R"("}]})";
}

inline std::string VerdictBody(const std::string& strKey, int nLevel = 70) {
    return R"({"msg_type":"cloudqr","param":{"func":"cloudad","context":")" + strKey +
           R"(","result":")" + std::to_string(nLevel) + R"("}})";
}

#endif
