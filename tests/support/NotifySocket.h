// The socket of a service manager, for tests: what a service sends there.
#ifndef TESTS_SUPPORT_NOTIFYSOCKET_H
#define TESTS_SUPPORT_NOTIFYSOCKET_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>

class NotifySocket {
public:
    // strName is a path, or "@name" for one that is no file.
    explicit NotifySocket(const std::string& strName)
        : m_nFd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, strName.data(), strName.size());
        if (strName[0] == '@') {
            address.sun_path[0] = '\0';
        }
        const auto nLength =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strName.size());
        EXPECT_EQ(0, bind(m_nFd, reinterpret_cast<const sockaddr*>(&address), nLength));
    }
    ~NotifySocket() { close(m_nFd); }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    // The next message, "" when none comes for nWaitMs.
    std::string Next(int nWaitMs) const {
        pollfd fd = {m_nFd, POLLIN, 0};
        char szBuffer[1024];
        const ssize_t nRead =
            poll(&fd, 1, nWaitMs) == 1 ? recv(m_nFd, szBuffer, sizeof(szBuffer), 0) : 0;
        return std::string(szBuffer, nRead > 0 ? static_cast<size_t>(nRead) : 0);
    }

    // True when a message with strText comes; false when it hangs.
    bool WaitFor(const std::string& strText) const {
        for (std::string strNext = Next(100000); !strNext.empty(); strNext = Next(100000)) {
            if (strNext.find(strText) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

private:
    const int m_nFd;
};

#endif
