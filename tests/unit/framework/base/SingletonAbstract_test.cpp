#include "framework/base/SingletonAbstract.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

// What a dying process still says goes to standard error, where the parent reads it.
void Say(const std::string& strText) {
    ASSERT_EQ(static_cast<ssize_t>(strText.size()),
              write(STDERR_FILENO, strText.data(), strText.size()));
}

class Plain : public utils::SingletonAbstract<Plain> {
public:
    int nValue = 7;
};

std::atomic<int> g_nCountedMade{0};

class Counted : public utils::SingletonAbstract<Counted> {
    friend class utils::SingletonAbstract<Counted>;
    Counted() { ++g_nCountedMade; }
    ~Counted() = default;
};

bool g_bMayBeMade = false;

class Refusing : public utils::SingletonAbstract<Refusing> {
public:
    Refusing() {
        if (!g_bMayBeMade) {
            throw std::runtime_error("not yet");
        }
    }
};

class TooLarge : public utils::SingletonAbstract<TooLarge> {
public:
    static void* operator new(size_t, const std::nothrow_t&) noexcept { return nullptr; }
    static void operator delete(void*) {}
};

class Last : public utils::SingletonAbstract<Last> {
public:
    ~Last() { Say("last gone;"); }
};

class First : public utils::SingletonAbstract<First> {
public:
    First() { (void)Last::Instance(); }
    ~First() { Say("first gone;"); }
};

class SelfAsking : public utils::SingletonAbstract<SelfAsking> {
public:
    ~SelfAsking() { Say(Instance() == nullptr ? "null while going;" : "there while going;"); }
};

class ThreadAsking : public utils::SingletonAbstract<ThreadAsking> {
public:
    ~ThreadAsking() {
        std::thread([] { Say(Instance() == nullptr ? "null elsewhere;" : "there;"); }).join();
    }
};

bool Allow() {
    Say("hook;");
    return true;
}

bool Refuse() {
    Say("refused;");
    return false;
}

}  // namespace

TEST(SingletonAbstractTest, TheInstanceIsMadeOnFirstUseAndStays) {
    Plain* pFirst = Plain::Instance();
    ASSERT_NE(nullptr, pFirst);
    pFirst->nValue = 8;

    EXPECT_EQ(pFirst, Plain::Instance());
    EXPECT_EQ(8, Plain::Instance()->nValue);
}

TEST(SingletonAbstractTest, ThreadsThatAskAtOnceGetOneInstance) {
    std::atomic<bool> bGo{false};
    std::vector<Counted*> instances(8);
    std::vector<std::thread> threads;
    for (Counted*& pInstance : instances) {
        threads.emplace_back([&bGo, &pInstance] {
            while (!bGo) {
            }
            pInstance = Counted::Instance();
        });
    }

    bGo = true;
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(std::vector<Counted*>(8, Counted::Instance()), instances);
    EXPECT_EQ(1, g_nCountedMade);
}

TEST(SingletonAbstractTest, MemoryThatRanOutGivesNull) {
    EXPECT_EQ(nullptr, TooLarge::Instance());
}

class SingletonDeathTest : public testing::Test {
protected:
    SingletonDeathTest() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
};

TEST_F(SingletonDeathTest, AConstructorThatThrowsGivesNullAndTheNextCallerTriesAgain) {
    EXPECT_EXIT(
        {
            Say(Refusing::Instance() == nullptr ? "refused;" : "made;");
            Say(Refusing::Instance() == nullptr ? "refused;" : "made;");
            g_bMayBeMade = true;
            Say(Refusing::Instance() == nullptr ? "refused;" : "made;");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^refused;refused;made;$");
}

TEST_F(SingletonDeathTest, TheInstanceIsDestroyedAtTheEndInReverseOrderOfCreation) {
    EXPECT_EXIT(
        {
            (void)First::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^first gone;last gone;$");
}

TEST_F(SingletonDeathTest, ADestructorMayAskForItsOwnInstance) {
    EXPECT_EXIT(
        {
            (void)SelfAsking::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^null while going;$");
}

TEST_F(SingletonDeathTest, AThreadThatTheDestructorWaitsForMayAskForTheInstance) {
    EXPECT_EXIT(
        {
            (void)ThreadAsking::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^null elsewhere;$");
}

TEST_F(SingletonDeathTest, TheHookRunsOnceBeforeTheFirstSingletonGoes) {
    EXPECT_EXIT(
        {
            utils::SingletonTeardown::SetHook(&Allow);
            (void)First::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^hook;first gone;last gone;$");
}

TEST_F(SingletonDeathTest, AHookThatRefusesKeepsEverySingleton) {
    EXPECT_EXIT(
        {
            utils::SingletonTeardown::SetHook(&Refuse);
            (void)First::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^refused;$");
}

TEST_F(SingletonDeathTest, AnInstanceKeptByTheHookIsStillGivenOut) {
    EXPECT_EXIT(
        {
            // Registered before the singleton, so it runs after the refusal.
            (void)std::atexit([] { Say(First::Instance() != nullptr ? "still there;" : "gone;"); });
            utils::SingletonTeardown::SetHook(&Refuse);
            (void)First::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^refused;still there;$");
}

TEST_F(SingletonDeathTest, WithoutAHookAfterOneWasSetAllOfThemGo) {
    EXPECT_EXIT(
        {
            utils::SingletonTeardown::SetHook(&Refuse);
            utils::SingletonTeardown::SetHook(nullptr);
            (void)First::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^first gone;last gone;$");
}

TEST_F(SingletonDeathTest, AfterTheDestructionNothingIsMadeAgain) {
    EXPECT_EXIT(
        {
            (void)std::atexit(
                [] { Say(Last::Instance() == nullptr ? "none after;" : "made again;"); });
            (void)Last::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^last gone;none after;$");
}
