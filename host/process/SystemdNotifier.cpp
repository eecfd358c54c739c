#include "host/process/SystemdNotifier.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "host/base/UniqueFd.h"

namespace {

// The value, taken out so that nothing the module starts speaks for the host.
std::string Take(const char* pszName) {
    const char* const pszValue = std::getenv(pszName);
    std::string strValue = pszValue == nullptr ? "" : pszValue;
    unsetenv(pszName);
    return strValue;
}

}  // namespace

SystemdNotifier::SystemdNotifier() : m_strSocket(Take("NOTIFY_SOCKET")) {
    const std::string strInterval = Take("WATCHDOG_USEC");
    const std::string strPid = Take("WATCHDOG_PID");
    const bool bKnown = m_strSocket.size() > 1 &&
                        (m_strSocket[0] == '/' || m_strSocket[0] == '@') &&
                        m_strSocket.size() < sizeof(sockaddr_un::sun_path);
    if (!bKnown) {
        m_strSocket.clear();
    } else if (strPid.empty() || std::atol(strPid.c_str()) == getpid()) {
        const long long nInterval = std::atoll(strInterval.c_str());
        m_watchdog = std::chrono::milliseconds(nInterval > 0 ? nInterval / 1000 : 0);
    }
}

void SystemdNotifier::Send(const std::string& strState) const {
    if (m_strSocket.empty()) {
        return;
    }
    const UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) {
        return;
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, m_strSocket.data(), m_strSocket.size());
    if (m_strSocket[0] == '@') {
        address.sun_path[0] = '\0';  // a name that is no file
    }
    const auto nLength =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + m_strSocket.size());
    // A manager that is not there, or busy, misses one sign of life.
    (void)sendto(fd.Get(), strState.data(), strState.size(), MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&address), nLength);
}
