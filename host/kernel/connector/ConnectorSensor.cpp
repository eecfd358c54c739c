#include "host/kernel/connector/ConnectorSensor.h"

#include <linux/capability.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "host/base/MonotonicCondition.h"
#include "host/base/Mutex.h"
#include "host/base/WakeFd.h"
#include "host/kernel/connector/ConnectorFeed.h"
#include "host/kernel/connector/ExecOpens.h"
#include "host/kernel/connector/LaunchRecords.h"
#include "host/kernel/connector/StartedProgram.h"
#include "host/kernel/launch/LaunchPath.h"
#include "host/process/Privileges.h"

namespace {

constexpr size_t WAITING_BYTES = 8 << 20;
constexpr size_t MOST_PARENTS = 65536;
constexpr int LOOKS_AT_ONCE = 32;  // of some hundred events
constexpr int IDLE_LOOK_MS = 50;   // copies, ends and failed starts wake nobody

// Newer kernels notify everybody of processes; what these run is still the affair of a few.
bool MayLookAtOthers() {
    return privileges::Has(CAP_SYS_PTRACE);
}

bool IsExec(const ConnectorEvent& event) {
    return event.eKind == LAUNCH_KIND_EXEC;
}

class ConnectorSensor : public ILaunchSensor {
public:
    explicit ConnectorSensor(bool bOpens) : m_bOpens(bOpens) {}
    ~ConnectorSensor() override { Detach(); }

    ConnectorSensor(const ConnectorSensor&) = delete;
    ConnectorSensor& operator=(const ConnectorSensor&) = delete;

    bool Open(std::string& strError) override;
    void Drain(const Sink& fnSink) override { m_records.Drain(fnSink); }
    bool CatchUp(std::chrono::milliseconds wait) override;
    bool IsExact() const override { return false; }
    void Detach() override;
    SensorCounts Counts() const override { return m_records.Counts(); }
    std::string Name() const override {
        return m_bOpens ? "process connector with fanotify" : "process connector";
    }
    std::string Limits() const override;

private:
    // The launches of one process in one look. Only of the last one does /proc know anything.
    struct Starts {
        size_t nCount = 0;
        size_t nTaken = 0;
        ProcessState state;
        std::vector<std::optional<OpenedImage>> images;
    };

    void Run();
    bool Round();
    void TakeEvents();
    void TakeExec(uint32_t nPid, Starts& starts);
    void FindImages(uint32_t nPid, Starts& starts);
    uint32_t ParentOf(uint32_t nPid) const;
    void TakeLife(const ConnectorEvent& life);

    const bool m_bOpens;
    WakeFd m_wake;  // Detach wakes Run
    bool m_bRealTime = false;
    uint32_t m_nOwnMountNs = 0;
    std::thread m_thread;
    std::atomic<bool> m_bStop{false};

    Mutex m_mutex;
    MonotonicCondition m_caughtUp;
    uint64_t m_nAsked TEV_GUARDED_BY(m_mutex) = 0;     // calls of CatchUp
    uint64_t m_nAnswered TEV_GUARDED_BY(m_mutex) = 0;  // those before a round that is complete

    // The thread's own from here.
    ConnectorFeed m_feed;
    ExecOpens m_opens;
    std::vector<ConnectorEvent> m_events;              // of this look, in their order
    size_t m_nTaken = 0;                               // of these
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
    if (!m_feed.Open(strError) || (m_bOpens && !m_opens.Open(strError))) {
        return false;
    }
    if (!m_wake.Open()) {
        strError = std::string("cannot make an eventfd: ") + std::strerror(errno);
        return false;
    }
    m_nOwnMountNs = HostMountNs(file_look::AtTarget);
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
        pollfd fds[] = {{m_feed.Fd(), POLLIN, 0}, {m_wake.Fd(), POLLIN, 0}};
        (void)poll(fds, 2, m_feed.IsHolding() ? 0 : IDLE_LOOK_MS);
        m_wake.Clear();
        uint64_t nAsked = 0;
        {
            const MutexLock lock(m_mutex);
            nAsked = m_nAsked;
        }
        if (Round()) {
            const MutexLock lock(m_mutex);
            m_nAnswered = nAsked;
            m_caughtUp.NotifyAll();
        }
    }
    for (const uint64_t nEnd = ConnectorFeed::Now(); !Round() && m_feed.Given() <= nEnd;) {
    }
}

bool ConnectorSensor::CatchUp(std::chrono::milliseconds wait) {
    const auto due = MonotonicCondition::Clock::now() + wait;
    const MutexLock lock(m_mutex);
    const uint64_t nAsked = ++m_nAsked;
    m_wake.Wake();
    while (m_nAnswered < nAsked && MonotonicCondition::Clock::now() < due) {
        m_caughtUp.WaitUntil(m_mutex, due);
    }
    return m_nAnswered >= nAsked;
}

// What waits, in the order in which it happened; false when more waits: a flood lets a stop in.
bool ConnectorSensor::Round() {
    bool bMore = true;
    for (int i = 0; bMore && i < LOOKS_AT_ONCE; ++i) {
        try {
            bMore = m_feed.Receive(m_events);
            m_records.SetDropped(m_feed.DroppedStarts(), m_feed.DroppedLives());
            if (m_bOpens) {
                m_opens.Read();
            }
            TakeEvents();
        } catch (const std::bad_alloc&) {
            bMore = false;
            const auto nLaunches = static_cast<size_t>(std::count_if(
                m_events.begin() + static_cast<std::ptrdiff_t>(m_nTaken), m_events.end(), IsExec));
            m_records.Lose(nLaunches, m_events.size() - m_nTaken - nLaunches);
        }
        m_events.clear();
        m_nTaken = 0;
    }
    return !bMore;
}

void ConnectorSensor::TakeEvents() {
    std::unordered_map<uint32_t, Starts> starts;
    for (const ConnectorEvent& event : m_events) {
        if (IsExec(event)) {
            ++starts[event.nPid].nCount;
        }
    }
    for (; m_nTaken < m_events.size(); ++m_nTaken) {
        const ConnectorEvent& event = m_events[m_nTaken];
        if (IsExec(event)) {
            TakeExec(event.nPid, starts[event.nPid]);
        } else {
            TakeLife(event);
        }
    }
}

void ConnectorSensor::TakeLife(const ConnectorEvent& life) {
    if (life.eKind == LAUNCH_KIND_FORK) {
        if (m_parents.size() >= MOST_PARENTS) {
            m_parents.clear();  // /proc knows them too
        }
        m_parents[life.nPid] = life.nParent;
    } else {
        m_parents.erase(life.nPid);
        m_opens.Forget(life.nPid);
    }
    LaunchEvent event;
    event.eKind = life.eKind;
    event.nPid = life.nPid;
    event.nPpid = life.nParent;
    m_records.Put(event);
}

void ConnectorSensor::TakeExec(uint32_t nPid, Starts& starts) {
    if (starts.nTaken == 0) {
        FindImages(nPid, starts);
    }
    const std::optional<OpenedImage>& image = starts.images[starts.nTaken];
    const bool bLast = ++starts.nTaken == starts.nCount;
    m_records.Put(StartedProgram(nPid, ParentOf(nPid), image, bLast ? &starts.state : nullptr,
                                 m_nOwnMountNs));
}

// Of more files than starts some belong to starts that failed, or to one that is not reported yet:
// then only the last start is known, by what the process runs.
void ConnectorSensor::FindImages(uint32_t nPid, Starts& starts) {
    starts.state = process_look::Look(nPid);
    const std::vector<OpenedImage> images = ImagesOf(m_opens.Take(nPid), process_look::FileOf);
    starts.images = ImagesPerStart(images, starts.nCount);
    const FileId& exe = starts.state.exe;
    const auto runs = std::find_if(
        images.rbegin(), images.rend(),
        [&exe](const OpenedImage& image) { return exe.IsKnown() && image.program.id == exe; });
    if (images.size() > starts.nCount) {
        starts.images.assign(starts.nCount, std::nullopt);
        if (runs != images.rend()) {
            starts.images.back() = *runs;
        }
    } else if (starts.nCount == 1 && exe.IsKnown() && runs == images.rend()) {
        starts.images[0].reset();  // what was opened belongs to a start that failed
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
