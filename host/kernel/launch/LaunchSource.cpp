#include "host/kernel/launch/LaunchSource.h"

#include <unistd.h>

#include <utility>

namespace {

std::string ExeLink(const LaunchEvent& event) {
    return "/proc/" + std::to_string(event.nPid) + "/exe";
}

// What it is held as: the name it is reported by, else what the kernel calls it.
std::string NameOf(const LaunchEvent& event, const Launch& launch) {
    const bool bOwn =
        launch.eOrigin == LAUNCH_PATH_INVOKED || launch.eOrigin == LAUNCH_PATH_RESOLVED;
    const std::string& strName = bOwn ? launch.creation.strPath : event.PathOrName();
    return !strName.empty() && strName[0] == '/' ? strName : "/" + strName;
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
      m_held(m_options.nMostHeld),
      m_repeats(m_options.repeats),
      m_batches({m_options.nMostLaunches, m_options.nMostBytes, m_options.batchTime}) {
    if (!m_options.fnLookAtScript) {
        m_options.fnLookAtScript = m_options.fnLook;
    }
    if (!m_options.fnLook) {
        m_options.fnLook = file_look::ByMounts();
    }
    if (!m_options.nMountNs) {
        m_options.nMountNs = HostMountNs(file_look::AtTarget);
    }
    FurtherOptions further;
    further.fnLook = m_options.fnLook;
    further.fnLookAtScript = m_options.fnLookAtScript;
    further.nMountNs = *m_options.nMountNs;
    further.pLinks = m_options.pLinks;
    m_pFurther = std::make_unique<FurtherLaunches>(further, m_held);
}

bool LaunchSource::Open(std::string& strError) {
    if (!m_pSensor->Open(strError)) {
        return false;
    }
    std::string strRefused;
    if (m_options.pLinks != nullptr && m_pSensor->IsExact()) {
        m_pOpened = std::make_unique<OpenedFiles>();
        if (!m_pOpened->Open(strRefused)) {
            m_pOpened.reset();
        }
    }
    m_observer.OnNotice("launches are captured by " + m_pSensor->Name() + ": " +
                        m_pSensor->Limits());
    if (!strRefused.empty()) {
        m_observer.OnNotice(strRefused +
                            "; programs that end at once are held by their paths alone");
    } else if (m_pOpened != nullptr && !m_pOpened->Unmarked().empty()) {
        m_observer.OnNotice("programs that end at once are held by their paths alone on " +
                            m_pOpened->Unmarked());
    }
    return true;
}

bool LaunchSource::Drain() {
    if (m_pOpened != nullptr) {
        m_pOpened->Read(Clock::now());
    }
    m_repeats.Expire(Clock::now());
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
    ++m_nStarts;
    m_launches.nArgsCut += event.bArgsCut ? 1 : 0;
    m_launches.nArgsUnreadable += event.bArgsUnreadable ? 1 : 0;
    Launch launch;
    launch.strStarter = m_images.StarterOf(event);
    const auto now = Clock::now();
    if (const std::optional<Launch> repeat = m_repeats.Find(event, launch.strStarter, now)) {
        ++m_launches.nRepeated;
        m_images.Note(event, repeat->creation.strPath);
        m_observer.OnRepeat(*repeat);
        if (m_pOpened != nullptr) {
            m_pOpened->Started(event);
        }
        return;
    }
    launch.bArgsCut = event.bArgsCut;
    launch.context.nUid = event.nUid;
    launch.context.strCgroup = m_cgroups.PathOf(event.nCgroup);
    launch.context.strContainer = ContainerOf(launch.context.strCgroup);
    LaunchPath path = ChooseLaunchPath(event, m_options.fnLook);
    launch.eOrigin = path.eOrigin;
    launch.creation = {std::move(path.strPath), event.strCommand, event.nPid};
    Hold(event, launch);
    m_images.Note(event, launch.creation.strPath);
    if (launch.eOrigin == LAUNCH_PATH_NONE) {
        ++m_launches.nUnresolved;
        m_observer.OnUnresolved(event, launch.context, launch.pFile);
    } else {
        m_launches.nNotHeld += launch.pFile == nullptr ? 1 : 0;
        m_launches.nFresh += launch.pFile != nullptr && !launch.pFile->IsSure() ? 1 : 0;
        ++m_launches.nReported;
        if (m_pSensor->IsExact() && !m_pFurther->IsLoader(event, launch)) {
            m_repeats.Reported(event, launch, now);
        }
        Add(launch);
    }
    for (Launch& further : m_pFurther->Of(event, launch, m_pOpened.get(), m_launches)) {
        Add(std::move(further));
    }
}

// One version of a file is held once. What only the process leads to is reported by a link: the
// number of a process is given away again.
void LaunchSource::Hold(const LaunchEvent& event, Launch& launch) {
    const FileVersion version = VersionOf(event);
    launch.creation.strVersion = version.IsKnown() ? file_version::Text(version) : "";
    // What a user's program serves is not held: opening and reading it would wait for him.
    if (m_options.pLinks == nullptr || event.bServed) {
        return;
    }
    const std::string strName = NameOf(event, launch);
    launch.pFile = m_held.Find(version);
    if (launch.pFile == nullptr) {
        launch.pFile = Held(event, launch, version, strName);
    }
    if (launch.eOrigin == LAUNCH_PATH_NONE || launch.eOrigin == LAUNCH_PATH_PROC) {
        const bool bSure = launch.pFile != nullptr && launch.pFile->IsSure();
        launch.strLink = bSure ? launch.pFile->LinkIn(*m_options.pLinks, strName) : "";
        launch.eOrigin = launch.strLink.empty() ? LAUNCH_PATH_NONE : LAUNCH_PATH_HELD;
        launch.creation.strPath = launch.pFile == nullptr ? "" : strName;
    }
}

FileVersion LaunchSource::VersionOf(const LaunchEvent& event) {
    return {event.nDevice, event.nInode, event.nSize, event.nChanged,
            event.bFresh ? ++m_nFresh : 0};
}

// By a path that leads to it, else by what was opened for the start.
HeldFileRef LaunchSource::Held(const LaunchEvent& event, const Launch& launch,
                               const FileVersion& version, const std::string& strName) {
    StartedFile file(event, ExeLink(event), m_options.fnLook);
    const auto fnMatchOf = [&](const std::string& strFile, FileStatus& status) {
        const bool bInode = m_options.fnLook(strFile, status) && file.IsInode(status);
        // That a process runs it proves nothing: it may have started another program, that one have
        // written to the file, and started it again.
        const bool bSure = bInode && !event.bFresh && file.IsUnchanged(status);
        return bSure    ? HeldFiles::MATCH_SURE
               : bInode ? HeldFiles::MATCH_INODE
                        : HeldFiles::MATCH_NONE;
    };
    HeldFileRef pFile;
    if (launch.eOrigin != LAUNCH_PATH_NONE) {
        pFile = m_held.Hold(version, launch.creation.strPath, strName, fnMatchOf);
    }
    if (pFile == nullptr && m_pOpened != nullptr) {
        const std::string strPath = m_pOpened->PathOf(event, m_options.fnLook);
        pFile = strPath.empty() ? nullptr : m_held.Hold(version, strPath, strName, fnMatchOf);
    }
    return pFile;
}

void LaunchSource::Add(Launch launch) {
    m_observer.OnLaunch(launch);
    Batch(std::move(launch.creation), std::move(launch.strLink), std::move(launch.pFile));
}

void LaunchSource::Batch(event_message::Creation creation, std::string strLink,
                         std::shared_ptr<const HeldFile> pFile) {
    const size_t nBytes = creation.strPath.size() + creation.strCommand.size() + 2 * strLink.size();
    m_batches.Add({std::move(creation), std::move(strLink), std::move(pFile)}, nBytes,
                  Clock::now());
    ++m_launches.nBatched;
}

void LaunchSource::TakeAgain() {
    if (m_options.pAgain == nullptr || m_options.pLinks == nullptr) {
        return;
    }
    for (LaunchAgain& launch : m_options.pAgain->Take(m_options.nMostLaunches)) {
        std::string strLink = launch.pFile->LinkIn(*m_options.pLinks, launch.creation.strPath);
        if (!strLink.empty()) {
            ++m_launches.nAgain;
            Batch(std::move(launch.creation), std::move(strLink), std::move(launch.pFile));
        } else {
            ++m_launches.nNotHeld;
        }
    }
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
    std::vector<event_message::Creation> creations;
    batch.files.clear();
    batch.strTrueBody.clear();
    std::vector<Batched> items = m_batches.TakeOldest();
    bool bLinks = false;
    for (Batched& item : items) {
        creations.push_back(std::move(item.creation));
        batch.files.push_back(std::move(item.pFile));
        bLinks = bLinks || !item.strLink.empty();
    }
    if (bLinks) {
        batch.strTrueBody = event_message::CreationsOf(creations);
        for (size_t i = 0; i < items.size(); ++i) {
            if (!items[i].strLink.empty()) {
                creations[i].strPath = std::move(items[i].strLink);
            }
        }
    }
    batch.strBody = event_message::CreationsOf(creations);
    batch.nNumber = nNumber;
    batch.nCopies = 1;
    batch.nEvents = creations.size();
    m_launches.nBatched -= creations.size();
    m_observer.OnCounters(m_launches);
}
