#include "host/kernel/file/FileSource.h"

#include <sys/fanotify.h>
#include <sys/stat.h>

#include <ctime>
#include <utility>

#include "host/kernel/file/ThreadTimer.h"

FileSource::FileSource(std::unique_ptr<IFileSensor> pSensor, IFileObserver& observer,
                       const WatchedPaths& places, ProcessTable& images, FileSourceOptions options)
    : m_pSensor(std::move(pSensor)),
      m_observer(observer),
      m_places(places),
      m_images(images),
      m_options(std::move(options)),
      m_reports(*m_pSensor, observer, places, images, m_options),
      m_paths([this](std::string_view strHandle) { return OpenDirectory(strHandle); }),
      m_comparison(places, m_options.fnLook, m_options.fnNames, m_options.compare),
      m_buffer(m_options.nReadBytes) {}

bool FileSource::Open(std::string& strError) {
    if (!m_pSensor->Open(strError)) {
        return false;
    }
    m_comparison.Begin();
    MarkLinked();
    return true;
}

void FileSource::Detach() {
    m_pSensor->Detach();
    m_bDetached = true;
}

void FileSource::Ignore() {
    for (const std::string& strDirectory : m_options.ignored) {
        m_pSensor->Ignore(strDirectory);
    }
}

bool FileSource::Read() {
    const ThreadTimer time(m_nCaptureNanos);
    // Starts noted before a look that left nothing in the kernel came before what is read after it.
    if (!IsHolding()) {
        m_images.SetSettled(m_nNotedBefore);
    }
    const uint64_t nNoted = m_images.Noted();
    while (m_held.Bytes() < m_options.nMostHeld) {
        const size_t nRead = m_pSensor->Read(m_buffer.data(), m_buffer.size());
        m_bReadAll = m_bCaughtUp = nRead == 0;
        if (m_bReadAll) {
            m_nNotedBefore = nNoted;
            break;
        }
        m_held.Add(m_buffer.data(), nRead, static_cast<int64_t>(::time(nullptr)));
    }
    return IsHolding();
}

void FileSource::Resolve() {
    {
        const ThreadTimer time(m_nCaptureNanos);
        const MountChange eChange = m_pSensor->Tend();
        if (eChange != NO_MOUNTS) {
            m_paths.Clear();
            m_comparison.Doubt(eChange == PLACE_MOUNTS);
        }
        if (IsHolding()) {
            const std::string_view strEvents = m_held.Oldest();
            FileEventReader reader(strEvents.data(), strEvents.size());
            FileEvent event;
            while (reader.Next(event)) {
                Take(event);
            }
            Count().nBroken += reader.Broken();
            m_held.RemoveOldest();
        }
        if (m_bCaughtUp && !IsHolding()) {
            m_bCaughtUp = false;
            m_comparison.CaughtUp(Clock::now(), m_bDetached,
                                  [this](const FoundFile& found) { m_reports.ReportFound(found); });
            MarkLinked();
        }
    }
    Count().nCaptureMicros = m_nCaptureNanos / 1000;
    m_reports.Observe();
}

// A directory that is gone by now stood where its own removal, among the later events, says.
std::string FileSource::OpenDirectory(std::string_view strHandle) {
    constexpr int MOST_ABOVE = 64;
    std::string strPath = m_pSensor->PathOf(strHandle);
    if (!strPath.empty() || m_nOpening >= MOST_ABOVE) {
        return strPath;
    }
    if (const std::optional<FileSpot> spot = m_held.WhereRemoved(strHandle)) {
        ++m_nOpening;
        strPath = m_paths.PathOf(*spot);
        --m_nOpening;
    }
    return strPath;
}

void FileSource::Take(const FileEvent& event) {
    if ((event.nMask & FAN_Q_OVERFLOW) != 0) {
        TakeOverflow();
        return;
    }
    ++Count().nEvents;
    if ((event.nMask & FAN_OPEN_EXEC) != 0) {
        m_images.Opened(event.nPid, file_handle_key::Inode(event.strTarget));
    }
    if ((event.nMask & FAN_RENAME) != 0) {
        TakeRename(event);
    }
    constexpr uint64_t AT_SPOT =
        FAN_CREATE | FAN_DELETE | FAN_CLOSE_WRITE | FAN_MODIFY | FAN_MOVED_FROM | FAN_MOVED_TO;
    if ((event.nMask & AT_SPOT) != 0) {
        TakeSpot(event);
    }
}

// The name in a watched place of a file that was written to under another one or under none; else
// strPath.
std::string FileSource::WatchedName(const FileEvent& event, const std::string& strPath,
                                    bool bNameless) {
    std::string strName = m_comparison.NameOf(file_handle_key::Inode(event.strTarget));
    const bool bOther =
        !strName.empty() && strName != strPath &&
        (bNameless || !WatchedPaths::IsWatched(FILE_CREATE, m_places.Spelled(strPath)));
    return bOther && m_pSensor->IsFile(strName, event.strTarget) ? strName : strPath;
}

// A file that is made without a name (O_TMPFILE) has "#" and its inode for one in the events of its
// writers, also when it was given another one since.
bool FileSource::IsNameless(const FileEvent& event, const std::string& strPath) const {
    if (event.spot.strName.substr(0, 1) != "#") {
        return false;
    }
    const uint64_t nInode = file_handle_key::Inode(event.strTarget);
    FileStatus status;
    return nInode != 0 && event.spot.strName.substr(1) == std::to_string(nInode) &&
           !(m_options.fnLook(strPath, status) && status.st_ino == nInode);
}

void FileSource::TakeWrite(const FileEvent& event, const std::string& strPath) {
    const bool bNameless = IsNameless(event, strPath);
    const std::string strWritten = WatchedName(event, strPath, bNameless);
    if (bNameless && strWritten == strPath) {
        m_reports.CountUnwatched(event);
    } else if (!m_reports.IsRepeat(event, strWritten)) {
        Report(FILE_WRITE, event, event.spot.strDirectory, strWritten);
    }
}

// A further name may be one of a file in a watched place, which is examined for that.
void FileSource::TakeLink(const FileEvent& event, const std::string& strPath) {
    const std::string strName = m_comparison.NameOf(file_handle_key::Inode(event.strTarget));
    if (!strName.empty() && strName != strPath) {
        m_comparison.Reported(strName, 0);
    }
}

void FileSource::MarkLinked() {
    for (const std::string& strPath : m_comparison.TakeLinked()) {
        if (WatchedPaths::IsWatched(FILE_WRITE, m_places.Spelled(strPath))) {
            m_pSensor->OnLinked(strPath);
        }
    }
}

// One without a path is nothing to mark, and "" would stand for all of them.
void FileSource::TendDirectory(const std::string& strPath) {
    if (!strPath.empty()) {
        m_pSensor->OnDirectory(strPath);
    }
}

// Moves and starts may be among what was lost.
void FileSource::TakeOverflow() {
    ++Count().nOverflows;
    m_paths.Clear();
    m_images.CatchUp();
    m_comparison.Doubt(true);
}

void FileSource::TakeRename(const FileEvent& event) {
    const std::string strFrom = PathOf(event.from);
    const bool bDirectory = (event.nMask & FAN_ONDIR) != 0;
    if (bDirectory) {
        m_paths.Moved(event.from, event.to, event.strTarget);
    }
    const std::string strTo = PathOf(event.to);
    if (bDirectory) {
        TendDirectory(strTo);
    }
    Report(FILE_RENAME, event, event.from.strDirectory, strFrom);
    if (event.from.strDirectory != event.to.strDirectory ||
        WatchedPaths::IsWatched(FILE_CREATE, m_places.Spelled(strTo))) {
        Report(FILE_CREATE, event, event.to.strDirectory, strTo);
    }
}

// In the order in which they happen to a file; one event may hold them all.
void FileSource::TakeSpot(const FileEvent& event) {
    const std::string_view strDirectory = event.spot.strDirectory;
    const std::string strPath = PathOf(event.spot);
    const bool bDirectory = (event.nMask & FAN_ONDIR) != 0;
    if ((event.nMask & FAN_CREATE) != 0) {
        if (bDirectory) {
            m_paths.Made(event.spot, event.strTarget);
            TendDirectory(strPath);
        }
        Report(FILE_CREATE, event, strDirectory, strPath);
        TakeLink(event, strPath);
    }
    if ((event.nMask & FAN_MOVED_TO) != 0) {
        TakeMoveOfOldKernel(event, strPath);
    }
    if ((event.nMask & (FAN_CLOSE_WRITE | FAN_MODIFY)) != 0) {
        TakeWrite(event, strPath);
    }
    if ((event.nMask & FAN_MOVED_FROM) != 0) {
        TakeMoveOfOldKernel(event, strPath);
    }
    if ((event.nMask & FAN_DELETE) != 0) {
        if (bDirectory) {
            m_paths.Removed(event.spot, event.strTarget);
        }
        Report(FILE_REMOVE, event, strDirectory, strPath);
    }
}

// Before Linux 5.17 nothing reports where a directory was moved to.
void FileSource::TakeMoveOfOldKernel(const FileEvent& event, const std::string& strPath) {
    const bool bFrom = (event.nMask & FAN_MOVED_FROM) != 0;
    if ((event.nMask & FAN_ONDIR) != 0) {
        m_paths.Clear();
        TendDirectory(strPath);
    }
    Report(bFrom ? FILE_RENAME : FILE_CREATE, event, event.spot.strDirectory, strPath);
}

void FileSource::Report(FileAct eAct, const FileEvent& event, std::string_view strDirectory,
                        const std::string& strPath) {
    if (m_reports.Report(eAct, event, strDirectory, strPath, m_held.OldestRead())) {
        const bool bThere = eAct == FILE_CREATE || eAct == FILE_WRITE;
        m_comparison.Reported(strPath, bThere ? file_handle_key::Inode(event.strTarget) : 0);
    }
}

void FileSource::TakeCounts(bool bLast) {
    for (const auto& notices : {m_pSensor->TakeNotices(), m_comparison.TakeNotices()}) {
        for (const std::string& strNotice : notices) {
            m_observer.OnNotice(strNotice);
        }
    }
    const auto now = Clock::now();
    if (Count().nOverflows > m_nAnnounced && (bLast || now >= m_announceDue)) {
        m_observer.OnOverflow(Count().nOverflows - m_nAnnounced, Count().nOverflows);
        m_nAnnounced = Count().nOverflows;
        m_announceDue = now + m_options.announce;
    }
    m_observer.OnFileCounters(Counters());
}
