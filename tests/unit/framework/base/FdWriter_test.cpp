#include "framework/base/FdWriter.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <termios.h>

#include <set>
#include <thread>
#include <vector>

#include "tests/support/Event.h"
#include "tests/support/TestDir.h"

namespace {

// Both ends of something that can be written at one and read at the other, closed at the end.
class Ends {
public:
    Ends() = default;
    ~Ends() {
        CloseReader();
        CloseWriter();
    }
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;

    void CloseReader() { Close(m_nReader); }
    void CloseWriter() { Close(m_nWriter); }
    int Writer() const { return m_nWriter; }

    // Everything that is there now.
    std::string Read() const {
        (void)fcntl(m_nReader, F_SETFL, fcntl(m_nReader, F_GETFL) | O_NONBLOCK);
        std::string strText;
        char buffer[65536];
        ssize_t nRead = 0;
        while ((nRead = read(m_nReader, buffer, sizeof(buffer))) > 0) {
            strText.append(buffer, static_cast<size_t>(nRead));
        }
        return strText;
    }

    // What is there once it is nLength bytes long; what a terminal is written arrives later.
    std::string ReadAsMuchAs(size_t nLength) const {
        std::string strText;
        (void)Eventually([&] {
            strText += Read();
            return strText.size() >= nLength;
        });
        return strText;
    }

    // Until every writer has closed.
    std::string ReadToEnd() const {
        std::string strText;
        char buffer[65536];
        ssize_t nRead = 0;
        while ((nRead = read(m_nReader, buffer, sizeof(buffer))) > 0) {
            strText.append(buffer, static_cast<size_t>(nRead));
        }
        return strText;
    }

    // Stuffs it until it takes nothing any more; the writer's end blocks again afterwards.
    void Fill() const {
        const int nFlags = fcntl(m_nWriter, F_GETFL);
        (void)fcntl(m_nWriter, F_SETFL, nFlags | O_NONBLOCK);
        const std::string strStuff(4096, '.');
        for (const size_t nLength : {strStuff.size(), size_t{1}}) {
            while (write(m_nWriter, strStuff.data(), nLength) > 0) {
            }
        }
        (void)fcntl(m_nWriter, F_SETFL, nFlags);
    }

protected:
    static void Close(int& nFd) {
        if (nFd >= 0) {
            close(nFd);
        }
        nFd = -1;
    }

    int m_nReader = -1;
    int m_nWriter = -1;
};

class Pipe : public Ends {
public:
    Pipe() {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) == 0) {
            m_nReader = fds[0];
            m_nWriter = fds[1];
        }
    }
    int Reader() const { return m_nReader; }
};

class SocketPair : public Ends {
public:
    SocketPair() {
        int fds[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0) {
            m_nReader = fds[0];
            m_nWriter = fds[1];
        }
    }
};

class Terminal : public Ends {
public:
    Terminal() {
        m_nReader = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        char szName[64];
        if (grantpt(m_nReader) == 0 && unlockpt(m_nReader) == 0 &&
            ptsname_r(m_nReader, szName, sizeof(szName)) == 0) {
            m_nWriter = open(szName, O_RDWR | O_NOCTTY | O_CLOEXEC);
        }
        termios modes = {};
        (void)tcgetattr(m_nWriter, &modes);
        cfmakeraw(&modes);
        (void)tcsetattr(m_nWriter, TCSANOW, &modes);
    }
};

volatile sig_atomic_t g_nSignals = 0;

// Counts the deliveries of one signal to this process.
class SignalCounter {
public:
    explicit SignalCounter(int nSignal) : m_nSignal(nSignal) {
        g_nSignals = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) { g_nSignals = g_nSignals + 1; };
        (void)sigaction(nSignal, &action, &m_old);
    }
    ~SignalCounter() { (void)sigaction(m_nSignal, &m_old, nullptr); }
    SignalCounter(const SignalCounter&) = delete;
    SignalCounter& operator=(const SignalCounter&) = delete;

private:
    int m_nSignal;
    struct sigaction m_old = {};
};

bool IsPending(int nSignal) {
    sigset_t pending;
    sigemptyset(&pending);
    (void)sigpending(&pending);
    return sigismember(&pending, nSignal) == 1;
}

}  // namespace

TEST(FdWriterTest, WritesTheTextWhole) {
    const Pipe pipe;

    EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), "one\n"));
    EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), std::string("t\0o\n", 4)));
    EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), ""));

    EXPECT_EQ(std::string("one\nt\0o\n", 8), pipe.Read());
}

TEST(FdWriterTest, WritesToARegularFileOfAnyLengthAndAppends) {
    const TestDir dir;
    const std::string strFile = dir.WriteFile("out", "head\n");
    const int nFd = open(strFile.c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
    const std::string strLong(1000000, 'x');

    EXPECT_TRUE(CFdWriter::Write(nFd, strLong));
    EXPECT_TRUE(CFdWriter::Write(nFd, "tail\n"));

    std::string strContent(1000100, '\0');
    strContent.resize(static_cast<size_t>(pread(nFd, strContent.data(), strContent.size(), 0)));
    close(nFd);
    EXPECT_EQ("head\n" + strLong + "tail\n", strContent);
}

TEST(FdWriterTest, WritesAtTheFilesOwnPosition) {
    const int nFd = memfd_create("out", MFD_CLOEXEC);

    EXPECT_TRUE(CFdWriter::Write(nFd, "one\n"));
    EXPECT_TRUE(CFdWriter::Write(nFd, "two\n"));

    char buffer[16] = {};
    EXPECT_EQ(8, pread(nFd, buffer, sizeof(buffer), 0));
    EXPECT_STREQ("one\ntwo\n", buffer);
    close(nFd);
}

TEST(FdWriterTest, WritesToADeviceThatTakesEverything) {
    const int nFd = open("/dev/null", O_WRONLY | O_CLOEXEC);

    EXPECT_TRUE(CFdWriter::Write(nFd, std::string(100000, 'x')));

    close(nFd);
}

TEST(FdWriterTest, ADeviceThatIsFullGivesFalse) {
    const int nFd = open("/dev/full", O_WRONLY | O_CLOEXEC);

    EXPECT_FALSE(CFdWriter::Write(nFd, "x\n"));

    close(nFd);
}

TEST(FdWriterTest, AStreamThatIsClosedOrNotForWritingGivesFalse) {
    const Pipe pipe;
    const int nReadOnly = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int nClosed = dup(nReadOnly);
    close(nClosed);

    EXPECT_FALSE(CFdWriter::Write(nClosed, "x\n"));
    EXPECT_FALSE(CFdWriter::Write(-1, "x\n"));
    EXPECT_FALSE(CFdWriter::Write(nReadOnly, "x\n"));
    EXPECT_FALSE(CFdWriter::Write(pipe.Reader(), "x\n"));

    close(nReadOnly);
    EXPECT_EQ("", pipe.Read());
}

TEST(FdWriterTest, AClosedPipeRaisesNoSignalAndGivesFalse) {
    const SignalCounter counter(SIGPIPE);
    Pipe pipe;
    pipe.CloseReader();

    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), "x\n"));
    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), std::string(100000, 'x')));

    EXPECT_EQ(0, g_nSignals);
    EXPECT_FALSE(IsPending(SIGPIPE));
}

TEST(FdWriterTest, AFullPipeThatIsClosedGivesFalse) {
    const SignalCounter counter(SIGPIPE);
    Pipe pipe;
    pipe.Fill();
    pipe.CloseReader();

    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), "x\n"));

    EXPECT_EQ(0, g_nSignals);
}

TEST(FdWriterTest, AClosedSocketRaisesNoSignalAndGivesFalse) {
    const SignalCounter counter(SIGPIPE);
    SocketPair sockets;
    sockets.CloseReader();

    EXPECT_FALSE(CFdWriter::Write(sockets.Writer(), "x\n"));

    EXPECT_EQ(0, g_nSignals);
}

TEST(FdWriterTest, APipeSignalThatWasPendingBeforeStaysTheProcesss) {
    sigset_t pipeSet;
    sigset_t oldSet;
    sigemptyset(&pipeSet);
    sigaddset(&pipeSet, SIGPIPE);
    (void)pthread_sigmask(SIG_BLOCK, &pipeSet, &oldSet);
    (void)pthread_kill(pthread_self(), SIGPIPE);
    Pipe pipe;
    pipe.CloseReader();

    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), "x\n"));

    EXPECT_TRUE(IsPending(SIGPIPE));
    const timespec none = {0, 0};
    EXPECT_EQ(SIGPIPE, sigtimedwait(&pipeSet, nullptr, &none));
    (void)pthread_sigmask(SIG_SETMASK, &oldSet, nullptr);
}

TEST(FdWriterTest, TheCallersSignalMaskAndErrnoStayAsTheyWere) {
    Pipe pipe;
    pipe.CloseReader();
    sigset_t before;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &before);
    errno = ENOENT;

    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), "x\n"));

    EXPECT_EQ(ENOENT, errno);
    sigset_t after;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int nSignal = 1; nSignal < SIGRTMAX; ++nSignal) {
        EXPECT_EQ(sigismember(&before, nSignal), sigismember(&after, nSignal)) << nSignal;
    }
}

TEST(FdWriterTest, AFileAtTheSizeLimitRaisesNoSignalAndGivesFalse) {
    const SignalCounter counter(SIGXFSZ);
    const int nFd = memfd_create("out", MFD_CLOEXEC);
    rlimit oldLimit = {};
    (void)getrlimit(RLIMIT_FSIZE, &oldLimit);
    const rlimit smallLimit = {4, oldLimit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &smallLimit));

    const bool bFits = CFdWriter::Write(nFd, "one\n");
    const bool bTooLong = CFdWriter::Write(nFd, "two\n");
    (void)setrlimit(RLIMIT_FSIZE, &oldLimit);
    close(nFd);

    EXPECT_TRUE(bFits);
    EXPECT_FALSE(bTooLong);
    EXPECT_EQ(0, g_nSignals);
    EXPECT_FALSE(IsPending(SIGXFSZ));
}

// A call that waited for the reader would never return: nobody reads.
TEST(FdWriterTest, AFullPipeCostsTheTextAndNothingOfItIsWritten) {
    const Pipe pipe;
    pipe.Fill();

    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), "short\n"));
    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), std::string(100000, 'x')));

    EXPECT_EQ(std::string::npos, pipe.Read().find_first_not_of('.'));
}

TEST(FdWriterTest, AFullPipeIsWrittenToAgainOnceItWasRead) {
    const Pipe pipe;
    pipe.Fill();
    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), "lost\n"));
    (void)pipe.Read();

    EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), "kept\n"));

    EXPECT_EQ("kept\n", pipe.Read());
}

TEST(FdWriterTest, APipeThatWasMadeNonBlockingIsTreatedTheSame) {
    const Pipe pipe;
    pipe.Fill();
    (void)fcntl(pipe.Writer(), F_SETFL, O_NONBLOCK);

    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), "lost\n"));
    (void)pipe.Read();
    EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), "kept\n"));

    EXPECT_EQ("kept\n", pipe.Read());
}

TEST(FdWriterTest, WithoutADescriptorToSpareAFullPipeCostsTheTextAllTheSame) {
    const Pipe pipe;
    const int nNext = dup(pipe.Writer());
    close(nNext);
    rlimit oldLimit = {};
    (void)getrlimit(RLIMIT_NOFILE, &oldLimit);
    const rlimit noneLeft = {static_cast<rlim_t>(nNext), oldLimit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &noneLeft));

    const bool bTaken = CFdWriter::Write(pipe.Writer(), "kept\n");
    const std::string strRead = pipe.Read();
    const bool bWhole = CFdWriter::Write(pipe.Writer(), std::string(1000000, 'x'));
    const bool bWhileFull = CFdWriter::Write(pipe.Writer(), "lost\n");
    (void)setrlimit(RLIMIT_NOFILE, &oldLimit);

    EXPECT_TRUE(bTaken);
    EXPECT_EQ("kept\n", strRead);
    EXPECT_FALSE(bWhole);
    EXPECT_FALSE(bWhileFull);
    EXPECT_EQ(std::string::npos, pipe.Read().find_first_not_of('x'));
}

TEST(FdWriterTest, TheStreamItselfIsNotMadeNonBlocking) {
    const Pipe pipe;

    EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), "x\n"));

    EXPECT_EQ(0, fcntl(pipe.Writer(), F_GETFL) & O_NONBLOCK);
}

TEST(FdWriterTest, NoDescriptorIsLeftOpen) {
    const Pipe pipe;
    EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), "x\n"));
    const int nBefore = dup(pipe.Writer());
    close(nBefore);

    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), "x\n"));
    }

    const int nAfter = dup(pipe.Writer());
    close(nAfter);
    EXPECT_EQ(nBefore, nAfter);
}

TEST(FdWriterTest, ATextBegunIsCutWhenTheReaderStandsStill) {
    const Pipe pipe;

    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), std::string(1000000, 'x')));

    const std::string strRead = pipe.Read();
    EXPECT_LT(0u, strRead.size());
    EXPECT_GT(1000000u, strRead.size());
    EXPECT_EQ(std::string::npos, strRead.find_first_not_of('x'));
}

TEST(FdWriterTest, TheTextAfterACutOneStartsOnALineOfItsOwn) {
    const Pipe pipe;
    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), std::string(1000000, 'x')));
    (void)pipe.Read();

    EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), "next\n"));
    EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), "after\n"));

    EXPECT_EQ("\nnext\nafter\n", pipe.Read());
}

TEST(FdWriterTest, TheTextAfterOneCutAtALineEndNeedsNoLineFeed) {
    const Pipe pipe;
    EXPECT_FALSE(CFdWriter::Write(pipe.Writer(), std::string(1000000, '\n')));
    (void)pipe.Read();

    EXPECT_TRUE(CFdWriter::Write(pipe.Writer(), "next\n"));

    EXPECT_EQ("next\n", pipe.Read());
}

TEST(FdWriterTest, ACutTextOnOneStreamLeavesAnotherAlone) {
    const Pipe cut;
    const Pipe other;
    EXPECT_FALSE(CFdWriter::Write(cut.Writer(), std::string(1000000, 'x')));

    EXPECT_TRUE(CFdWriter::Write(other.Writer(), "line\n"));
    EXPECT_FALSE(CFdWriter::Write(cut.Writer(), "still full\n"));
    (void)cut.Read();
    EXPECT_TRUE(CFdWriter::Write(cut.Writer(), "line\n"));

    EXPECT_EQ("line\n", other.Read());
    EXPECT_EQ("\nline\n", cut.Read());
}

TEST(FdWriterTest, AnotherStreamUnderTheSameNumberGetsNoLineFeed) {
    Pipe cut;
    const Pipe other;
    EXPECT_FALSE(CFdWriter::Write(cut.Writer(), std::string(1000000, 'x')));

    ASSERT_EQ(cut.Writer(), dup2(other.Writer(), cut.Writer()));
    EXPECT_TRUE(CFdWriter::Write(cut.Writer(), "line\n"));

    EXPECT_EQ("line\n", other.Read());
}

TEST(FdWriterTest, ALongTextReachesAReaderThatReads) {
    Pipe pipe;
    const std::string strLong(1000000, 'x');
    std::string strRead;
    std::thread reader([&] { strRead = pipe.ReadToEnd(); });

    const bool bWritten = CFdWriter::Write(pipe.Writer(), strLong);
    pipe.CloseWriter();
    reader.join();

    EXPECT_TRUE(bWritten);
    EXPECT_EQ(strLong, strRead);
}

TEST(FdWriterTest, AFullSocketCostsTheText) {
    const SocketPair sockets;
    sockets.Fill();

    EXPECT_FALSE(CFdWriter::Write(sockets.Writer(), "lost\n"));
    (void)sockets.Read();
    EXPECT_TRUE(CFdWriter::Write(sockets.Writer(), "kept\n"));

    EXPECT_EQ("kept\n", sockets.Read());
}

TEST(FdWriterTest, ATextLargerThanASocketHoldsIsCut) {
    const SocketPair sockets;

    EXPECT_FALSE(CFdWriter::Write(sockets.Writer(), std::string(10000000, 'x')));

    EXPECT_GT(10000000u, sockets.Read().size());
}

TEST(FdWriterTest, ATerminalTakesTheText) {
    const Terminal terminal;
    ASSERT_EQ(1, isatty(terminal.Writer()));

    EXPECT_TRUE(CFdWriter::Write(terminal.Writer(), "line\n"));

    EXPECT_EQ("line\n", terminal.ReadAsMuchAs(5));
}

TEST(FdWriterTest, ATerminalThatWasHaltedCostsTheText) {
    const Terminal terminal;
    ASSERT_EQ(0, tcflow(terminal.Writer(), TCOOFF));

    EXPECT_FALSE(CFdWriter::Write(terminal.Writer(), "lost\n"));
    (void)tcflow(terminal.Writer(), TCOON);
    EXPECT_TRUE(CFdWriter::Write(terminal.Writer(), "kept\n"));

    EXPECT_EQ("kept\n", terminal.ReadAsMuchAs(5));
}

TEST(FdWriterTest, ATerminalThatNobodyReadsCostsTheText) {
    const Terminal terminal;

    EXPECT_FALSE(CFdWriter::Write(terminal.Writer(), std::string(10000000, 'x')));
    EXPECT_FALSE(CFdWriter::Write(terminal.Writer(), std::string(10000000, 'x')));

    std::string strRead;
    EXPECT_TRUE(Eventually([&] {
        strRead += terminal.Read();
        return CFdWriter::Write(terminal.Writer(), "after\n");
    }));
    EXPECT_GT(10000000u, strRead.size());
}

TEST(FdWriterTest, LinesOfSeveralThreadsNeverInterleave) {
    constexpr int nThreads = 4;
    constexpr int nLines = 50;
    Pipe pipe;
    std::string strRead;
    std::thread reader([&] { strRead = pipe.ReadToEnd(); });
    std::vector<std::thread> writers;
    for (int i = 0; i < nThreads; ++i) {
        writers.emplace_back([&pipe, i] {
            // Longer than what a pipe takes in one piece.
            const std::string strLine(20000, static_cast<char>('a' + i));
            for (int j = 0; j < nLines; ++j) {
                EXPECT_TRUE(
                    Eventually([&] { return CFdWriter::Write(pipe.Writer(), strLine + "\n"); }));
            }
        });
    }

    for (std::thread& writer : writers) {
        writer.join();
    }
    pipe.CloseWriter();
    reader.join();

    // A text cut because the reader came late stands on a line of its own, shorter.
    int nWhole = 0;
    for (size_t nStart = 0; nStart < strRead.size();) {
        const size_t nEnd = strRead.find('\n', nStart);
        ASSERT_NE(std::string::npos, nEnd);
        const std::string strLine = strRead.substr(nStart, nEnd - nStart);
        ASSERT_EQ(std::string::npos, strLine.find_first_not_of(strLine[0]));
        nWhole += strLine.size() == 20000 ? 1 : 0;
        nStart = nEnd + 1;
    }
    EXPECT_EQ(nThreads * nLines, nWhole);
}
