// What happens to files on this machine, as the kernel reports it, in batches: the file operations'
// half of KernelSource.
//
// Threads: one; the observer is called on it.
// Errors: Open's text says what is missing. What cannot be reported is counted.
// Ownership: owns the sensor; everything else that it is given must outlive it.
//
// Memory is bounded by what one Read takes and one comparison finds, as long as no more is read
// before what was returned.
#ifndef HOST_KERNEL_FILE_FILESOURCE_H
#define HOST_KERNEL_FILE_FILESOURCE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/event/FileOperation.h"
#include "host/event/WatchedPaths.h"
#include "host/kernel/file/DirectoryPathCache.h"
#include "host/kernel/file/FileEvent.h"
#include "host/kernel/file/FileReports.h"
#include "host/kernel/file/HeldEvents.h"
#include "host/kernel/file/IFileSensor.h"
#include "host/kernel/file/PlaceComparison.h"
#include "host/kernel/launch/ProcessTable.h"

struct FileSourceOptions : FileReportsOptions {
    size_t nReadBytes = 256 * 1024;            // taken from the kernel at once
    size_t nMostHeld = 32 << 20;               // bytes taken from the kernel and not yet decoded
    std::chrono::milliseconds announce{1000};  // between two announcements of losses
    std::chrono::milliseconds compare{1000};   // between two comparisons of the watched places
    std::vector<std::string> ignored;          // directories of the host's own
    NamesIn fnNames = directory_names::In;
};

class FileSource {
public:
    using Clock = std::chrono::steady_clock;

    FileSource(std::unique_ptr<IFileSensor> pSensor, IFileObserver& observer,
               const WatchedPaths& places, ProcessTable& images, FileSourceOptions options = {});

    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;

    bool Open(std::string& strError);
    int Descriptor() const { return m_pSensor->Descriptor(); }
    bool ReportsStarts(uint32_t nDevice) const { return m_pSensor->ReportsStarts(nDevice); }
    // Once the directories in the options are there.
    void Ignore();

    // Takes from the kernel whatever waits there, as much as there is room for, whose queue is
    // small; true when anything is held now.
    bool Read();
    // After the images know of every process until then: decodes the oldest piece held.
    void Resolve();
    bool IsHolding() const { return !m_held.IsEmpty(); }
    // Whether the last Read left nothing in the kernel.
    bool HasReadAll() const { return m_bReadAll; }
    // No new events from now on; those that wait can still be read.
    void Detach();
    // Gives the observer notices and counters; bLast: and every loss not yet announced.
    void TakeCounts(bool bLast);

    // True when a batch is full or its time has come; bAny: or has anything in it.
    bool HasBatch(Clock::time_point now, bool bAny) const { return m_reports.HasBatch(now, bAny); }
    bool IsFilling() const { return m_reports.IsFilling(); }
    // The oldest batch, under this number.
    void TakeBatch(EventBatch& batch, uint64_t nNumber) { m_reports.TakeBatch(batch, nNumber); }
    const FileCounters& Counters() const { return m_reports.Counters(); }

private:
    FileCounters& Count() { return m_reports.Counters(); }
    std::string OpenDirectory(std::string_view strHandle);
    std::string PathOf(const FileSpot& spot) {
        return m_pSensor->PathInPlace(m_paths.PathOf(spot));
    }
    void Take(const FileEvent& event);
    void TakeOverflow();
    std::string WatchedName(const FileEvent& event, const std::string& strPath, bool bNameless);
    bool IsNameless(const FileEvent& event, const std::string& strPath) const;
    void TakeWrite(const FileEvent& event, const std::string& strPath);
    void TakeLink(const FileEvent& event, const std::string& strPath);
    void MarkLinked();
    void TendDirectory(const std::string& strPath);
    void TakeRename(const FileEvent& event);
    void TakeSpot(const FileEvent& event);
    void TakeMoveOfOldKernel(const FileEvent& event, const std::string& strPath);
    void Report(FileAct eAct, const FileEvent& event, std::string_view strDirectory,
                const std::string& strPath);

    const std::unique_ptr<IFileSensor> m_pSensor;
    IFileObserver& m_observer;
    const WatchedPaths& m_places;
    ProcessTable& m_images;
    const FileSourceOptions m_options;
    FileReports m_reports;
    DirectoryPathCache m_paths;
    PlaceComparison m_comparison;
    std::vector<char> m_buffer;  // for one read
    HeldEvents m_held;
    bool m_bReadAll = false;
    bool m_bCaughtUp = false;  // m_bReadAll, and not compared or settled since
    bool m_bDetached = false;
    uint64_t m_nNotedBefore = 0;  // starts, before the kernel had nothing more
    int m_nOpening = 0;           // directories being opened, one for the sake of another
    uint64_t m_nCaptureNanos = 0;
    uint64_t m_nAnnounced = 0;  // overflows
    Clock::time_point m_announceDue;
};

#endif
