// What this machine does, as its kernel reports it: launches and file operations, in batches of one
// kind each, numbered from one counter.
//
// Both come from one thread, in this order: read file operations, take every launch until then,
// find out who did what. A file operation of a program is thus never analysed before its launch.
// After a loss of launches nobody is said to have done what was done before the processes that run
// were looked at anew.
//
// Threads: as IEventSource; the observers are called on the thread that calls Start and Next.
// Errors: Start's text says what is missing. Where only the file operations are refused it goes on
//   without them, and says so.
// Ownership: owns the sensors; the observers must outlive it.
#ifndef HOST_KERNEL_KERNELSOURCE_H
#define HOST_KERNEL_KERNELSOURCE_H

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "host/base/WakeFd.h"
#include "host/event/IEventSource.h"
#include "host/kernel/file/FileSource.h"
#include "host/kernel/launch/LaunchSource.h"

struct KernelSourceOptions {
    std::chrono::milliseconds look{15};  // between two looks at the sensors
    // Likewise while nothing waits and a launch ends the sleep.
    std::chrono::milliseconds rest{500};
    std::chrono::milliseconds gather{5};  // between two looks while something happens
    std::shared_ptr<WatchedPaths> pPlaces = std::make_shared<WatchedPaths>();
    LaunchSourceOptions launches;
    FileSourceOptions files;
};

class KernelSource : public IEventSource {
public:
    // A sensor that is null is left out, with its observer's calls.
    KernelSource(std::unique_ptr<ILaunchSensor> pLaunches, ILaunchObserver& launchObserver,
                 std::unique_ptr<IFileSensor> pFiles, IFileObserver& fileObserver,
                 KernelSourceOptions options = {});

    KernelSource(const KernelSource&) = delete;
    KernelSource& operator=(const KernelSource&) = delete;

    bool Start(std::string& strError) override;
    SourceResult Next(EventBatch& batch, std::chrono::milliseconds wait) override;
    void Stop() override;
    SourceCounters Counters() const override { return m_counters; }
    std::string Name() const override { return "the kernel of this machine"; }

private:
    using Clock = std::chrono::steady_clock;

    // Whether the table of processes knows every start before the file operations that are held.
    enum Knowledge {
        KNOWS_ALL,
        KNOWS_NEWER,  // of the processes since the table was made anew, after these operations
        KNOWS_LITTLE  // starts are missing
    };

    void Begin();
    bool ReadFiles();
    void Judge(bool bCaughtUp);
    bool Look(bool bLast);
    bool TakeBatch(EventBatch& batch, bool bAny);
    void Sleep(bool bBusy, Clock::time_point due);
    SourceResult Rest(EventBatch& batch);

    const KernelSourceOptions m_options;
    IFileObserver& m_fileObserver;
    ProcessTable m_images;
    std::unique_ptr<LaunchSource> m_pLaunches;
    std::unique_ptr<FileSource> m_pFiles;
    WakeFd m_wake;  // Stop wakes Next
    std::atomic<bool> m_bStopped{false};
    int m_nLooksBehind = 0;  // since all launches were taken
    Knowledge m_eKnowledge = KNOWS_ALL;
    uint64_t m_nMissing = 0;  // records of launches, copies and ends, when it was last looked at
    Clock::time_point m_renewDue;
    Clock::time_point m_fellAsleep;
    uint64_t m_nStarts = 0;  // launches that were taken by then
    bool m_bBegun = false;
    bool m_bDetached = false;
    std::string m_strNotice;  // to be reported when the run has begun
    SourceCounters m_counters;
};

#endif
