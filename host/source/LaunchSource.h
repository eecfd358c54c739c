// The programs that start on this machine, as the kernel tells them, in batches: the launches' half
// of KernelSource.
//
// Threads: one; the observer is called on it.
// Errors: Open's text says what is missing. A launch that cannot be told is told the observer.
// Ownership: owns the sensor; the observer and the images must outlive it.
//
// Memory is bounded by the kernel's ring as long as no more is drained before what was handed out;
// what finds no room in the ring is counted as lost.
#ifndef HOST_SOURCE_LAUNCHSOURCE_H
#define HOST_SOURCE_LAUNCHSOURCE_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/source/EventMessage.h"
#include "host/source/IEventSource.h"
#include "host/source/ILaunchSensor.h"
#include "host/source/ImageTable.h"
#include "host/source/LaunchPath.h"

struct Launch {
    event_message::Creation creation;
    std::string strStarter;  // path of the program that started it, "" when nobody knows
    LaunchPathOrigin eOrigin = LAUNCH_PATH_NONE;
    bool bScript = false;  // told beside its interpreter's launch
    bool bArgsCut = false;
};

struct LaunchCounters {
    uint64_t nSensed = 0;        // launches that the kernel had, the lost ones included
    uint64_t nLost = 0;          // of these: no record
    uint64_t nBroken = 0;        // of these: a record that is none
    uint64_t nOwn = 0;           // of these: the host's own process
    uint64_t nUnresolvable = 0;  // of these: no path names the file
    uint64_t nPrograms = 0;      // of these: told
    uint64_t nScripts = 0;       // told in addition
    uint64_t nBatched = 0;       // programs and scripts in the batch in the making
    uint64_t nScriptsUntold = 0;
    uint64_t nArgsCut = 0;
    uint64_t nArgsUnreadable = 0;
    uint64_t nOthersLost = 0;  // copies and ends of processes: starters may be unknown

    // Sensed, and neither told nor counted for a reason.
    uint64_t Waiting() const {
        const uint64_t nKnown = nLost + nBroken + nOwn + nUnresolvable + nPrograms;
        return nSensed > nKnown ? nSensed - nKnown : 0;
    }
};

class ILaunchObserver {
public:
    virtual ~ILaunchObserver() = default;
    virtual void OnLaunch(const Launch& launch) = 0;
    virtual void OnUnresolvable(const LaunchEvent& event) = 0;
    // nLost launches more were lost, nTotal since the start.
    virtual void OnLost(uint64_t nLost, uint64_t nTotal) = 0;
    // The batch that Next is about to hand out and the paths in it.
    virtual void OnBatch(const EventBatch& batch, std::vector<std::string> paths) = 0;
    virtual void OnCounters(const LaunchCounters& counters) = 0;
    // Once, from Start: by what launches are sensed, and what that cannot see.
    virtual void OnNotice(const std::string& strText) = 0;
};

struct LaunchSourceOptions {
    size_t nMostLaunches = 256;                // in one batch
    size_t nMostBytes = 1024 * 1024;           // of paths and command lines, passed by one at most
    std::chrono::milliseconds batchTime{200};  // from its first launch until it is handed out
    std::chrono::milliseconds calm{250};       // without a further loss: announced together
    std::chrono::milliseconds announce{1000};  // from a loss to its announcement at the latest
    FileLook fnLook;                           // stat, unless a test brings its own
    FileLook fnLookAtScript;                   // likewise, but not through a link of /proc
    std::optional<uint32_t> nMountNs;          // the host's, unless a test brings its own
};

class LaunchSource {
public:
    using Clock = std::chrono::steady_clock;

    // images is told of every process.
    LaunchSource(std::unique_ptr<ILaunchSensor> pSensor, ILaunchObserver& observer,
                 ImageTable& images, LaunchSourceOptions options = {});

    LaunchSource(const LaunchSource&) = delete;
    LaunchSource& operator=(const LaunchSource&) = delete;

    bool Open(std::string& strError);
    // Takes everything that waits in the ring.
    void Drain();
    // No new launches from now on; records that wait can still be drained.
    void Detach();
    // Tells the observer the counters; bLast: and every loss that is not yet announced.
    void TakeCounts(bool bLast);

    // True when a batch is full or its time has come; bAny: or has anything in it.
    bool HasBatch(Clock::time_point now, bool bAny) const;
    bool IsMaking() const { return !m_making.creations.empty(); }
    // The oldest batch, under this number.
    void HandOut(EventBatch& batch, uint64_t nNumber);
    const LaunchCounters& Counters() const { return m_launches; }

private:
    struct Batch {
        std::vector<event_message::Creation> creations;
        size_t nBytes = 0;
        Clock::time_point due;
    };

    void TakeRecord(const void* pData, size_t nSize);
    void TakeExec(const LaunchEvent& event);
    void TakeScript(const LaunchEvent& event, const Launch& launch);
    void Add(Launch launch);

    const std::unique_ptr<ILaunchSensor> m_pSensor;
    ILaunchObserver& m_observer;
    ImageTable& m_images;
    LaunchSourceOptions m_options;
    const uint32_t m_nOwnPid;
    bool m_bDetached = false;
    Batch m_making;
    std::deque<Batch> m_full;
    uint64_t m_nAnnounced = 0;  // losses
    uint64_t m_nLostSeen = 0;
    Clock::time_point m_lossBegun;  // of those not announced yet
    Clock::time_point m_lossGrown;
    LaunchCounters m_launches;
};

#endif
