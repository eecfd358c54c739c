// Makes file operations of what happened to paths: decides what is reported, looks up who acted,
// counts all of it, and hands what is reported to the observer and into batches.
//
// Threads: one; the observer is called on it. Errors: none but std::bad_alloc.
// Ownership: everything that it is given must outlive it.
#ifndef HOST_KERNEL_FILE_FILEREPORTS_H
#define HOST_KERNEL_FILE_FILEREPORTS_H

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "host/event/BatchQueue.h"
#include "host/event/FileOperation.h"
#include "host/event/WatchedPaths.h"
#include "host/kernel/file/FileEvent.h"
#include "host/kernel/file/IFileSensor.h"
#include "host/kernel/file/KnownFiles.h"
#include "host/kernel/launch/ProcessTable.h"

struct FileReportsOptions {
    bool bAll = false;                // report every operation, not only what the module can act on
    size_t nMostOperations = 256;     // in one batch
    size_t nMostBytes = 1024 * 1024;  // of paths, passed by one at most
    std::chrono::milliseconds batchTime{200};  // from its first operation until it is reported
    FileLook fnLook = file_look::AtItself;
    FileLook fnLookThrough = file_look::AtTarget;
};

class FileReports {
public:
    using Clock = std::chrono::steady_clock;

    FileReports(const IFileSensor& sensor, IFileObserver& observer, const WatchedPaths& places,
                ProcessTable& images, FileReportsOptions options);

    // strPath: where it happened, "" when that is not known; strDirectory: the handle of its
    // directory; tmRead: when the event was read. True when the path is in a watched place.
    bool Report(FileAct eAct, const FileEvent& event, std::string_view strDirectory,
                const std::string& strPath, int64_t tmRead);
    // What happened to a file that has no path.
    void CountUnwatched(const FileEvent& event);
    // What no event reported, or one that was lost.
    void ReportFound(const FoundFile& found);
    // Whether a write without a closure was reported in this batch already: a process that writes
    // in small pieces leads to one operation in a batch, and to one more when it closes the file.
    bool IsRepeat(const FileEvent& event, const std::string& strPath);
    // Gives the observer what was reported since the last call.
    void Observe();

    bool HasBatch(Clock::time_point now, bool bAny) const { return m_batches.HasBatch(now, bAny); }
    bool IsFilling() const { return m_batches.IsFilling(); }
    // The oldest batch, under this number.
    void TakeBatch(EventBatch& batch, uint64_t nNumber);
    FileCounters& Counters() { return m_files; }
    const FileCounters& Counters() const { return m_files; }

private:
    void Add(FileOperation operation);
    bool IsCreatedPipe(const FileEvent& event, const std::string& strPath, FileStatus& status);
    bool IsPipe(const std::string& strPath, FileStatus& status) const;

    const IFileSensor& m_sensor;
    IFileObserver& m_observer;
    const WatchedPaths& m_places;
    ProcessTable& m_images;
    const FileReportsOptions m_options;
    const uint32_t m_nOwnPid;
    std::vector<FileOperation> m_reported;  // and not observed yet
    BatchQueue<FileOperation> m_batches;
    std::unordered_set<std::string> m_written;  // reported, in the batch of that number
    uint64_t m_nWrittenIn = 0;
    FileCounters m_files;
};

#endif
