#include "public/pluginhelper/CTaskTimer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Event.h"
#include "tests/support/WaitsForLock.h"

namespace {

// What happened to the tasks, in order, from whichever thread.
class Journal {
public:
    void Add(const std::string& strEntry) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.push_back(strEntry);
    }
    std::vector<std::string> Entries() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_entries;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_entries;
};

class Task : public ITimerTask {
public:
    Task(Journal& journal, std::string strName) : m_journal(journal), m_strName(strName) {}
    ~Task() override { m_journal.Add("delete " + m_strName); }

    int Reserved() override {
        ADD_FAILURE() << "nothing calls this";
        return 0;
    }
    bool Init(int nArg) override {
        m_journal.Add("init " + m_strName + " " + std::to_string(nArg));
        return bInit;
    }
    void Uninit() override { m_journal.Add("uninit " + m_strName); }
    bool IsDue(int nSeconds) override {
        nDueSeconds = nSeconds;
        ++nDueCalls;
        asked.Set();
        return bDue;
    }
    void Execute() override {
        ++nExecuted;
        executed.Set();
        if (bThrow) {
            throw std::runtime_error("a task's own failure");
        }
    }
    int SetParam(int nA, int nB) override { return nA * 100 + nB; }

    bool bInit = true;
    bool bDue = false;
    bool bThrow = false;
    std::atomic<int> nDueSeconds{-1};
    std::atomic<int> nDueCalls{0};
    std::atomic<int> nExecuted{0};
    Event asked;
    Event executed;

private:
    Journal& m_journal;
    const std::string m_strName;
};

// The timer as a derived class sees it.
class Timer : public CTaskTimer {
public:
    ~Timer() override { Stop(); }
    using CTaskTimer::GetInterval;
    using CTaskTimer::GetTimerName;
};

// A timer that ticks every nInterval milliseconds and says so.
class IntervalTimer : public CTaskTimer {
public:
    explicit IntervalTimer(int nInterval) : m_nInterval(nInterval) {}
    ~IntervalTimer() override { Stop(); }

protected:
    int GetInterval() const override { return m_nInterval; }

private:
    const int m_nInterval;
};

std::atomic<uint32_t> s_nAskedWait{0};
std::atomic<int> s_nWaits{0};
Event s_waiting;

// Every wait lasts a millisecond, whatever was asked for.
uint32_t ShortWait(uint32_t nMilliseconds) {
    s_nAskedWait = nMilliseconds;
    ++s_nWaits;
    s_waiting.Set();
    return 1;
}

// Waits as long as asked for and shows that it has begun to.
uint32_t AnnouncedWait(uint32_t nMilliseconds) {
    s_nAskedWait = nMilliseconds;
    s_waiting.Set();
    return nMilliseconds;
}

class CTaskTimerTest : public testing::Test {
protected:
    CTaskTimerTest() { CThread::SetWaitHook(&ShortWait); }
    ~CTaskTimerTest() override { CThread::SetWaitHook(nullptr); }

    // A task that m_timer has taken over.
    Task* Add(const std::string& strName) {
        auto* pTask = new Task(m_journal, strName);
        EXPECT_TRUE(m_timer.AddTask(strName, pTask));
        return pTask;
    }

    Journal m_journal;
    Timer m_timer;
};

using Texts = std::vector<std::string>;

}  // namespace

TEST_F(CTaskTimerTest, HasTheDefaultNameAndInterval) {
    EXPECT_STREQ("tasktime_dafault", m_timer.GetTimerName());
    EXPECT_EQ(5000, m_timer.GetInterval());
}

TEST_F(CTaskTimerTest, WithAnEmptyMapTheThreadWakesEveryFiveSecondsAndDoesNothing) {
    EXPECT_TRUE(m_timer.Start(CThread::PriorityNormal));

    EXPECT_TRUE(Eventually([] { return s_nWaits.load() >= 3; }));
    m_timer.Stop();
    EXPECT_EQ(5000U, s_nAskedWait.load());
    EXPECT_TRUE(m_journal.Entries().empty());
}

TEST_F(CTaskTimerTest, StopDuringTheWaitEndsTheThreadWithoutRunningAnyTask) {
    CThread::SetWaitHook(&AnnouncedWait);
    Task* pTask = Add("a");
    pTask->bDue = true;
    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));
    ASSERT_TRUE(s_waiting.Wait());

    m_timer.Stop();

    EXPECT_FALSE(m_timer.isJoinable());
    EXPECT_EQ((Texts{"init a 0", "uninit a", "delete a"}), m_journal.Entries());
}

TEST_F(CTaskTimerTest, SetTaskParamWithAnUnknownNameReturnsFive) {
    Add("known");

    EXPECT_EQ(5, m_timer.SetTaskParam("unknown", 1, 2));
    EXPECT_EQ(5, m_timer.SetTaskParam("", 1, 2));
}

TEST_F(CTaskTimerTest, SetTaskParamReturnsWhatTheTaskReturns) {
    Add("known");

    EXPECT_EQ(702, m_timer.SetTaskParam("known", 7, 2));
}

TEST_F(CTaskTimerTest, ADueTaskIsExecutedAtEveryTickAndOthersAreOnlyAsked) {
    Task* pDue = Add("due");
    pDue->bDue = true;
    Task* pIdle = Add("idle");
    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));

    EXPECT_TRUE(Eventually([&] { return pDue->nExecuted.load() >= 2 && pIdle->nDueCalls >= 2; }));
    EXPECT_EQ(0, pIdle->nExecuted.load());
}

TEST_F(CTaskTimerTest, ATaskIsToldFiveElapsedSecondsPerTick) {
    Task* pTask = Add("a");
    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));

    ASSERT_TRUE(pTask->asked.Wait());
    EXPECT_EQ(5, pTask->nDueSeconds.load());
}

TEST_F(CTaskTimerTest, ElapsedSecondsAreTheIntervalDividedWithoutRemainder) {
    IntervalTimer timer(2999);
    auto* pTask = new Task(m_journal, "a");
    ASSERT_TRUE(timer.AddTask("a", pTask));
    ASSERT_TRUE(timer.Start(CThread::PriorityNormal));

    ASSERT_TRUE(pTask->asked.Wait());
    EXPECT_EQ(2, pTask->nDueSeconds.load());
    EXPECT_EQ(2999U, s_nAskedWait.load());
}

TEST_F(CTaskTimerTest, TasksAreInitialisedAndEndedInByteOrderOfTheirNames) {
    CThread::SetWaitHook(&AnnouncedWait);
    Add("b");
    Add("B");
    Add("\xc3\xa9");
    Add("a");

    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));
    m_timer.Stop();

    EXPECT_EQ((Texts{"init B 0", "init a 0", "init b 0", "init \xc3\xa9 0", "uninit B", "delete B",
                     "uninit a", "delete a", "uninit b", "delete b", "uninit \xc3\xa9",
                     "delete \xc3\xa9"}),
              m_journal.Entries());
}

TEST_F(CTaskTimerTest, ANameThatIsTakenKeepsItsTaskAndTheNewOneStaysTheCallers) {
    Task* pFirst = Add("a");
    Task second(m_journal, "second");
    second.bInit = false;

    EXPECT_FALSE(m_timer.AddTask("a", &second));

    EXPECT_EQ(102, m_timer.SetTaskParam("a", 1, 2));
    EXPECT_EQ(0, pFirst->nExecuted.load());
    EXPECT_TRUE(m_journal.Entries().empty());
}

TEST_F(CTaskTimerTest, AFailedInitDeletesTheTaskAndRemovesTheEntryBehindIt) {
    CThread::SetWaitHook(&AnnouncedWait);
    Add("a")->bInit = false;
    Add("b");
    Add("c");

    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));

    EXPECT_EQ((Texts{"init a 0", "delete a", "delete b", "init c 0"}), m_journal.Entries());
    EXPECT_EQ(5, m_timer.SetTaskParam("a", 1, 2));
    EXPECT_EQ(5, m_timer.SetTaskParam("b", 1, 2));
    EXPECT_EQ(102, m_timer.SetTaskParam("c", 1, 2));
}

TEST_F(CTaskTimerTest, AFailedInitLeavesItsNameTakenAndFreesTheOneBehindIt) {
    CThread::SetWaitHook(&AnnouncedWait);
    Add("a")->bInit = false;
    Add("b");
    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));
    m_timer.Stop();
    Task refused(m_journal, "refused");

    EXPECT_FALSE(m_timer.AddTask("a", &refused));
    Add("b");
}

TEST_F(CTaskTimerTest, AFailedInitOfTheLastTaskRemovesNothing) {
    CThread::SetWaitHook(&AnnouncedWait);
    Add("a");
    Add("z")->bInit = false;

    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));

    EXPECT_EQ((Texts{"init a 0", "init z 0", "delete z"}), m_journal.Entries());
    EXPECT_EQ(102, m_timer.SetTaskParam("a", 1, 2));
    EXPECT_EQ(5, m_timer.SetTaskParam("z", 1, 2));
}

TEST_F(CTaskTimerTest, TwoFailedInitsInARowTakeTheThirdTaskNotEachOther) {
    CThread::SetWaitHook(&AnnouncedWait);
    Add("a")->bInit = false;
    Add("b");
    Add("c")->bInit = false;
    Add("d");

    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));

    EXPECT_EQ((Texts{"init a 0", "delete a", "delete b", "init c 0", "delete c", "delete d"}),
              m_journal.Entries());
}

TEST_F(CTaskTimerTest, TheThreadPassesTheEntriesOfDeletedTasksOver) {
    Add("a")->bInit = false;
    Add("b");
    Task* pLast = Add("c");
    pLast->bDue = true;

    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));

    EXPECT_TRUE(pLast->executed.Wait());
}

TEST_F(CTaskTimerTest, AStoppedTimerHasNoTasksAndKeepsTheirNames) {
    Add("a");
    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));
    m_timer.Stop();

    Task refused(m_journal, "refused");
    EXPECT_EQ(5, m_timer.SetTaskParam("a", 1, 2));
    EXPECT_FALSE(m_timer.AddTask("a", &refused));
}

TEST_F(CTaskTimerTest, StartStopAndStartAgainDeleteEachTaskOnce) {
    Add("a");
    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));
    m_timer.Stop();
    Task* pNew = Add("b");
    pNew->bDue = true;

    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));

    EXPECT_TRUE(pNew->executed.Wait());
    m_timer.Stop();
    EXPECT_EQ((Texts{"init a 0", "uninit a", "delete a", "init b 0", "uninit b", "delete b"}),
              m_journal.Entries());
}

TEST_F(CTaskTimerTest, StopWithoutStartUninitialisesAndDeletesTheTasks) {
    Add("a");

    m_timer.Stop();
    m_timer.Stop();

    EXPECT_EQ((Texts{"uninit a", "delete a"}), m_journal.Entries());
}

TEST_F(CTaskTimerTest, AStopFromWithinATickSkipsTheTasksThatFollow) {
    // The first task lets the stop be requested while the tick holds still.
    class Stopping : public Task {
    public:
        Stopping(Journal& journal, Timer& timer) : Task(journal, "a"), m_timer(timer) {}
        bool IsDue(int) override {
            (void)static_cast<CThread&>(m_timer).stop();  // on the thread itself: only requested
            return true;
        }

    private:
        Timer& m_timer;
    };
    auto* pStopping = new Stopping(m_journal, m_timer);
    ASSERT_TRUE(m_timer.AddTask("a", pStopping));
    Task* pNext = Add("b");

    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));
    EXPECT_TRUE(Eventually([&] { return m_timer.isStoped(); }));
    (void)static_cast<CThread&>(m_timer).stop();

    EXPECT_EQ(0, pStopping->nExecuted.load());
    EXPECT_EQ(0, pNext->nDueCalls.load());
}

TEST_F(CTaskTimerTest, WhatATaskThrowsStopsNeitherItsNeighboursNorTheNextTick) {
    Task* pThrowing = Add("a");
    pThrowing->bDue = true;
    pThrowing->bThrow = true;
    Task* pNext = Add("b");
    pNext->bDue = true;

    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));

    EXPECT_TRUE(Eventually([&] { return pThrowing->nExecuted >= 2 && pNext->nExecuted >= 2; }));
}

TEST_F(CTaskTimerTest, DestructionEndsTheThreadAndDeletesTheTasks) {
    {
        IntervalTimer timer(5000);
        auto* pTask = new Task(m_journal, "a");
        ASSERT_TRUE(timer.AddTask("a", pTask));
        ASSERT_TRUE(timer.Start(CThread::PriorityNormal));
        ASSERT_TRUE(pTask->asked.Wait());
    }

    EXPECT_EQ((Texts{"init a 0", "uninit a", "delete a"}), m_journal.Entries());
}

TEST_F(CTaskTimerTest, ExecuteRunsWithTheMutexHeldThatAddTaskDoesNotTake) {
    // Executes for as long as the test wants.
    class Standing : public Task {
    public:
        using Task::Task;
        void Execute() override {
            Task::Execute();
            EXPECT_TRUE(goOn.Wait());
        }
        Event goOn;
    };
    auto* pStanding = new Standing(m_journal, "a");
    pStanding->bDue = true;
    ASSERT_TRUE(m_timer.AddTask("a", pStanding));
    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));
    ASSERT_TRUE(pStanding->executed.Wait());
    std::atomic<pid_t> nSetter{0};
    std::atomic<bool> bSet{false};

    std::thread setter([&] {
        nSetter = gettid();
        EXPECT_EQ(102, m_timer.SetTaskParam("a", 1, 2));
        bSet = true;
    });
    EXPECT_TRUE(Eventually([&] { return bSet || (nSetter != 0 && ThreadState(nSetter) == "S"); }));
    EXPECT_FALSE(bSet);
    Event added;
    std::thread adder([&] {
        Add("b");
        added.Set();
    });
    EXPECT_TRUE(added.Wait());
    EXPECT_EQ(1, pStanding->nExecuted.load());  // and still stands in it

    pStanding->goOn.Set();
    setter.join();
    adder.join();
    EXPECT_TRUE(bSet);
}

TEST_F(CTaskTimerTest, ParametersCanBeSetWhileTheTimerTicks) {
    Task* pTask = Add("a");
    pTask->bDue = true;
    ASSERT_TRUE(m_timer.Start(CThread::PriorityNormal));

    std::thread other([this] {
        for (int i = 0; i < 1000; ++i) {
            ASSERT_EQ(102, m_timer.SetTaskParam("a", 1, 2));
        }
    });
    other.join();

    EXPECT_TRUE(pTask->executed.Wait());
}
