// Many threads, many messages, a full disk, a lock of somebody else's, nobody who reads.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <iostream>
#include <set>
#include <thread>
#include <vector>

#include "framework/base/Base64Util.h"
#include "tests/stress/Module.h"
#include "tests/stress/Options.h"
#include "tests/support/Event.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/ThreadTime.h"
#include "tests/support/trace/OtherConnection.h"

namespace {

using Clock = std::chrono::steady_clock;

// How often this thread has let the processor go of its own will.
long WaitsOfThisThread() {
    rusage usage = {};
    (void)getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

struct Sent {
    long nThread;
    long nNumber;
};

constexpr long ENOUGH_STALLS = 6;
constexpr int MOST_STALLS = 200;  // on a busy machine some have no time for many recordings
constexpr long MANY = 60;     // a stall has hundreds, and thirty between its end and the next read
constexpr long BLOCK = 1000;  // messages
constexpr size_t BLOCKS_LOOKED_AT = 5;  // of which the cheapest counts: others use the machine

// One block of messages: the processor time that it took its thread, and right after it that of a
// piece of work which is always the same. Whatever else the machine does slows both.
struct Block {
    double dSeconds;
    double dReference;
};

// Measures blocks on the thread that calls it.
class BlockTimes {
public:
    explicit BlockTimes(const std::string& strFile) : m_reference(strFile) {
        (void)m_reference.Exec("pragma synchronous = off; create table t(a integer, b text)");
    }

    void Begin() { m_dBegin = ThreadSeconds(); }
    void End() {
        const double dEnd = ThreadSeconds();
        for (int i = 0; i < 100; ++i) {
            (void)m_reference.Exec("begin; insert into t values(1, 'a text'); commit");
        }
        (void)m_reference.Exec("delete from t");
        m_blocks.push_back({dEnd - m_dBegin, ThreadSeconds() - dEnd});
        Begin();
    }

    const std::vector<Block>& All() const { return m_blocks; }

    // Microseconds for each message of the cheapest block from number nFirst on, and what that is
    // of the reference.
    double CostAt(size_t nFirst, double& dRelative) const {
        double dCheapest = 1e9;
        dRelative = 1e9;
        for (size_t i = nFirst; i < nFirst + BLOCKS_LOOKED_AT; ++i) {
            dCheapest = std::min(dCheapest, m_blocks[i].dSeconds * 1e6 / BLOCK);
            dRelative = std::min(dRelative, m_blocks[i].dSeconds / m_blocks[i].dReference);
        }
        return dCheapest;
    }

private:
    OtherConnection m_reference;
    double m_dBegin = 0;
    std::vector<Block> m_blocks;
};

std::set<std::string> Kinds(const std::vector<std::string>& lines) {
    return {lines.begin(), lines.end()};
}

// False when value has stood still, as long as a hang is, without bDone.
template <class Value, class Done>
bool ComesTrueWhile(Value value, Done bDone) {
    auto changed = Clock::now();
    for (long nLast = value(); !bDone();) {
        (void)Event().WaitFor(std::chrono::milliseconds(10));
        const long nNow = value();
        if (nNow != nLast) {
            changed = Clock::now();
        } else if (Clock::now() - changed > HANGS_AFTER) {
            return false;
        }
        nLast = nNow;
    }
    return true;
}

// A block ends with each query that is posted.
class BlockRouter : public CountingRouter {
public:
    explicit BlockRouter(const std::string& strFile) : drained(strFile) {}

    uint32_t Post(const Guid*, int64_t, const void*, uint32_t) override {
        drained.End();
        ++nPosts;
        return 0;
    }

    BlockTimes drained;  // the channel thread's, until it has ended
};

bool HasRoom(int nPipe) {
    pollfd room = {nPipe, POLLOUT, 0};
    return poll(&room, 1, 0) == 1;
}

// From the path in a message of the burst.
Sent SentOf(const std::string& strBody) {
    const std::string strPath = strBody.substr(strBody.find("\"path\":\"/") + 9);
    const size_t nSecond = strPath.find('/');
    return {std::stol(strPath), std::stol(strPath.substr(nSecond + 1))};
}

// Another process that holds a lock on a database until it is let go.
class LockOfAnotherProcess {
public:
    explicit LockOfAnotherProcess(const std::string& strFile) {
        int ends[2];
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        m_nProcess = fork();
        if (m_nProcess == 0) {
            OtherConnection other(strFile);
            const char cLocked = other.LockAll() ? 'y' : 'n';
            (void)!write(ends[1], &cLocked, 1);
            (void)alarm(100);
            for (;;) {
                (void)pause();
            }
        }
        char cLocked = 'n';
        EXPECT_EQ(1, read(ends[0], &cLocked, 1));
        EXPECT_EQ('y', cLocked);
        (void)close(ends[0]);
        (void)close(ends[1]);
    }
    ~LockOfAnotherProcess() {
        (void)kill(m_nProcess, SIGKILL);
        int nStatus = 0;
        EXPECT_EQ(m_nProcess, waitpid(m_nProcess, &nStatus, 0));
        EXPECT_EQ(SIGKILL, WTERMSIG(nStatus)) << "it did not hold the lock to the end";
    }
    LockOfAnotherProcess(const LockOfAnotherProcess&) = delete;
    LockOfAnotherProcess& operator=(const LockOfAnotherProcess&) = delete;

private:
    pid_t m_nProcess = -1;
};

class LoadTest : public testing::Test {
protected:
    long Number(const char* pszFile, const char* pszQuery) {
        std::string strNumber;
        (void)Eventually([&] {  // the module may hold its lock just now
            strNumber = OtherConnection(m_dir.Database(pszFile)).Rows(pszQuery).front();
            return isdigit(strNumber.front()) != 0;
        });
        return std::stol(strNumber);
    }
    long Queued() { return Number("tevchennaldb.db", "select count(*) from msgchennal"); }
    bool Drains() {
        return ComesTrueWhile([this] { return Queued(); }, [this] { return Queued() == 0; });
    }

    std::string Integrity(const char* pszFile) {
        return OtherConnection(m_dir.Database(pszFile)).Rows("pragma integrity_check").front();
    }

    // Runs work in a child whose databases lie on a file system of 512 KiB, with the
    // module loaded.
    template <class Work>
    void OnASmallDisk(Work work) {
        if (geteuid() != 0) {
            GTEST_SKIP() << "a small file system can be mounted by root only";
        }
        const std::string strDB = m_dir.Path() + "/data/db";
        const int nStatus = StatusOfChild([&] {
            if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, "") != 0 ||
                mount("none", strDB.c_str(), "tmpfs", 0, "size=512k") != 0) {
                return 77;
            }
            m_dir.WriteFile(BALLAST, std::string(100 * 1024, 'b'));
            const Module module(m_router);
            work();
            return testing::Test::HasFailure() ? 1 : 0;
        });
        if (nStatus == 77 << 8) {
            GTEST_SKIP()
                << "no mount namespace of one's own that can be made private (as in a chroot)";
        }
        EXPECT_EQ(0, nStatus);
    }
    void MakeRoom() { (void)unlink((m_dir.Path() + "/" + BALLAST).c_str()); }

    // What 1,000 calls print.
    template <class Call>
    static std::string PrintedBy1000(Call call) {
        const StdoutCapture capture;
        for (int i = 0; i < 1000; ++i) {
            call(i);
        }
        return capture.Text();
    }

    static constexpr char BALLAST[] = "data/db/ballast";
    const TestDir m_dir;
    CountingRouter m_router;
};

}  // namespace

TEST_F(LoadTest, EightThreadsAgainstDrainVerdictsAndExpiryLeaveAnEmptyQueue) {
    const QuickWaits waits;
    const std::string strProgram = m_dir.WriteFile("program", "a program");
    std::vector<std::thread> threads;
    std::atomic<long> nDelivered{0};
    std::atomic<long> nVerdicts{0};
    std::set<std::string> printed;
    bool bAnalysed = false;
    {
        const StdoutCapture capture;
        Module module(m_router);
        m_router.Deliver(TYPE_VERDICT, VerdictBody("known"));
        // Verdicts of long ago, for the expiry scan.
        EXPECT_EQ(
            0, OtherConnection(m_dir.Database("tevcloudcacho.db"))
                   .Exec("with recursive n(i) as (select 1 union all select i + 1 from n limit "
                         "3000) insert into cachotable select null,'old' || i,70,1,1,'',5 from n"));
        module.Start();
        const auto end = Clock::now() + std::chrono::seconds(g_options.nSeconds);

        for (int nThread = 0; nThread < 8; ++nThread) {
            threads.emplace_back([&, nThread] {
                for (int i = 0; Clock::now() < end; ++i) {
                    if (nThread < 2) {
                        const bool bRepeated = i % 200 == 0;  // however slow: once
                        m_router.Deliver(TYPE_VERDICT,
                                         VerdictBody(bRepeated ? "known"
                                                               : std::to_string(nThread) + "k" +
                                                                     std::to_string(i)));
                        nVerdicts += bRepeated ? 0 : 1;
                    } else if (nDelivered - m_router.nPosts < 1000) {
                        m_router.Deliver(TYPE_EVENT, EventBody("/nowhere"));
                        m_router.Deliver(TYPE_EVENT, EventBody(strProgram));  // leads to one query
                        ++nDelivered;
                    } else {
                        (void)Event().WaitFor(std::chrono::milliseconds(1));
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        // Another connection's look at the queue would hold up its changes.
        bAnalysed = ComesTrueWhile([&] { return m_router.nPosts.load(); },
                                   [&] { return m_router.nPosts >= nDelivered; });
        printed = Kinds(capture.Lines());
    }

    EXPECT_TRUE(bAnalysed) << m_router.nPosts << " queries for " << nDelivered;
    EXPECT_EQ(0, Queued());
    // What a repeated verdict prints, and nothing else: each other line is a lost message.
    EXPECT_EQ((std::set<std::string>{"near \")\": syntax error"}), printed);
    std::cout << "threads: " << 2 * nDelivered + nVerdicts << " messages, of them " << nVerdicts
              << " verdicts; " << m_router.nPosts << " queries\n";
    EXPECT_EQ(nDelivered.load(), m_router.nPosts.load());
    EXPECT_GT(nDelivered, 100);
    EXPECT_EQ(nVerdicts + 1, Number("tevcloudcacho.db", "select count(*) from cachotable"));
    EXPECT_EQ(0,
              Number("tevcloudcacho.db", "select count(*) from cachotable where vkey like 'old%'"));
}

TEST_F(LoadTest, ALockHeldByAnotherProcessCostsFiveAttemptsAndIsPrinted) {
    Module module(m_router);
    m_router.Deliver(TYPE_EVENT, EventBody("/before"));
    std::vector<double> calls;
    long nWaits = 0;

    std::string strPrinted;
    {
        const LockOfAnotherProcess lock(m_dir.Database("tevchennaldb.db"));
        const StdoutCapture capture;
        const auto begin = Clock::now();
        for (int i = 0; i < 1000; ++i) {
            const std::string strBody = EventBody("/nowhere");
            const long nWaitsBefore = WaitsOfThisThread();
            const double dCall = ThreadSeconds();
            m_router.Deliver(TYPE_EVENT, strBody);
            calls.push_back(ThreadSeconds() - dCall);
            nWaits += WaitsOfThisThread() - nWaitsBefore;
            (void)Event().WaitFor(std::chrono::duration_cast<std::chrono::milliseconds>(
                begin + std::chrono::milliseconds(i) - Clock::now()));
        }
        strPrinted = capture.Text();
    }

    EXPECT_EQ(5000, std::count(strPrinted.begin(), strPrinted.end(), '\n'));
    EXPECT_EQ(1, Queued());
    std::sort(calls.begin(), calls.end());
    std::cout << "lock: 1000 calls, median " << calls[500] * 1e6 << " us, 99 of 100 below "
              << calls[989] * 1e6 << " us, longest_ms " << calls[999] * 1e3 << ", waited " << nWaits
              << " times\n";
    // A call that waits between its attempts does so four times; the disk may make a few wait.
    EXPECT_LT(nWaits, 50);
    m_router.Deliver(TYPE_EVENT, EventBody("/after"));
    EXPECT_EQ(2, Queued());
}

TEST_F(LoadTest, ALockOnTheCacheCostsThreeHundredAttemptsAndHoldsNoQueryBack) {
    constexpr int VERDICTS = 100;
    const QuickWaits waits;
    const std::string strProgram = m_dir.WriteFile("program", "a program");
    Module module(m_router);
    m_router.Deliver(TYPE_VERDICT, VerdictBody("before"));
    m_router.Deliver(TYPE_EVENT, EventBody(strProgram));
    std::string strPrinted;
    std::vector<double> calls;
    long nWaits = 0;
    {
        const LockOfAnotherProcess lock(m_dir.Database("tevcloudcacho.db"));
        const StdoutCapture capture;
        for (int i = 0; i < VERDICTS; ++i) {
            const std::string strBody = VerdictBody("locked" + std::to_string(i));
            const long nWaitsBefore = WaitsOfThisThread();
            const double dCall = ThreadSeconds();
            m_router.Deliver(TYPE_VERDICT, strBody);
            calls.push_back(ThreadSeconds() - dCall);
            nWaits += WaitsOfThisThread() - nWaitsBefore;
        }
        strPrinted = capture.Text();

        module.Start();
        EXPECT_TRUE(Eventually([&] { return m_router.nPosts == 1; }));
        EXPECT_TRUE(Drains());
        module.Stop();
    }

    // For each answer its key was looked up, and then added.
    EXPECT_EQ(2 * 300 * VERDICTS, std::count(strPrinted.begin(), strPrinted.end(), '\n'));
    EXPECT_EQ(1, Number("tevcloudcacho.db", "select count(*) from cachotable"));
    std::sort(calls.begin(), calls.end());
    std::cout << "cache lock: " << VERDICTS << " answers, median_ms " << calls[VERDICTS / 2] * 1e3
              << ", longest_ms " << calls[VERDICTS - 1] * 1e3 << ", waited " << nWaits
              << " times\n";
    EXPECT_LT(nWaits, 50 * VERDICTS);  // a call that waits between its attempts: 598 times
    m_router.Deliver(TYPE_VERDICT, VerdictBody("after"));
    EXPECT_EQ(2, Number("tevcloudcacho.db", "select count(*) from cachotable"));
}

TEST_F(LoadTest, AFullDiskLosesWhatIsNotAcknowledgedAndTheQueueWorksOnWhenThereIsRoom) {
    OnASmallDisk([&] {
        const std::string strPrinted = PrintedBy1000([&](int i) {
            m_router.Deliver(TYPE_EVENT, EventBody("/nowhere/" + std::to_string(i), 1000));
        });
        const long nQueued = Queued();
        const long nErrors = std::count(strPrinted.begin(), strPrinted.end(), '\n');
        std::cout << "disk: 1000 messages, " << nQueued << " queued, " << nErrors << " printed\n";
        EXPECT_GT(nQueued, 50);
        EXPECT_EQ(1000, nQueued + nErrors);
        MakeRoom();
        m_router.Deliver(TYPE_EVENT, EventBody("/later"));
        EXPECT_EQ(nQueued + 1, Queued());
        EXPECT_EQ("ok", Integrity("tevchennaldb.db"));
    });
}

TEST_F(LoadTest, AFullDiskLosesVerdictsThatArePrintedAndTheCacheWorksOnWhenThereIsRoom) {
    OnASmallDisk([&] {
        const std::string strPrinted = PrintedBy1000([&](int i) {
            m_router.Deliver(TYPE_VERDICT, VerdictBody(std::to_string(i) + std::string(1000, 'k')));
        });
        const long nRecorded = Number("tevcloudcacho.db", "select count(*) from cachotable");
        const long nErrors = std::count(strPrinted.begin(), strPrinted.end(), '\n');
        std::cout << "cache disk: 1000 answers, " << nRecorded << " recorded, " << nErrors
                  << " printed\n";
        EXPECT_GT(nRecorded, 50);
        EXPECT_EQ(1000, nRecorded + nErrors);
        MakeRoom();
        m_router.Deliver(TYPE_VERDICT, VerdictBody("later"));
        EXPECT_EQ(nRecorded + 1, Number("tevcloudcacho.db", "select count(*) from cachotable"));
        EXPECT_EQ("ok", Integrity("tevcloudcacho.db"));
    });
}

TEST_F(LoadTest, NobodyReadsStandardOutputAndTheStoreIsFreeAllTheSame) {
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    Module module(m_router);
    m_router.Deliver(TYPE_VERDICT, VerdictBody("known"));
    const std::string strPage(4096, '-');
    ASSERT_EQ(0, fcntl(ends[1], F_SETFL, O_NONBLOCK));
    while (write(ends[1], strPage.data(), strPage.size()) > 0) {
    }
    ASSERT_EQ(0, fcntl(ends[1], F_SETFL, 0));  // full: the next write waits for a reader
    const int nStdout = dup(STDOUT_FILENO);
    (void)dup2(ends[1], STDOUT_FILENO);
    std::atomic<int> nRepeated{0};
    std::atomic<bool> bEnough{false};
    std::thread repeats([&] {
        while (!bEnough && nRepeated < MOST_STALLS) {
            std::string strRead(strPage.size(), ' ');  // room for half of the 300 lines
            EXPECT_EQ(4096, read(ends[0], strRead.data(), strRead.size()));
            m_router.Deliver(TYPE_VERDICT, VerdictBody("known"));
            ++nRepeated;
        }
    });

    long nRecorded = 0;
    long nUnmatched = 0;  // stalls beside which many recordings were made
    long nBeside = 0;     // begun and ended during the stall of this repetition
    int nStall = 0;
    for (int nRepeating = 0; nRepeating < MOST_STALLS && !bEnough; nRepeating = nRepeated) {
        nBeside = nRepeating == nStall ? nBeside : 0;
        nStall = nRepeating;
        const bool bStalled = !HasRoom(ends[1]);  // the repetition's write waits
        m_router.Deliver(TYPE_VERDICT, VerdictBody("new" + std::to_string(nRecorded++)));
        nBeside += bStalled && !HasRoom(ends[1]) && nRepeated == nRepeating ? 1 : 0;
        nUnmatched += nBeside == MANY ? 1 : 0;
        bEnough = nUnmatched >= ENOUGH_STALLS;
    }
    repeats.join();
    (void)close(ends[0]);  // and now nobody is there at all: a write would raise SIGPIPE
    m_router.Deliver(TYPE_VERDICT, VerdictBody("known"));

    (void)dup2(nStdout, STDOUT_FILENO);
    (void)close(nStdout);
    (void)close(ends[1]);
    std::cout << "output: " << nRecorded << " recordings, beside " << nUnmatched << " of "
              << nRepeated << " stalled repetitions\n";
    EXPECT_EQ(nRecorded + 1, Number("tevcloudcacho.db", "select count(*) from cachotable"));
    // Each repetition stands still for 200 ms. If it held the store's lock meanwhile, it would hold
    // up the first recording that comes.
    EXPECT_EQ(ENOUGH_STALLS, nUnmatched);
}

TEST_F(LoadTest, ABacklogCostsNoMemoryAndEachMessageTheSame) {
    const QuickWaits waits;
    BlockRouter router(m_dir.Path() + "/drain-reference.db");
    BlockTimes pushed(m_dir.Path() + "/push-reference.db");
    const long nBlocks = std::max(g_options.nBacklog / BLOCK, 12L);
    const std::string strProgram = m_dir.WriteFile("program", "a program");
    Module module(router);
    router.Deliver(TYPE_EVENT, EventBody("/nowhere"));
    const long nBefore = ResidentKilobytes();
    pushed.Begin();

    for (long nBlock = 0; nBlock < nBlocks; ++nBlock) {
        for (long i = 1; i < BLOCK; ++i) {
            router.Deliver(TYPE_EVENT, EventBody("/nowhere"));
        }
        router.Deliver(TYPE_EVENT, EventBody(strProgram));  // its query says how far the drain is
        pushed.End();
    }
    const long nPushed = ResidentKilobytes();
    const long nQueued = Queued();
    module.Start();
    EXPECT_TRUE(ComesTrueWhile([&] { return router.nPosts.load(); },
                               [&] { return router.nPosts >= nBlocks; }));
    const long nGrowth = std::max(nPushed, ResidentKilobytes()) - nBefore;
    EXPECT_TRUE(Drains());
    module.Stop();

    const size_t nLast = static_cast<size_t>(nBlocks) - BLOCKS_LOOKED_AT;
    ASSERT_EQ(static_cast<size_t>(nBlocks), router.drained.All().size());
    EXPECT_EQ(nBlocks * BLOCK + 1, nQueued);
    double first = 0;
    double last = 0;
    const double push = pushed.CostAt(1, first);  // on top of a thousand
    const double pushLast = pushed.CostAt(nLast, last);
    const double pushRatio = last / first;
    const double drain = router.drained.CostAt(1, first);
    const double drainLast = router.drained.CostAt(nLast, last);
    std::cout << "backlog: " << nQueued << ", a push " << push << " us at first and " << pushLast
              << " us at last, push_ratio " << pushRatio << ", a drain " << drain
              << " us at first and " << drainLast << " us at last, drain_ratio " << first / last
              << ", growth_kib " << nGrowth << "\n";
    EXPECT_LT(pushRatio, 3);  // by a row's number it would be a hundred
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(nGrowth, 16 * 1024);
#endif
}

TEST_F(LoadTest, ABurstOfFourThreadsLosesNothingAndKeepsEachThreadsOrder) {
    const long nEach = g_options.nBurst / 4;
    Module module(m_router);
    std::vector<std::thread> threads;
    threads.reserve(4);

    double dBegin = ProcessSeconds();
    for (int nThread = 0; nThread < 4; ++nThread) {
        threads.emplace_back([&, nThread] {
            for (long i = 0; i < nEach; ++i) {
                m_router.Deliver(
                    TYPE_EVENT,
                    EventBody("/" + std::to_string(nThread) + "/" + std::to_string(i), 4000));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const double ours = ProcessSeconds() - dBegin;

    const auto rows = OtherConnection(m_dir.Database("tevchennaldb.db"))
                          .Rows("select length(detail),detail from msgchennal order by id");
    ASSERT_EQ(static_cast<size_t>(4 * nEach), rows.size());
    OtherConnection bare(m_dir.Database("bare.db"));
    ASSERT_EQ(0, bare.Exec("pragma synchronous = off; create table msgchennal( id INTEGER PRIMARY "
                           "KEY autoincrement , createtime TEXT, detail TEXT, mid INTEGER)"));
    long next[4] = {};
    dBegin = ProcessSeconds();
    for (const std::string& strRow : rows) {
        const std::string strDetail = strRow.substr(strRow.find('|') + 1);
        const Sent sent = SentOf(Base64Util::Base64Decode(strDetail));
        EXPECT_EQ(next[sent.nThread & 3]++, sent.nNumber);
        EXPECT_EQ(0, bare.Exec("begin transaction"));
        EXPECT_EQ(0, bare.Exec("insert into msgchennal(createtime,detail,mid) values('1','" +
                               strDetail + "',5)"));
        EXPECT_EQ(0, bare.Exec("commit transaction"));
    }
    const double theirs = ProcessSeconds() - dBegin;
    std::cout << "burst: " << rows.size() << " in " << ours << " s of processor time, bare SQLite "
              << theirs << " s, speed_ratio " << theirs / ours << "\n";
    EXPECT_LT(ours, theirs * 10);
}
