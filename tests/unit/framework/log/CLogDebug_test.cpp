#include "framework/log/CLogDebug.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "framework/digest/DigestPair.h"

using testing::HasSubstr;

namespace {

int Log(int nLevel, const char* pszSource, const char* pszFunction, int nLine,
        const char* pszFormat, ...) __attribute__((format(printf, 5, 6)));

int Log(int nLevel, const char* pszSource, const char* pszFunction, int nLine,
        const char* pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    const int nResult =
        CLogDebug::Instance()->LogPrintV(nLevel, pszSource, pszFunction, nLine, pszFormat, args);
    va_end(args);
    return nResult;
}

// Puts a file of its own, or the given descriptor, behind standard error while it lives; -1 closes
// standard error.
class CStderrSwap {
public:
    CStderrSwap() : CStderrSwap(memfd_create("stderr", MFD_CLOEXEC)) { m_bOwn = true; }
    explicit CStderrSwap(int nFd) : m_nFd(nFd), m_nOld(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
        if (nFd < 0) {
            close(STDERR_FILENO);
        } else {
            dup2(nFd, STDERR_FILENO);
        }
    }
    ~CStderrSwap() {
        dup2(m_nOld, STDERR_FILENO);
        close(m_nOld);
        if (m_bOwn) {
            close(m_nFd);
        }
    }

    CStderrSwap(const CStderrSwap&) = delete;
    CStderrSwap& operator=(const CStderrSwap&) = delete;

    std::string Text() const {
        std::string strText(static_cast<size_t>(lseek(m_nFd, 0, SEEK_END)), '\0');
        EXPECT_EQ(static_cast<ssize_t>(strText.size()),
                  pread(m_nFd, strText.data(), strText.size(), 0));
        return strText;
    }

private:
    int m_nFd;
    int m_nOld;
    bool m_bOwn = false;
};

// The line without its time, whose shape is checked.
std::string AfterTime(const std::string& strText) {
    const std::string strShape = "0000-00-00 00:00:00.000 ";
    std::string strTime = strText.substr(0, strShape.size());
    for (char& c : strTime) {
        c = c >= '0' && c <= '9' ? '0' : c;
    }
    EXPECT_EQ(strShape, strTime);
    return strText.size() < strShape.size() ? "" : strText.substr(strShape.size());
}

TEST(CLogDebugTest, ARecordIsOneLineOfTimeLevelSourceFunctionLineAndMessage) {
    const CStderrSwap capture;

    const int nResult =
        Log(4, "tevmon/core/CTevChennalMgr", "Start", 57, "start %s: %d\n", "it", 3);

    const std::string strText = capture.Text();
    EXPECT_EQ("L4 tevmon/core/CTevChennalMgr Start:57 start it: 3\n", AfterTime(strText));
    EXPECT_EQ(static_cast<int>(strText.size()), nResult);
}

struct MessageCase {
    const char* pszMessage;
    const char* pszWritten;
};

TEST(CLogDebugTest, AMessageNeverForgesALine) {
    const MessageCase cases[] = {
        {"", "\n"},
        {"\n", "\n"},
        {"one", "one\n"},
        {"one\n", "one\n"},
        {"one\n\n", "one\\x0a\n"},
        {"one\n2031-01-01 00:00:00.000 L4 x y:1 two\n",
         "one\\x0a2031-01-01 00:00:00.000 L4 x y:1 two\n"},
        {"\r\x1b[31m\t\x7f\x01\x1f", "\\x0d\\x1b[31m\\x09\\x7f\\x01\\x1f\n"},
        {"100%s%n \\n", "100%s%n \\n\n"},
        {"发送消息失败 \xff", "发送消息失败 \xff\n"},
    };
    for (const MessageCase& one : cases) {
        const CStderrSwap capture;

        Log(4, "s", "f", 1, "%s", one.pszMessage);

        EXPECT_EQ(std::string("L4 s f:1 ") + one.pszWritten, AfterTime(capture.Text()));
    }
}

TEST(CLogDebugTest, SourceAndFunctionForgeNoLineEither) {
    const CStderrSwap capture;

    Log(2, "a\nb", "f\r", -1, "m");

    EXPECT_EQ("L2 a\\x0ab f\\x0d:-1 m\n", AfterTime(capture.Text()));
}

TEST(CLogDebugTest, ANulInAMessageStandsEscaped) {
    const CStderrSwap capture;

    Log(4, "s", "f", 1, "a%cb", 0);

    EXPECT_EQ("L4 s f:1 a\\x00b\n", AfterTime(capture.Text()));
}

TEST(CLogDebugTest, MissingTextsKeepTheirPlaces) {
    const CStderrSwap capture;
    const char* const pszNone = nullptr;

    Log(4, pszNone, pszNone, 1, "m");
    Log(4, "", "", 1, "m");

    const std::string strText = capture.Text();
    EXPECT_THAT(strText, ::testing::EndsWith("L4 - -:1 m\n"));
    EXPECT_EQ("L4 - -:1 m\n", AfterTime(strText.substr(strText.size() / 2)));
}

// What a broken processor would do.
void WrongDigests(utils::DigestState& state, const uint8_t* /*pBlocks*/, size_t nBlocks) {
    state.md5[0] += static_cast<uint32_t>(nBlocks);
}

TEST(CLogDebugTest, DigestsThatFailTheirCheckAreLogged) {
    const CStderrSwap capture;

    const utils::DigestPath eChosen =
        utils::ChooseDigestPath({nullptr, WrongDigests, nullptr, nullptr});

    EXPECT_EQ(utils::DIGEST_PATH_LIBRARY, eChosen);
    const std::string strText = AfterTime(capture.Text());
    EXPECT_EQ(0u, strText.find("L4 framework/digest/DigestPair ChooseDigestPath:")) << strText;
    EXPECT_THAT(strText,
                HasSubstr(" [DigestPair] the digests of path [portable] are wrong here, OpenSSL's "
                          "are in use\n"));
}

TEST(CLogDebugTest, AMegabyteIsWrittenWhole) {
    const CStderrSwap capture;
    const std::string strLong(1048576, 'x');

    const int nResult = Log(4, "s", "f", 1, "%s", strLong.c_str());

    EXPECT_EQ("L4 s f:1 " + strLong + "\n", AfterTime(capture.Text()));
    EXPECT_LT(1048576, nResult);
}

TEST(CLogDebugTest, ALineIsLostAndCountedWhenStandardErrorIsClosed) {
    const uint64_t nBefore = CLogDebug::Instance()->DroppedLines();
    int nResult = -1;
    {
        const CStderrSwap closed(-1);
        nResult = Log(4, "s", "f", 1, "m");
    }

    EXPECT_EQ(0, nResult);
    EXPECT_EQ(nBefore + 1, CLogDebug::Instance()->DroppedLines());
}

TEST(CLogDebugTest, ALineIsLostAndCountedWhenThePipesReaderIsGone) {
    const uint64_t nBefore = CLogDebug::Instance()->DroppedLines();
    int pipe[2] = {};
    ASSERT_EQ(0, pipe2(pipe, O_CLOEXEC));
    close(pipe[0]);
    int nResult = -1;
    {
        const CStderrSwap broken(pipe[1]);
        nResult = Log(4, "s", "f", 1, "m");
    }
    close(pipe[1]);

    EXPECT_EQ(0, nResult);
    EXPECT_EQ(nBefore + 1, CLogDebug::Instance()->DroppedLines());
}

TEST(CLogDebugTest, ALineIsLostAndCountedWhenThePipeIsFull) {
    const uint64_t nBefore = CLogDebug::Instance()->DroppedLines();
    int pipe[2] = {};
    ASSERT_EQ(0, pipe2(pipe, O_CLOEXEC));
    const std::string strFill(static_cast<size_t>(fcntl(pipe[1], F_GETPIPE_SZ)), 'x');
    ASSERT_EQ(static_cast<ssize_t>(strFill.size()), write(pipe[1], strFill.data(), strFill.size()));
    int nResult = -1;
    {
        const CStderrSwap full(pipe[1]);
        nResult = Log(4, "s", "f", 1, "m");
    }
    close(pipe[0]);
    close(pipe[1]);

    EXPECT_EQ(0, nResult);
    EXPECT_EQ(nBefore + 1, CLogDebug::Instance()->DroppedLines());
}

TEST(CLogDebugTest, LinesOfSeveralThreadsStayWhole) {
    const CStderrSwap capture;
    std::vector<std::thread> threads;

    for (int nThread = 0; nThread < 4; ++nThread) {
        threads.emplace_back([] {
            for (int i = 0; i < 100; ++i) {
                Log(4, "s", "f", 1, "%s", "abcdefghijklmnopqrstuvwxyz\n");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    std::string strText = capture.Text();
    int nLines = 0;
    for (size_t nEnd = strText.find('\n'); nEnd != std::string::npos; nEnd = strText.find('\n')) {
        EXPECT_EQ("L4 s f:1 abcdefghijklmnopqrstuvwxyz", AfterTime(strText.substr(0, nEnd)));
        strText.erase(0, nEnd + 1);
        ++nLines;
    }
    EXPECT_EQ(400, nLines);
    EXPECT_EQ("", strText);
}

TEST(CLogDebugTest, RecordsAtTheLevelAndAboveAreWritten) {
    CLogDebug* pLog = CLogDebug::Instance();
    pLog->SetLevel(2);

    EXPECT_FALSE(pLog->CheckLogLevel(1, 1));
    EXPECT_TRUE(pLog->CheckLogLevel(2, 1));
    EXPECT_TRUE(pLog->CheckLogLevel(4, 1));
    EXPECT_TRUE(pLog->CheckLogLevel(4, -7));
    pLog->SetLevel(4);
    EXPECT_FALSE(pLog->CheckLogLevel(2, 1));
}

// The lowest level that is on, as an exit code.
[[noreturn]] void ExitWithLevel() {
    int nLevel = 0;
    while (nLevel < 9 && !CLogDebug::Instance()->CheckLogLevel(nLevel, 1)) {
        ++nLevel;
    }
    _exit(nLevel);
}

TEST(CLogDebugTest, TheEnvironmentGivesTheFirstLevel) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";  // a fresh process each time
    const struct {
        const char* pszValue;
        int nLevel;
    } cases[] = {{"0", 0}, {"1", 1},  {"2", 2},  {"4", 4},           {"5", 5},
                 {"", 4},  {"L2", 4}, {"2x", 4}, {"99999999999", 4}, {"-1", 0}};

    for (const auto& one : cases) {
        setenv("HOSTFRAMEWORK_LOG_LEVEL", one.pszValue, 1);
        EXPECT_EXIT(ExitWithLevel(), ::testing::ExitedWithCode(one.nLevel), "") << one.pszValue;
    }
    unsetenv("HOSTFRAMEWORK_LOG_LEVEL");
    EXPECT_EXIT(ExitWithLevel(), ::testing::ExitedWithCode(4), "");
}

TEST(CLogDebugTest, TheProcessMayLogWhileItExits) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";

    EXPECT_EXIT(
        {
            atexit([] { Log(4, "s", "f", 1, "at exit"); });
            CLogDebug::Instance();
            exit(0);
        },
        ::testing::ExitedWithCode(0), "L4 s f:1 at exit");
}

class CRecordingSink : public ILogSink {
public:
    int OnLog(const LogRecord& record, va_list args) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_nCalls;
        m_record = record;
        m_strSource = record.pszSource;
        m_strFunction = record.pszFunction;
        m_strFormat = record.pszFormat;
        m_strMessage = CLogDebug::MessageOf(record, args);
        return 77;
    }

    std::mutex m_mutex;
    int m_nCalls = 0;
    LogRecord m_record = {};
    std::string m_strSource;
    std::string m_strFunction;
    std::string m_strFormat;
    std::string m_strMessage;
};

class CSinkGuard {
public:
    explicit CSinkGuard(ILogSink* pSink) { CLogDebug::Instance()->SetSink(pSink); }
    ~CSinkGuard() { CLogDebug::Instance()->SetSink(nullptr); }

    CSinkGuard(const CSinkGuard&) = delete;
    CSinkGuard& operator=(const CSinkGuard&) = delete;
};

TEST(CLogDebugTest, ASinkGetsThePartsUnformattedAndItsResultIsReturned) {
    CRecordingSink sink;
    const CStderrSwap capture;
    const CSinkGuard guard(&sink);

    const int nResult = Log(2, "tevmon/core/X", "run", 9, "a %s\nb %d\n", "\n", 5);

    EXPECT_EQ(77, nResult);
    EXPECT_EQ(2, sink.m_record.nLevel);
    EXPECT_EQ(0, sink.m_record.nLogType);
    EXPECT_EQ("tevmon/core/X", sink.m_strSource);
    EXPECT_EQ("run", sink.m_strFunction);
    EXPECT_EQ(9, sink.m_record.nLine);
    EXPECT_EQ("a %s\nb %d\n", sink.m_strFormat);
    EXPECT_EQ("a \n\nb 5\n", sink.m_strMessage);
    EXPECT_EQ("", capture.Text());
}

TEST(CLogDebugTest, ASinkNeverSeesANullText) {
    CRecordingSink sink;
    const CSinkGuard guard(&sink);
    const char* const pszNone = nullptr;

    Log(2, pszNone, pszNone, 9, "m");

    EXPECT_EQ(1, sink.m_nCalls);
    EXPECT_EQ("", sink.m_strSource + sink.m_strFunction);
}

class CErrnoSink : public ILogSink {
public:
    int OnLog(const LogRecord&, va_list) override {
        errno = EIO;
        return 1;
    }
};

TEST(CLogDebugTest, ErrnoIsKept) {
    CErrnoSink sink;
    const CSinkGuard guard(&sink);
    errno = ENOENT;

    Log(4, "s", "f", 1, "m");

    EXPECT_EQ(ENOENT, errno);
}

class CThrowingSink : public ILogSink {
public:
    int OnLog(const LogRecord&, va_list) override { throw std::runtime_error("sink"); }
};

TEST(CLogDebugTest, ASinkThatThrowsCountsAsZeroAndCanStillBeReplaced) {
    CThrowingSink sink;
    const CSinkGuard guard(&sink);

    EXPECT_EQ(0, Log(4, "s", "f", 1, "m"));

    CLogDebug::Instance()->SetSink(nullptr);
    CRecordingSink next;
    const CSinkGuard nextGuard(&next);
    EXPECT_EQ(77, Log(4, "s", "f", 1, "m"));
}

// Its first call lasts until LetEnd; the others return at once.
class CSlowSink : public ILogSink {
public:
    int OnLog(const LogRecord&, va_list) override {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_bEntered) {
            m_bEntered = true;
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return m_bMayEnd; });
            m_bEnded = true;
        }
        return 1;
    }
    void WaitForEntry() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_bEntered; });
    }
    void LetEnd() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bMayEnd = true;
        m_changed.notify_all();
    }
    bool HasEnded() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_bEnded;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bEntered = false;
    bool m_bMayEnd = false;
    bool m_bEnded = false;
};

TEST(CLogDebugTest, SetSinkReturnsAfterTheCallsIntoTheOldSinkAndHoldsUpNoNewOnes) {
    CSlowSink slow;
    CRecordingSink next;
    const CSinkGuard guard(&slow);
    std::thread logger([] { Log(4, "s", "f", 1, "slow"); });
    slow.WaitForEntry();
    std::atomic<bool> bReturnedEarly{false};

    std::thread setter([&] {
        CLogDebug::Instance()->SetSink(&next);
        bReturnedEarly = !slow.HasEnded();
    });
    // The next sink gets records although the old one is still at its first.
    while (Log(4, "s", "f", 1, "m") != 77) {
    }
    EXPECT_FALSE(slow.HasEnded());
    slow.LetEnd();
    setter.join();
    logger.join();

    EXPECT_FALSE(bReturnedEarly);
}

TEST(CLogDebugTest, SinksComeAndGoWhileThreadsLog) {
    const CStderrSwap capture;
    std::atomic<bool> bStop{false};
    std::atomic<int> nLogged{0};
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < 2; ++nThread) {
        threads.emplace_back([&] {
            while (!bStop) {
                Log(4, "s", "f", 1, "m");
                ++nLogged;
            }
        });
    }

    int nInSinks = 0;
    while (nInSinks < 100) {
        auto pSink = std::make_unique<CRecordingSink>();
        CLogDebug::Instance()->SetSink(pSink.get());
        Log(4, "s", "f", 1, "m");
        CLogDebug::Instance()->SetSink(nullptr);
        nInSinks += pSink->m_nCalls > 1 ? 1 : 0;  // more than this thread's own
    }
    bStop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_GE(nLogged, nInSinks);
}

}  // namespace
