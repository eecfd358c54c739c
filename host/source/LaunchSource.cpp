#include "host/source/LaunchSource.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

using std::chrono::milliseconds;

// After the sensor was detached it may still be at work on another processor for a moment.
constexpr milliseconds LAST_RECORDS(200);

bool Stat(const std::string& strPath, struct stat& status) {
    return stat(strPath.c_str(), &status) == 0;
}

// The number in the link "mnt:[4026531841]", which is the inode of what it leads to; 0: unknown.
uint32_t OwnMountNs() {
    struct stat status = {};
    return stat("/proc/self/ns/mnt", &status) == 0 ? static_cast<uint32_t>(status.st_ino) : 0;
}

}  // namespace

LaunchSource::LaunchSource(std::unique_ptr<ILaunchSensor> pSensor, ILaunchObserver& observer,
                           LaunchSourceOptions options)
    : m_pSensor(std::move(pSensor)),
      m_observer(observer),
      m_options(std::move(options)),
      m_nOwnPid(static_cast<uint32_t>(getpid())) {
    if (!m_options.fnLook) {
        m_options.fnLook = Stat;
    }
    if (!m_options.nMountNs) {
        m_options.nMountNs = OwnMountNs();
    }
}

LaunchSource::~LaunchSource() {
    if (m_nWake >= 0) {
        close(m_nWake);
    }
}

bool LaunchSource::Start(std::string& strError) {
    m_nWake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_nWake < 0) {
        strError = std::string("cannot make an eventfd: ") + std::strerror(errno);
        return false;
    }
    if (!m_pSensor->Open(strError)) {
        return false;
    }
    m_observer.OnNotice("launches are sensed by " + m_pSensor->Name() + ": " + m_pSensor->Limits());
    return true;
}

void LaunchSource::Stop() {
    m_bStopped = true;
    const uint64_t nOne = 1;
    (void)!write(m_nWake, &nOne, sizeof(nOne));  // full means that it is awake already
}

SourceResult LaunchSource::Next(EventBatch& batch, milliseconds wait) {
    const auto due = Clock::now() + wait;
    while (!m_bStopped) {
        Look();
        const auto now = Clock::now();
        if (IsFull() || (!m_batch.empty() && now >= m_batchDue)) {
            HandOut(batch);
            return SOURCE_BATCH;
        }
        if (now >= due) {
            return SOURCE_NOTHING_YET;
        }
        pollfd fd = {m_nWake, POLLIN, 0};
        (void)poll(&fd, 1, static_cast<int>(m_options.look.count()));  // a signal: look earlier
    }
    return Rest(batch);
}

// What was sensed before the stop.
SourceResult LaunchSource::Rest(EventBatch& batch) {
    if (!m_bDetached) {
        m_pSensor->Detach();
        m_bDetached = true;
    }
    const auto due = Clock::now() + LAST_RECORDS;
    do {
        Look();
    } while (!IsFull() && m_launches.Waiting() > 0 && Clock::now() < due &&
             poll(nullptr, 0, 1) == 0);
    TakeCounts(true);
    if (m_batch.empty()) {
        return SOURCE_END;
    }
    HandOut(batch);
    return SOURCE_BATCH;
}

void LaunchSource::Look() {
    if (!IsFull()) {
        m_pSensor->Drain(
            [this](const void* pData, size_t nSize) { return TakeRecord(pData, nSize); });
    }
    TakeCounts(false);
}

bool LaunchSource::TakeRecord(const void* pData, size_t nSize) {
    LaunchEvent event;
    if (!DecodeLaunch(pData, nSize, event)) {
        ++m_launches.nBroken;
    } else if (event.eKind != LAUNCH_KIND_EXEC) {
        m_starters.Note(event, "");
    } else if (event.nPid == m_nOwnPid) {
        ++m_launches.nOwn;
    } else {
        TakeExec(event);
    }
    return !IsFull();
}

void LaunchSource::TakeExec(const LaunchEvent& event) {
    m_launches.nArgsCut += event.bArgsCut ? 1 : 0;
    m_launches.nArgsUnreadable += event.bArgsUnreadable ? 1 : 0;
    Launch launch;
    launch.strStarter = m_starters.StarterOf(event);
    launch.bArgsCut = event.bArgsCut;
    LaunchPath path = ChooseLaunchPath(event, m_options.fnLook);
    launch.eOrigin = path.eOrigin;
    launch.creation = {std::move(path.strPath), event.strCommand, event.nPid};
    m_starters.Note(event, event.strPath.empty() ? event.strName : event.strPath);
    if (launch.eOrigin == LAUNCH_PATH_NONE) {
        ++m_launches.nUnresolvable;
        m_observer.OnUnresolvable(event);
    } else {
        ++m_launches.nPrograms;
        Add(launch);
    }
    if (!event.strInterp.empty()) {
        TakeScript(event, launch);
    }
}

void LaunchSource::TakeScript(const LaunchEvent& event, const Launch& launch) {
    Launch script = launch;
    script.creation.strPath = ScriptPath(event, *m_options.nMountNs, m_options.fnLook);
    if (script.creation.strPath.empty()) {
        ++m_launches.nScriptsUntold;
        return;
    }
    script.eOrigin = LAUNCH_PATH_INVOKED;
    script.bScript = true;
    ++m_launches.nScripts;
    Add(std::move(script));
}

void LaunchSource::Add(Launch launch) {
    m_observer.OnLaunch(launch);
    if (m_batch.empty()) {
        m_batchDue = Clock::now() + m_options.batchTime;
    }
    m_nBatchBytes += launch.creation.strPath.size() + launch.creation.strCommand.size();
    m_batch.push_back(std::move(launch.creation));
}

bool LaunchSource::IsFull() const {
    return m_batch.size() >= m_options.nMostLaunches || m_nBatchBytes >= m_options.nMostBytes;
}

void LaunchSource::TakeCounts(bool bLast) {
    const SensorCounts counts = m_pSensor->Counts();
    m_launches.nSensed = counts.nSensed;
    m_launches.nLost = counts.nLost;
    m_launches.nOthersLost = counts.nOthersLost;
    m_launches.nBatched = m_batch.size();
    const auto now = Clock::now();
    if (counts.nLost > m_nAnnounced && (bLast || now >= m_announceDue)) {
        m_observer.OnLost(counts.nLost - m_nAnnounced, counts.nLost);
        m_nAnnounced = counts.nLost;
        m_announceDue = now + m_options.announce;
    }
    m_observer.OnCounters(m_launches);
}

void LaunchSource::HandOut(EventBatch& batch) {
    ++m_counters.nBatches;
    m_counters.nEvents += m_batch.size();
    m_counters.nUnusable = m_launches.nUnresolvable;
    batch.strBody = event_message::CreationsOf(m_batch);
    batch.nNumber = m_counters.nBatches;
    batch.nCopies = 1;
    batch.nEvents = m_batch.size();
    std::vector<std::string> paths;
    for (event_message::Creation& creation : m_batch) {
        paths.push_back(std::move(creation.strPath));
    }
    m_batch.clear();
    m_nBatchBytes = 0;
    m_observer.OnBatch(batch, std::move(paths));
    m_launches.nBatched = 0;
    m_observer.OnCounters(m_launches);
}
