#include "host/kernel/launch/LaunchSource.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "host/base/UniqueFd.h"

namespace {

// A name that leads over /proc/self/cwd or the like is another file for each process.
bool LookWithoutMagic(const std::string& strPath, FileStatus& status) {
    open_how how = {};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_NO_MAGICLINKS;
    const UniqueFd fd(
        static_cast<int>(syscall(SYS_openat2, AT_FDCWD, strPath.c_str(), &how, sizeof(how))));
    if (!fd) {
        return errno == ENOSYS && file_look::AtTarget(strPath, status);  // before Linux 5.6
    }
    return file_look::AtDescriptor(fd.Get(), status);
}

}  // namespace

LaunchSource::LaunchSource(std::unique_ptr<ILaunchSensor> pSensor, ILaunchObserver& observer,
                           ProcessTable& images, LaunchSourceOptions options)
    : m_pSensor(std::move(pSensor)),
      m_observer(observer),
      m_images(images),
      m_options(std::move(options)),
      m_cgroups(m_options.strCgroups ? *m_options.strCgroups : CgroupNames::Root()),
      m_nOwnPid(static_cast<uint32_t>(getpid())),
      m_batches({m_options.nMostLaunches, m_options.nMostBytes, m_options.batchTime}) {
    if (!m_options.fnLookAtScript) {
        m_options.fnLookAtScript = m_options.fnLook ? m_options.fnLook : LookWithoutMagic;
    }
    if (!m_options.fnLook) {
        m_options.fnLook = file_look::ByMounts();
    }
    if (!m_options.nMountNs) {
        m_options.nMountNs = HostMountNs(file_look::AtTarget);
    }
}

bool LaunchSource::Open(std::string& strError) {
    if (!m_pSensor->Open(strError)) {
        return false;
    }
    m_observer.OnNotice("launches are captured by " + m_pSensor->Name() + ": " +
                        m_pSensor->Limits());
    return true;
}

bool LaunchSource::Drain() {
    size_t nRecords = 0;
    m_pSensor->Drain([&](const void* pData, size_t nSize) {
        TakeRecord(pData, nSize);
        return ++nRecords < m_options.nMostRecords;
    });
    return nRecords < m_options.nMostRecords;
}

void LaunchSource::Detach() {
    if (!m_bDetached) {
        m_pSensor->Detach();
        m_bDetached = true;
    }
}

void LaunchSource::TakeRecord(const void* pData, size_t nSize) {
    LaunchEvent event;
    if (!DecodeLaunch(pData, nSize, event)) {
        ++m_launches.nBroken;
    } else if (event.eKind != LAUNCH_KIND_EXEC) {
        m_images.Note(event, "");
    } else if (event.nPid == m_nOwnPid) {
        ++m_launches.nOwn;
    } else {
        TakeExec(event);
    }
}

void LaunchSource::TakeExec(const LaunchEvent& event) {
    m_launches.nArgsCut += event.bArgsCut ? 1 : 0;
    m_launches.nArgsUnreadable += event.bArgsUnreadable ? 1 : 0;
    Launch launch;
    launch.strStarter = m_images.StarterOf(event);
    launch.bArgsCut = event.bArgsCut;
    launch.context.nUid = event.nUid;
    launch.context.strCgroup = m_cgroups.PathOf(event.nCgroup);
    launch.context.strContainer = ContainerOf(launch.context.strCgroup);
    LaunchPath path = ChooseLaunchPath(event, m_options.fnLook);
    launch.eOrigin = path.eOrigin;
    launch.creation = {std::move(path.strPath), event.strCommand, event.nPid};
    m_images.Note(event, launch.creation.strPath);
    if (launch.eOrigin == LAUNCH_PATH_NONE) {
        ++m_launches.nUnresolved;
        m_observer.OnUnresolved(event, launch.context);
    } else {
        ++m_launches.nReported;
        Add(launch);
    }
    if (!event.strInterp.empty()) {
        TakeScript(event, launch);
    }
}

void LaunchSource::TakeScript(const LaunchEvent& event, const Launch& launch) {
    Launch script = launch;
    script.creation.strPath = ScriptPath(event, *m_options.nMountNs, m_options.fnLookAtScript);
    if (script.creation.strPath.empty()) {
        ++m_launches.nScriptsUnreported;
        return;
    }
    script.eOrigin = LAUNCH_PATH_INVOKED;
    script.bScript = true;
    ++m_launches.nScripts;
    Add(std::move(script));
}

void LaunchSource::Add(Launch launch) {
    m_observer.OnLaunch(launch);
    const size_t nBytes = launch.creation.strPath.size() + launch.creation.strCommand.size();
    m_batches.Add(std::move(launch.creation), nBytes, Clock::now());
    ++m_launches.nBatched;
}

void LaunchSource::TakeCounts(bool bLast) {
    const SensorCounts counts = m_pSensor->Counts();
    m_launches.nCaptured = counts.nCaptured;
    m_launches.nLost = counts.nLost;
    m_launches.nOthersLost = counts.nOthersLost;
    const auto now = Clock::now();
    if (counts.nLost > m_nLostSeen) {
        m_lossBegun = m_nLostSeen == m_nAnnounced ? now : m_lossBegun;
        m_lossGrown = now;
        m_nLostSeen = counts.nLost;
    }
    // One outage is one announcement, though more is lost while the buffer is being emptied.
    const bool bDue =
        now >= m_lossGrown + m_options.calm || now >= m_lossBegun + m_options.announce;
    if (m_nLostSeen > m_nAnnounced && (bLast || bDue)) {
        m_observer.OnLost(m_nLostSeen - m_nAnnounced, m_nLostSeen);
        m_nAnnounced = m_nLostSeen;
    }
    m_observer.OnCounters(m_launches);
}

void LaunchSource::TakeBatch(EventBatch& batch, uint64_t nNumber) {
    const std::vector<event_message::Creation> creations = m_batches.TakeOldest();
    batch.strBody = event_message::CreationsOf(creations);
    batch.nNumber = nNumber;
    batch.nCopies = 1;
    batch.nEvents = creations.size();
    m_launches.nBatched -= creations.size();
    m_observer.OnCounters(m_launches);
}
