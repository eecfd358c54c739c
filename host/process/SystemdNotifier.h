// Reports to the service manager that started the host how it is doing: one datagram a message to
// the socket named in the environment. Twenty lines of its own instead of a library that would
// bring half a dozen others into a process with privileges.
//
// Threads: made before any other thread exists; Send from any.
// Errors: nobody listening is no error.
#ifndef HOST_PROCESS_SYSTEMDNOTIFIER_H
#define HOST_PROCESS_SYSTEMDNOTIFIER_H

#include <chrono>
#include <string>

class SystemdNotifier {
public:
    // Takes NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID out of the environment.
    SystemdNotifier();

    bool IsWanted() const { return !m_strSocket.empty(); }
    // How often a sign of life is to come at least; 0 when none is waited for.
    std::chrono::milliseconds Watchdog() const { return m_watchdog; }

    // strState is "READY=1", "STOPPING=1", "WATCHDOG=1" or "STATUS=text", several with line feeds
    // between them.
    void Send(const std::string& strState) const;

private:
    std::string m_strSocket;  // a path, or "@name"; "" when nobody listens
    std::chrono::milliseconds m_watchdog{0};
};

#endif
