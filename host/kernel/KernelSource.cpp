#include "host/kernel/KernelSource.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

using std::chrono::milliseconds;

// After the sensor was detached it may still be at work on another processor for a moment.
constexpr milliseconds LAST_RECORDS(200);
// Launches that come faster than this are gathered: each would cost the machine an interrupt.
constexpr std::chrono::microseconds STORM(500);
constexpr milliseconds CATCH_UP(100);      // for records that a sensor of this process makes
constexpr milliseconds RENEW_EVERY(1000);  // at most: it looks at every process
constexpr int MOST_LOOKS_BEHIND = 64;      // take more launches than the sensor has room for

}  // namespace

KernelSource::KernelSource(std::unique_ptr<ILaunchSensor> pLaunches,
                           ILaunchObserver& launchObserver, std::unique_ptr<IFileSensor> pFiles,
                           IFileObserver& fileObserver, KernelSourceOptions options)
    : m_options(std::move(options)),
      m_fileObserver(fileObserver),
      m_images(m_options.launches.fnLook) {
    if (pLaunches != nullptr) {
        m_pLaunches = std::make_unique<LaunchSource>(std::move(pLaunches), launchObserver, m_images,
                                                     m_options.launches);
    }
    if (pFiles != nullptr) {
        m_pFiles = std::make_unique<FileSource>(std::move(pFiles), fileObserver, *m_options.pPlaces,
                                                m_images, m_options.files);
    }
}

bool KernelSource::Start(std::string& strError) {
    if (!m_wake.Open()) {
        strError = std::string("cannot make an eventfd: ") + std::strerror(errno);
        return false;
    }
    if (m_pLaunches != nullptr && !m_pLaunches->Open(strError)) {
        return false;
    }
    std::string strRefused;
    if (m_pFiles != nullptr && !m_pFiles->Open(strRefused)) {
        m_pFiles.reset();
        if (m_pLaunches == nullptr) {
            strError = strRefused;
            return false;
        }
        m_strNotice = strRefused + "; watching launches only";
    }
    if (m_pLaunches != nullptr && m_pFiles != nullptr) {
        m_images.SetExact(m_pLaunches->IsExact());
        m_images.Seed();
        (void)m_pLaunches->Drain();  // starts without an opening
        m_images.CatchUp();
        m_images.SetReportsStarts(
            [this](uint32_t nDevice) { return m_pFiles->ReportsStarts(nDevice); });
    }
    return true;
}

void KernelSource::Stop() {
    m_bStopped = true;
    m_wake.Wake();
}

// The host's own directories are there by now, and its observers ready.
void KernelSource::Begin() {
    if (std::exchange(m_bBegun, true)) {
        return;
    }
    if (!m_strNotice.empty()) {
        m_fileObserver.OnNotice(m_strNotice);
    }
    if (m_pFiles != nullptr) {
        m_pFiles->Ignore();
    }
}

SourceResult KernelSource::Next(EventBatch& batch, milliseconds wait) {
    Begin();
    const auto due = Clock::now() + wait;
    while (!m_bStopped) {
        if (m_pFiles != nullptr) {
            (void)ReadFiles();  // between two batches as well: the kernel's queue is small
        }
        if (TakeBatch(batch, false)) {
            return SOURCE_BATCH;
        }
        const bool bBusy = Look(false);
        if (TakeBatch(batch, false)) {
            return SOURCE_BATCH;
        }
        if (Clock::now() >= due) {
            return SOURCE_NOTHING_YET;
        }
        Sleep(bBusy, due);
    }
    return Rest(batch);
}

// True when there was something, so that more is likely.
bool KernelSource::Look(bool bLast) {
    m_images.Tick(Clock::now());
    const bool bFiles = m_pFiles != nullptr && ReadFiles();
    if (m_pLaunches != nullptr) {
        // In doubt it is of no use to wait: a flood of launches does not hold this thread.
        const bool bNeeded = bFiles && m_eKnowledge == KNOWS_ALL;
        const bool bCaughtUp = !bNeeded || m_pLaunches->CatchUp(CATCH_UP);
        m_nLooksBehind = m_pLaunches->Drain() ? 0 : m_nLooksBehind + 1;
        m_pLaunches->TakeAgain();
        m_pLaunches->TakeCounts(bLast);
        Judge(bCaughtUp && m_nLooksBehind < MOST_LOOKS_BEHIND);
    }
    // Who did what is known once every launch is; a flood without end is not waited for.
    const bool bBehind = m_nLooksBehind > 0 && m_eKnowledge == KNOWS_ALL;
    if (m_pFiles != nullptr && !bBehind) {
        do {
            m_pFiles->Resolve();
        } while (m_pFiles->IsHolding() && !m_pFiles->HasBatch(Clock::now(), false));
        m_pFiles->TakeCounts(bLast);
    }
    return bFiles || m_nLooksBehind > 0;
}

bool KernelSource::ReadFiles() {
    const bool bBehind = !m_pFiles->IsHolding() && m_pFiles->HasReadAll();
    if (m_eKnowledge == KNOWS_LITTLE && bBehind && Clock::now() >= m_renewDue) {
        m_images.Renew();
        m_renewDue = Clock::now() + RENEW_EVERY;
        m_eKnowledge = KNOWS_NEWER;
    } else if (m_eKnowledge == KNOWS_NEWER && bBehind) {
        m_eKnowledge = KNOWS_ALL;
    }
    return m_pFiles->Read();
}

void KernelSource::Judge(bool bCaughtUp) {
    const LaunchCounters& launches = m_pLaunches->Counters();
    const uint64_t nMissing = launches.nLost + launches.nOthersLost;
    if (std::exchange(m_nMissing, nMissing) != nMissing || !bCaughtUp) {
        m_eKnowledge = KNOWS_LITTLE;
    }
    m_images.SetDoubt(m_eKnowledge != KNOWS_ALL);
}

// With eBPF a launch ends the sleep, so that its file is held before anybody can put another in its
// place.
// File operations are gathered while something happens; at rest the first one ends the sleep.
void KernelSource::Sleep(bool bBusy, Clock::time_point due) {
    pollfd fds[] = {{m_wake.Fd(), POLLIN, 0}, {-1, POLLIN, 0}, {-1, POLLIN, 0}};
    bool bAtRest = !bBusy;
    if (m_pLaunches != nullptr) {
        fds[2].fd = m_pLaunches->Descriptor();
        bAtRest = bAtRest && fds[2].fd >= 0 && !m_pLaunches->IsFilling();
    }
    if (m_pFiles != nullptr && !bBusy) {
        fds[1].fd = m_pFiles->Descriptor();
    }
    const bool bFilling = m_pFiles != nullptr && m_pFiles->IsFilling();
    bAtRest = bAtRest && !bFilling;
    milliseconds sleep = bBusy ? m_options.gather : bAtRest ? m_options.rest : m_options.look;
    if (m_pLaunches == nullptr && !bFilling && !bBusy) {
        sleep = std::max(std::chrono::duration_cast<milliseconds>(due - Clock::now()), sleep);
    }
    if (m_pLaunches == nullptr) {
        (void)poll(fds, 3, static_cast<int>(sleep.count()));  // a signal: look earlier
        return;
    }
    const auto now = Clock::now();
    const bool bSoon = now - std::exchange(m_fellAsleep, now) < STORM;
    const uint64_t nNew = m_pLaunches->Starts() - std::exchange(m_nStarts, m_pLaunches->Starts());
    if (nNew > 1 || (nNew > 0 && bSoon)) {
        const timespec nap = {0, std::chrono::nanoseconds(STORM).count()};
        (void)ppoll(fds, 1, &nap, nullptr);
    } else if (m_pLaunches->FallAsleep()) {
        const auto left = std::chrono::duration_cast<milliseconds>(due - now) + milliseconds(1);
        sleep = std::min(sleep, std::max(left, milliseconds(0)));
        (void)poll(fds, 3, static_cast<int>(sleep.count()));
    }
    m_pLaunches->WakeUp();
}

bool KernelSource::TakeBatch(EventBatch& batch, bool bAny) {
    const auto now = Clock::now();
    const uint64_t nNumber = m_counters.nBatches + 1;
    // The launch of a program before what it did to files.
    if (m_pLaunches != nullptr && m_pLaunches->HasBatch(now, bAny)) {
        m_pLaunches->TakeBatch(batch, nNumber);
    } else if (m_pFiles != nullptr && m_pFiles->HasBatch(now, bAny)) {
        m_pFiles->TakeBatch(batch, nNumber);
    } else {
        return false;
    }
    ++m_counters.nBatches;
    m_counters.nEvents += batch.nEvents;
    m_counters.nUnusable = (m_pLaunches == nullptr ? 0 : m_pLaunches->Counters().nUnresolved) +
                           (m_pFiles == nullptr ? 0 : m_pFiles->Counters().nUnresolved);
    return true;
}

// What was captured before the stop.
SourceResult KernelSource::Rest(EventBatch& batch) {
    if (!std::exchange(m_bDetached, true)) {
        if (m_pLaunches != nullptr) {
            m_pLaunches->Detach();
        }
        if (m_pFiles != nullptr) {
            m_pFiles->Detach();
        }
    }
    const auto due = Clock::now() + LAST_RECORDS;
    for (;;) {
        if (TakeBatch(batch, false)) {
            return SOURCE_BATCH;
        }
        const bool bMore = Look(true);
        const bool bLaunches = m_pLaunches != nullptr && m_pLaunches->Counters().Waiting() > 0 &&
                               Clock::now() < due && poll(nullptr, 0, 1) == 0;
        if (!bMore && !bLaunches) {
            return TakeBatch(batch, true) ? SOURCE_BATCH : SOURCE_END;
        }
    }
}
