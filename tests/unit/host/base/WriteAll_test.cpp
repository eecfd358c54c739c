#include "host/base/WriteAll.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include "host/base/UniqueFd.h"

namespace {

// A pipe whose writing side does not block.
class Pipe {
public:
    Pipe() {
        int fds[2] = {-1, -1};
        EXPECT_EQ(0, pipe2(fds, O_CLOEXEC));
        m_read.Reset(fds[0]);
        m_write.Reset(fds[1]);
        EXPECT_EQ(0, fcntl(m_write.Get(), F_SETFL, O_NONBLOCK));
    }

    // Until the writing side is closed.
    std::string ReadToTheEnd() const {
        std::string strText;
        char szPiece[4096];
        for (ssize_t n = 0; (n = read(m_read.Get(), szPiece, sizeof(szPiece))) > 0;) {
            strText.append(szPiece, static_cast<size_t>(n));
        }
        return strText;
    }

    UniqueFd m_read;
    UniqueFd m_write;
};

}  // namespace

TEST(WriteAllTest, ATextThatFindsNoRoomAtOnceComesWhole) {
    std::string strText;
    for (int i = 0; strText.size() < (1 << 20); ++i) {
        strText += std::to_string(i) + "\n";
    }
    Pipe pipe;
    std::string strRead;
    std::thread reader([&] { strRead = pipe.ReadToTheEnd(); });

    const int nError = WriteAll(pipe.m_write.Get(), strText);
    pipe.m_write.Reset();
    reader.join();

    EXPECT_EQ(0, nError);
    EXPECT_TRUE(strText == strRead) << strRead.size() << " of " << strText.size() << " bytes";
}

TEST(WriteAllTest, WithPatienceItGivesUpWhenNobodyReads) {
    const Pipe pipe;
    const std::string strText(1 << 20, 'x');

    EXPECT_EQ(EAGAIN, WriteAll(pipe.m_write.Get(), strText, std::chrono::milliseconds(20)));
}

TEST(WriteAllTest, WithPatienceATextThatIsReadComesWhole) {
    const std::string strText(1 << 20, 'x');
    Pipe pipe;
    std::string strRead;
    std::thread reader([&] { strRead = pipe.ReadToTheEnd(); });

    const int nError = WriteAll(pipe.m_write.Get(), strText, std::chrono::seconds(100));
    pipe.m_write.Reset();
    reader.join();

    EXPECT_EQ(0, nError);
    EXPECT_EQ(strText.size(), strRead.size());
}

TEST(WriteAllTest, ReportsWhatStoppedIt) {
    (void)std::signal(SIGPIPE, SIG_IGN);
    Pipe pipe;
    pipe.m_read.Reset();
    const UniqueFd full(open("/dev/full", O_WRONLY | O_CLOEXEC));

    EXPECT_EQ(EPIPE, WriteAll(pipe.m_write.Get(), "text"));
    EXPECT_EQ(ENOSPC, WriteAll(full.Get(), "text"));
    EXPECT_EQ(EBADF, WriteAll(-1, "text"));
}

TEST(WriteAllTest, AnEmptyTextNeedsNoRoom) {
    EXPECT_EQ(0, WriteAll(-1, ""));
}
