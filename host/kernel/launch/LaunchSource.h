// The programs that start on this machine, as the kernel reports them, in batches: the launches'
// half of KernelSource.
//
// Threads: one; the observer is called on it.
// Errors: Open's text says what is missing. A launch that cannot be reported is passed to the
// observer. Ownership: owns the sensor; the observer and the images must outlive it.
//
// Memory is bounded by the kernel's ring as long as no more is drained before what was returned;
// what finds no room in the ring is counted as lost.
#ifndef HOST_KERNEL_LAUNCH_LAUNCHSOURCE_H
#define HOST_KERNEL_LAUNCH_LAUNCHSOURCE_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/event/BatchQueue.h"
#include "host/event/EventMessage.h"
#include "host/event/IEventSource.h"
#include "host/event/LaunchesAgain.h"
#include "host/kernel/container/CgroupNames.h"
#include "host/kernel/launch/FurtherLaunches.h"
#include "host/kernel/launch/ILaunchSensor.h"
#include "host/kernel/launch/Launch.h"
#include "host/kernel/launch/LaunchPath.h"
#include "host/kernel/launch/OpenedFiles.h"
#include "host/kernel/launch/ProcessTable.h"
#include "host/kernel/launch/RepeatedLaunches.h"
#include "host/program/HeldFiles.h"

struct LaunchSourceOptions {
    size_t nMostLaunches = 256;                // in one batch
    size_t nMostRecords = 2048;                // taken at once: a flood has to let batches out
    size_t nMostBytes = 1024 * 1024;           // of paths and command lines, passed by one at most
    std::chrono::milliseconds batchTime{200};  // from its first launch until it is reported
    std::chrono::milliseconds calm{250};       // without a further loss: announced together
    std::chrono::milliseconds announce{1000};  // from a loss to its announcement at the latest
    FileLook fnLook;                           // ByMounts, unless a test brings its own
    FileLook fnLookAtScript;                   // as FurtherLaunches; null: as fnLook
    std::optional<uint32_t> nMountNs;          // the host's, unless a test brings its own
    std::optional<std::string> strCgroups;     // where cgroup2 is mounted, likewise
    // Where links to held files are made; null: no file is held. Must outlive what is held.
    std::shared_ptr<PinDirectory> pLinks;
    std::shared_ptr<LaunchesAgain> pAgain;  // null: none
    size_t nMostHeld = 0;                   // as HeldFiles
    // After the report of a program: others like it are counted only. 0: every one is reported.
    std::chrono::milliseconds repeats{0};
};

class LaunchSource {
public:
    using Clock = std::chrono::steady_clock;

    // images learns of every process.
    LaunchSource(std::unique_ptr<ILaunchSensor> pSensor, ILaunchObserver& observer,
                 ProcessTable& images, LaunchSourceOptions options = {});

    LaunchSource(const LaunchSource&) = delete;
    LaunchSource& operator=(const LaunchSource&) = delete;

    bool Open(std::string& strError);
    // Takes what waits in the ring, at most nMostRecords; false when more may wait.
    bool Drain();
    // Batches what is to be reported once more.
    void TakeAgain();
    // No new launches from now on; records that wait can still be drained.
    void Detach();
    // Gives the observer the counters; bLast: and every loss that is not yet announced.
    void TakeCounts(bool bLast);
    // As the sensor.
    bool CatchUp(std::chrono::milliseconds wait) { return m_pSensor->CatchUp(wait); }
    bool IsExact() const { return m_pSensor->IsExact(); }
    int Descriptor() const { return m_pSensor->Descriptor(); }
    // From now on a launch makes the descriptor readable; false: one was taken just now.
    bool FallAsleep() {
        m_pSensor->SetSleeping(true);
        const uint64_t nStarts = m_nStarts;
        return Drain() && m_nStarts == nStarts;
    }
    uint64_t Starts() const { return m_nStarts; }  // taken so far
    void WakeUp() { m_pSensor->SetSleeping(false); }

    // True when a batch is full or its time has come; bAny: or has anything in it.
    bool HasBatch(Clock::time_point now, bool bAny) const { return m_batches.HasBatch(now, bAny); }
    bool IsFilling() const { return m_batches.IsFilling(); }
    // The oldest batch, under this number.
    void TakeBatch(EventBatch& batch, uint64_t nNumber);
    const LaunchCounters& Counters() const { return m_launches; }

private:
    struct Batched {
        event_message::Creation creation;  // under its own name
        std::string strLink;               // what the module gets instead; "" for none
        std::shared_ptr<const HeldFile> pFile;
    };

    void TakeRecord(const void* pData, size_t nSize);
    void TakeExec(const LaunchEvent& event);
    void Hold(const LaunchEvent& event, Launch& launch);
    FileVersion VersionOf(const LaunchEvent& event);
    HeldFileRef Held(const LaunchEvent& event, const Launch& launch, const FileVersion& version,
                     const std::string& strName);
    void Add(Launch launch);
    void Batch(event_message::Creation creation, std::string strLink,
               std::shared_ptr<const HeldFile> pFile);

    const std::unique_ptr<ILaunchSensor> m_pSensor;
    ILaunchObserver& m_observer;
    ProcessTable& m_images;
    LaunchSourceOptions m_options;
    CgroupNames m_cgroups;
    const uint32_t m_nOwnPid;
    bool m_bDetached = false;
    uint64_t m_nStarts = 0;  // records of starts that were taken
    uint64_t m_nFresh = 0;   // starts of files that were changed just before
    HeldFiles m_held;
    std::unique_ptr<OpenedFiles> m_pOpened;  // null where it is of no use, or refused
    RepeatedLaunches m_repeats;
    std::unique_ptr<FurtherLaunches> m_pFurther;
    BatchQueue<Batched> m_batches;
    uint64_t m_nAnnounced = 0;  // losses
    uint64_t m_nLostSeen = 0;
    Clock::time_point m_lossBegun;  // of those not announced yet
    Clock::time_point m_lossGrown;
    LaunchCounters m_launches;
};

#endif
