#include "host/kernel/connector/ConnectorSensor.h"

#include <linux/capability.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/base/WakeFd.h"
#include "host/kernel/connector/ConnectorSocket.h"
#include "host/kernel/connector/ExecOpens.h"
#include "host/kernel/connector/StartedProgram.h"
#include "host/kernel/launch/LaunchPath.h"
#include "host/kernel/launch/LaunchRecords.h"
#include "host/process/Privileges.h"

namespace {

constexpr size_t WAITING_BYTES = 8 << 20;
constexpr size_t MOST_PARENTS = 65536;
constexpr int IDLE_LOOK_MS = 50;  // copies, ends and failed starts wake nobody

FileId FileOf(const std::string& strPath) {
    struct stat status = {};
    return stat(strPath.c_str(), &status) == 0 ? process_look::IdOf(status) : FileId();
}

// Newer kernels notify everybody of processes; what these run is still the affair of a few.
bool MayLookAtOthers() {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    return syscall(SYS_capget, &header, data) == 0 &&
           (data[0].effective >> CAP_SYS_PTRACE & 1) != 0;
}

class ConnectorSensor : public ILaunchSensor {
public:
    explicit ConnectorSensor(bool bOpens) : m_bOpens(bOpens) {}
    ~ConnectorSensor() override { Detach(); }

    ConnectorSensor(const ConnectorSensor&) = delete;
    ConnectorSensor& operator=(const ConnectorSensor&) = delete;

    bool Open(std::string& strError) override;
    void Drain(const Sink& fnSink) override { m_records.Drain(fnSink); }
    void Detach() override;
    SensorCounts Counts() const override { return m_records.Counts(); }
    std::string Name() const override {
        return m_bOpens ? "process connector with fanotify" : "process connector";
    }
    std::string Limits() const override;

private:
    void Run();
    void Round();
    bool TakeSockets();
    void TakeExecs(const std::vector<ConnectorEvent>& execs);
    void TakeExec(uint32_t nPid, size_t nStarts);
    uint32_t ParentOf(uint32_t nPid) const;
    void TakeLives(LaunchKind eKind);

    const bool m_bOpens;
    WakeFd m_wake;  // Detach wakes Run
    bool m_bRealTime = false;
    uint32_t m_nOwnMountNs = 0;
    std::thread m_thread;
    std::atomic<bool> m_bStop{false};

    // The thread's own from here.
    ConnectorSocket m_execs;
    ConnectorSocket m_lives;
    ExecOpens m_opens;
    std::vector<ConnectorEvent> m_execEvents;
    std::vector<ConnectorEvent> m_lifeEvents;
    std::unordered_map<uint32_t, uint32_t> m_parents;  // process by process

    LaunchRecords m_records{WAITING_BYTES};
};

bool ConnectorSensor::Open(std::string& strError) {
    if (!MayLookAtOthers()) {
        strError =
            "what other users' processes run cannot be examined; run as root, or with the "
            "capabilities CAP_SYS_PTRACE and CAP_NET_ADMIN";
        return false;
    }
    const bool bFilter = ConnectorSocket::CanFilter();
    if (!m_execs.Open(bFilter ? ConnectorSocket::EXECS : ConnectorSocket::ALL_KINDS, strError) ||
        (bFilter && !m_lives.Open(ConnectorSocket::LIVES, strError)) ||
        (m_bOpens && !m_opens.Open(strError))) {
        return false;
    }
    if (!m_wake.Open()) {
        strError = std::string("cannot make an eventfd: ") + std::strerror(errno);
        return false;
    }
    m_nOwnMountNs = HostMountNs([](const std::string& strPath, struct stat& status) {
        return stat(strPath.c_str(), &status) == 0;
    });
    // Signals are for the thread that waits for them.
    sigset_t allSet, oldSet;
    sigfillset(&allSet);
    pthread_sigmask(SIG_SETMASK, &allSet, &oldSet);
    m_thread = std::thread(&ConnectorSensor::Run, this);
    pthread_sigmask(SIG_SETMASK, &oldSet, nullptr);
    (void)pthread_setname_np(m_thread.native_handle(), "launch_sensor");
    // The lowest one is enough to come before every ordinary process.
    sched_param priority = {};
    priority.sched_priority = sched_get_priority_min(SCHED_FIFO);
    m_bRealTime = pthread_setschedparam(m_thread.native_handle(), SCHED_FIFO, &priority) == 0;
    return true;
}

std::string ConnectorSensor::Limits() const {
    std::string strText =
        m_bOpens ? "paths come from the files that were opened, arguments from /proc while the "
                   "process lives: of very short processes they may be missing; names as invoked "
                   "are guessed from the arguments"
                 : "paths and arguments come from /proc while the process lives: very short "
                   "processes may be unresolved, and one that starts another program at once is "
                   "reported as that; scripts are reported as their interpreter only";
    if (!m_opens.Unmarked().empty()) {
        strText += "; programs of these file systems by /proc alone: " + m_opens.Unmarked();
    }
    if (!m_bRealTime) {
        strText += "; without real-time priority (CAP_SYS_NICE) more are missing";
    }
    if (!ConnectorSocket::CanFilter()) {
        strText += "; of lost messages it is not known how many were launches: all are counted";
    }
    return strText;
}

void ConnectorSensor::Run() {
    privileges::KeepForWatching();  // they belong to a thread, and this one was made with all
    while (!m_bStop) {
        pollfd fds[] = {{m_execs.Fd(), POLLIN, 0}, {m_wake.Fd(), POLLIN, 0}};
        (void)poll(fds, 2, IDLE_LOOK_MS);
        Round();
    }
    Round();
}

// What waits, in an order in which a launch finds its parent and its files: starts first, then the
// copies and opened files that were there by then.
void ConnectorSensor::Round() {
    try {
        bool bMore = true;
        while (bMore) {
            bMore = TakeSockets();
            if (m_bOpens) {
                m_opens.Read();
            }
            TakeLives(LAUNCH_KIND_FORK);
            TakeExecs(m_execEvents);
            TakeLives(LAUNCH_KIND_EXIT);
            m_execEvents.clear();
            m_lifeEvents.clear();
        }
    } catch (const std::bad_alloc&) {
        m_records.Lose(m_execEvents.size(), m_lifeEvents.size());
        m_execEvents.clear();
        m_lifeEvents.clear();
    }
}

// True when more waits.
bool ConnectorSensor::TakeSockets() {
    const bool bMore = m_execs.Receive(m_execEvents);
    if (m_lives.Fd() >= 0) {
        while (m_lives.Receive(m_lifeEvents)) {
        }
    } else {
        for (size_t i = 0; i < m_execEvents.size();) {
            if (m_execEvents[i].eKind == LAUNCH_KIND_EXEC) {
                ++i;
            } else {
                m_lifeEvents.push_back(m_execEvents[i]);
                m_execEvents.erase(m_execEvents.begin() + static_cast<std::ptrdiff_t>(i));
            }
        }
    }
    m_records.SetDropped(m_execs.Dropped(), m_lives.Dropped());
    return bMore;
}

void ConnectorSensor::TakeLives(LaunchKind eKind) {
    for (const ConnectorEvent& life : m_lifeEvents) {
        if (life.eKind != eKind) {
            continue;
        }
        if (eKind == LAUNCH_KIND_FORK) {
            if (m_parents.size() >= MOST_PARENTS) {
                m_parents.clear();  // /proc knows them too
            }
            m_parents[life.nPid] = life.nParent;
        } else {
            m_parents.erase(life.nPid);
            m_opens.Forget(life.nPid);
        }
        LaunchEvent event;
        event.eKind = eKind;
        event.nPid = life.nPid;
        event.nPpid = life.nParent;
        m_records.Put(event);
    }
}

void ConnectorSensor::TakeExecs(const std::vector<ConnectorEvent>& execs) {
    std::unordered_map<uint32_t, size_t> starts;
    for (const ConnectorEvent& exec : execs) {
        ++starts[exec.nPid];
    }
    for (const ConnectorEvent& exec : execs) {
        size_t& nStarts = starts[exec.nPid];
        if (nStarts > 0) {
            TakeExec(exec.nPid, nStarts);
            nStarts = 0;
        }
    }
}

// All launches of one process that wait. Only of the last one does /proc know anything.
void ConnectorSensor::TakeExec(uint32_t nPid, size_t nStarts) {
    const ProcessState state = process_look::Look(nPid);
    const std::vector<OpenedImage> images = ImagesOf(m_opens.Take(nPid), FileOf);
    std::vector<std::optional<OpenedImage>> starts = ImagesPerStart(images, nStarts);
    if (nStarts == 1 && starts[0] && state.exe.IsKnown()) {
        bool bSeen = false;
        for (const OpenedImage& image : images) {
            bSeen = bSeen || image.program.id == state.exe;
        }
        if (!bSeen) {  // what was opened belongs to a start that failed
            starts[0].reset();
        }
    }
    for (size_t i = 0; i < starts.size(); ++i) {
        const bool bLast = i + 1 == starts.size();
        m_records.Put(StartedProgram(nPid, ParentOf(nPid), starts[i], bLast ? &state : nullptr,
                                     m_nOwnMountNs));
    }
}

uint32_t ConnectorSensor::ParentOf(uint32_t nPid) const {
    const auto found = m_parents.find(nPid);
    return found == m_parents.end() ? 0 : found->second;
}

// The thread takes what the kernel reported until now, and ends.
void ConnectorSensor::Detach() {
    if (!m_thread.joinable()) {
        return;
    }
    m_bStop = true;
    m_wake.Wake();
    m_thread.join();
}

}  // namespace

std::unique_ptr<ILaunchSensor> MakeConnectorSensor(bool bOpens) {
    return std::make_unique<ConnectorSensor>(bOpens);
}
