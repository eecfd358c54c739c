#include "host/kernel/file/FileReports.h"

#include <sys/fanotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <utility>

#include "host/event/EventMessage.h"

FileReports::FileReports(const IFileSensor& sensor, IFileObserver& observer,
                         const WatchedPaths& places, ProcessTable& images,
                         FileReportsOptions options)
    : m_sensor(sensor),
      m_observer(observer),
      m_places(places),
      m_images(images),
      m_options(std::move(options)),
      m_nOwnPid(static_cast<uint32_t>(getpid())),
      m_batches({m_options.nMostOperations, m_options.nMostBytes, m_options.batchTime}) {}

bool FileReports::IsRepeat(const FileEvent& event, const std::string& strPath) {
    if ((event.nMask & FAN_CLOSE_WRITE) != 0 || event.nPid == m_nOwnPid ||
        !WatchedPaths::IsWatched(FILE_WRITE, m_places.Spelled(strPath))) {
        return false;
    }
    if (std::exchange(m_nWrittenIn, m_batches.Number()) != m_batches.Number()) {
        m_written.clear();
    }
    return !m_written.insert(std::to_string(event.nPid) + strPath).second;
}

bool FileReports::Report(FileAct eAct, const FileEvent& event, std::string_view strDirectory,
                         const std::string& strPath, int64_t tmRead) {
    ++m_files.nCaptured;
    if (event.nPid == m_nOwnPid) {
        ++m_files.nOwn;
        return false;
    }
    if (strPath.empty()) {
        ++m_files.nUnresolved;
        return false;
    }
    FileOperation operation;
    FileStatus status;
    operation.eAct = eAct;
    operation.strPath = m_places.Spelled(strPath);
    operation.bPlace = WatchedPaths::IsWatched(eAct, operation.strPath);
    operation.bPipe = eAct == FILE_CREATE && (event.nMask & FAN_ONDIR) == 0 &&
                      IsCreatedPipe(event, strPath, status);
    const bool bInPlace =
        operation.bPlace || WatchedPaths::IsWatched(FILE_CREATE, operation.strPath);
    if (!operation.bPlace && !operation.bPipe && !m_options.bAll) {
        ++m_files.nUnwatched;
        return bInPlace;
    }
    // Of what became of one file between two looks the removal is the last.
    constexpr uint64_t BEFORE = FAN_CREATE | FAN_CLOSE_WRITE | FAN_MODIFY;
    const bool bLast = eAct == FILE_REMOVE && (event.nMask & BEFORE) != 0;
    ActingProgram program = m_images.ActingOf(event.nPid, bLast);
    operation.strProgram = std::move(program.strPath);
    operation.strProgramName = std::move(program.strName);
    operation.strFsType = m_sensor.FsTypeOf(strDirectory, strPath);
    operation.nInode = status.st_ino != 0 ? status.st_ino : file_handle_key::Inode(event.strTarget);
    operation.nPid = event.nPid;
    operation.tmWhen = tmRead;
    Add(std::move(operation));
    return bInPlace;
}

void FileReports::CountUnwatched(const FileEvent& event) {
    ++m_files.nCaptured;
    ++(event.nPid == m_nOwnPid ? m_files.nOwn : m_files.nUnwatched);
}

void FileReports::ReportFound(const FoundFile& found) {
    FileOperation operation;
    FileStatus status;
    operation.eAct = found.eAct;
    operation.strPath = m_places.Spelled(found.strPath);
    operation.bPlace = WatchedPaths::IsWatched(found.eAct, operation.strPath);
    operation.bPipe = found.eAct == FILE_CREATE && IsPipe(found.strPath, status);
    operation.bFound = true;
    if (!operation.bPlace && !operation.bPipe && !m_options.bAll) {
        return;
    }
    operation.strFsType = m_sensor.FsTypeOf("", found.strPath);
    operation.nInode = found.nInode;
    operation.tmWhen = static_cast<int64_t>(::time(nullptr));
    ++m_files.nCaptured;
    ++m_files.nFound;
    Add(std::move(operation));
}

void FileReports::Add(FileOperation operation) {
    m_files.nNoProgram += operation.strProgram.empty() ? 1 : 0;
    ++m_files.nReported;
    ++m_files.nBatched;
    m_reported.push_back(operation);
    const size_t nBytes = operation.strPath.size() + operation.strProgram.size();
    m_batches.Add(std::move(operation), nBytes, Clock::now());
}

void FileReports::Observe() {
    for (const FileOperation& operation : m_reported) {
        m_observer.OnOperation(operation);
    }
    m_reported.clear();
}

// A pipe that has another name by now, or whose name another file has, is known by its handle.
bool FileReports::IsCreatedPipe(const FileEvent& event, const std::string& strPath,
                                FileStatus& status) {
    const bool bPipe = IsPipe(strPath, status);
    const uint64_t nInode = file_handle_key::Inode(event.strTarget);
    if (status.st_ino != 0 && (nInode == 0 || nInode == status.st_ino)) {
        return bPipe;
    }
    // Removed under the same name: the handle leads nowhere, and asking has its price.
    const bool bRemoved = (event.nMask & FAN_DELETE) != 0;
    const uint32_t nKind = bRemoved ? 0 : m_sensor.KindOf(event.strTarget);
    if (nKind == 0) {
        m_files.nGone += status.st_ino == 0 ? 1 : 0;
        return bPipe;
    }
    status = FileStatus();  // of another file
    return nKind == S_IFIFO;
}

// As the module looks: through a link.
bool FileReports::IsPipe(const std::string& strPath, FileStatus& status) const {
    if (!m_options.fnLook(strPath, status)) {
        status = FileStatus();
        return false;
    }
    FileStatus target;
    return S_ISFIFO(status.st_mode) ||
           (S_ISLNK(status.st_mode) && m_options.fnLookThrough(strPath, target) &&
            S_ISFIFO(target.st_mode));
}

void FileReports::TakeBatch(EventBatch& batch, uint64_t nNumber) {
    const std::vector<FileOperation> operations = m_batches.TakeOldest();
    batch.strBody = event_message::OperationsOf(operations);
    batch.nNumber = nNumber;
    batch.nCopies = 1;
    batch.nEvents = operations.size();
    m_files.nBatched -= operations.size();
    m_observer.OnFileCounters(m_files);
}
