#include "host/kernel/file/FileSource.h"

#include <sys/fanotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <utility>

#include "host/event/EventMessage.h"
#include "host/kernel/file/ThreadTimer.h"

FileSource::FileSource(std::unique_ptr<IFileSensor> pSensor, IFileObserver& observer,
                       const WatchedPaths& places, ProcessTable& images, FileSourceOptions options)
    : m_pSensor(std::move(pSensor)),
      m_observer(observer),
      m_places(places),
      m_images(images),
      m_options(std::move(options)),
      m_nOwnPid(static_cast<uint32_t>(getpid())),
      m_paths([this](std::string_view strHandle) { return OpenDirectory(strHandle); }),
      m_buffer(m_options.nReadBytes),
      m_batches({m_options.nMostOperations, m_options.nMostBytes, m_options.batchTime}) {
    if (!m_options.fnLook) {
        m_options.fnLook = file_look::AtItself;
    }
    if (!m_options.fnLookThrough) {
        m_options.fnLookThrough = file_look::AtTarget;
    }
}

bool FileSource::Open(std::string& strError) {
    return m_pSensor->Open(strError);
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
        m_bReadAll = nRead == 0;
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
        if (m_pSensor->Tend()) {
            m_paths.Clear();
        }
        if (IsHolding()) {
            const std::string_view strEvents = m_held.Oldest();
            FileEventReader reader(strEvents.data(), strEvents.size());
            FileEvent event;
            while (reader.Next(event)) {
                Take(event);
            }
            m_files.nBroken += reader.Broken();
            m_held.RemoveOldest();
        }
    }
    m_files.nCaptureMicros = m_nCaptureNanos / 1000;
    for (const FileOperation& operation : m_reported) {
        m_observer.OnOperation(operation);
    }
    m_reported.clear();
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
    ++m_files.nEvents;
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

// One without a path is nothing to mark, and "" would stand for all of them.
void FileSource::TendDirectory(const std::string& strPath) {
    if (!strPath.empty()) {
        m_pSensor->OnDirectory(strPath);
    }
}

// Moves and starts may be among what was lost.
void FileSource::TakeOverflow() {
    ++m_files.nOverflows;
    m_paths.Clear();
    m_images.CatchUp();
}

void FileSource::TakeRename(const FileEvent& event) {
    const std::string strFrom = m_paths.PathOf(event.from);
    const bool bDirectory = (event.nMask & FAN_ONDIR) != 0;
    if (bDirectory) {
        m_paths.Moved(event.from, event.to, event.strTarget);
    }
    const std::string strTo = m_paths.PathOf(event.to);
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
    const std::string strPath = m_paths.PathOf(event.spot);
    const bool bDirectory = (event.nMask & FAN_ONDIR) != 0;
    if ((event.nMask & FAN_CREATE) != 0) {
        if (bDirectory) {
            m_paths.Made(event.spot, event.strTarget);
            TendDirectory(strPath);
        }
        Report(FILE_CREATE, event, strDirectory, strPath);
    }
    if ((event.nMask & FAN_MOVED_TO) != 0) {
        TakeMoveOfOldKernel(event, strPath);
    }
    if ((event.nMask & (FAN_CLOSE_WRITE | FAN_MODIFY)) != 0 && !IsRepeat(event, strPath)) {
        Report(FILE_WRITE, event, strDirectory, strPath);
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

// A process that writes in small pieces leads to one operation in a batch, and to one more when it
// closes the file.
bool FileSource::IsRepeat(const FileEvent& event, const std::string& strPath) {
    if ((event.nMask & FAN_CLOSE_WRITE) != 0 || event.nPid == m_nOwnPid ||
        !WatchedPaths::IsWatched(FILE_WRITE, m_places.Spelled(strPath))) {
        return false;
    }
    if (std::exchange(m_nWrittenIn, m_batches.Number()) != m_batches.Number()) {
        m_written.clear();
    }
    return !m_written.insert(std::to_string(event.nPid) + strPath).second;
}

void FileSource::Report(FileAct eAct, const FileEvent& event, std::string_view strDirectory,
                        const std::string& strPath) {
    ++m_files.nCaptured;
    if (event.nPid == m_nOwnPid) {
        ++m_files.nOwn;
        return;
    }
    if (strPath.empty()) {
        ++m_files.nUnresolved;
        return;
    }
    FileOperation operation;
    FileStatus status;
    operation.eAct = eAct;
    operation.strPath = m_places.Spelled(strPath);
    operation.bPlace = WatchedPaths::IsWatched(eAct, operation.strPath);
    operation.bPipe =
        eAct == FILE_CREATE && (event.nMask & FAN_ONDIR) == 0 && IsPipe(strPath, status);
    if (!operation.bPlace && !operation.bPipe && !m_options.bAll) {
        ++m_files.nUnwatched;
        return;
    }
    // Of what became of one file between two looks the removal is the last.
    constexpr uint64_t BEFORE = FAN_CREATE | FAN_CLOSE_WRITE | FAN_MODIFY;
    const bool bLast = eAct == FILE_REMOVE && (event.nMask & BEFORE) != 0;
    ActingProgram program = m_images.ActingOf(event.nPid, bLast);
    operation.strProgram = std::move(program.strPath);
    operation.strProgramName = std::move(program.strName);
    operation.strFsType = m_pSensor->FsTypeOf(strDirectory);
    operation.nInode = status.st_ino != 0 ? status.st_ino : file_handle_key::Inode(event.strTarget);
    operation.nPid = event.nPid;
    operation.tmWhen = m_held.OldestRead();
    m_files.nNoProgram += operation.strProgram.empty() ? 1 : 0;
    ++m_files.nReported;
    ++m_files.nBatched;
    m_reported.push_back(operation);
    const size_t nBytes = operation.strPath.size() + operation.strProgram.size();
    m_batches.Add(std::move(operation), nBytes, Clock::now());
}

// As the module looks: through a link.
bool FileSource::IsPipe(const std::string& strPath, FileStatus& status) const {
    if (!m_options.fnLook(strPath, status)) {
        return false;
    }
    FileStatus target;
    return S_ISFIFO(status.st_mode) ||
           (S_ISLNK(status.st_mode) && m_options.fnLookThrough(strPath, target) &&
            S_ISFIFO(target.st_mode));
}

void FileSource::TakeCounts(bool bLast) {
    for (const std::string& strNotice : m_pSensor->TakeNotices()) {
        m_observer.OnNotice(strNotice);
    }
    const auto now = Clock::now();
    if (m_files.nOverflows > m_nAnnounced && (bLast || now >= m_announceDue)) {
        m_observer.OnOverflow(m_files.nOverflows - m_nAnnounced, m_files.nOverflows);
        m_nAnnounced = m_files.nOverflows;
        m_announceDue = now + m_options.announce;
    }
    m_observer.OnFileCounters(m_files);
}

void FileSource::TakeBatch(EventBatch& batch, uint64_t nNumber) {
    const std::vector<FileOperation> operations = m_batches.TakeOldest();
    batch.strBody = event_message::OperationsOf(operations);
    batch.nNumber = nNumber;
    batch.nCopies = 1;
    batch.nEvents = operations.size();
    m_files.nBatched -= operations.size();
    m_observer.OnFileCounters(m_files);
}
