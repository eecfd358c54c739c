// What the module's thread-owning managers have in common, for the test of each.
#ifndef TESTS_SUPPORT_MANAGERCONTRACT_H
#define TESTS_SUPPORT_MANAGERCONTRACT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "framework/base/CThread.h"

// Answers every virtual operation by its name.
template <class Manager>
class SlotNames : public Manager {
public:
    SlotNames() = default;
    ~SlotNames() override = default;

    bool start(CThread::Priority) override { return Called("start"); }
    bool stop() override { return Called("stop"); }
    void pause() override { (void)Called("pause"); }
    void recovery() override { (void)Called("recovery"); }
    bool doPauseOrQuit() override { return Called("doPauseOrQuit"); }
    void pausedWaitCallback(void*) override { (void)Called("pausedWaitCallback"); }

    // The operations that stand behind the two destructors, as a caller without the class's
    // declaration reaches them.
    std::vector<std::string> FromSlot2To8() {
        using Operation = void (*)(void*, int64_t);
        constexpr size_t FIRST = 2;
        constexpr size_t LAST = 8;
        const Operation* pTable = nullptr;
        memcpy(&pTable, static_cast<void*>(this), sizeof(pTable));
        for (size_t nSlot = FIRST; nSlot <= LAST; ++nSlot) {
            pTable[nSlot](this, 0);
        }
        return m_called;
    }

protected:
    void run() override { (void)Called("run"); }

private:
    bool Called(const char* pszName) {
        m_called.emplace_back(pszName);
        return true;
    }

    std::vector<std::string> m_called;
};

// Every order of six calls; no thread may be left after an Exit.
template <class Manager>
void StartAndExitInEveryOrder(Manager& manager) {
    for (unsigned nOrder = 0; nOrder < 64; ++nOrder) {
        for (unsigned nStep = 0; nStep < 6; ++nStep) {
            if ((nOrder >> nStep & 1u) != 0) {
                ASSERT_TRUE(manager.Start(CThread::PriorityNormal));
            } else {
                manager.Exit();
                ASSERT_FALSE(manager.isJoinable());
            }
        }
    }
    manager.Exit();
    EXPECT_FALSE(manager.isJoinable());
}

#endif
