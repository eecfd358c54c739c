// The message channel: takes messages from the transport, stores them so that they survive a
// restart, and hands them one by one, oldest first, to their analyser on a thread of its own.
//
// Threads: PushMsg [transport, several at once]; Start and Exit [control]; run and below [channel].
//   They share the store, which locks for itself, and the running flag, which is atomic.
// Errors: nothing throws.
// Ownership: one object per process, made by Instance() and destroyed at library unload.
#ifndef TEVMON_CORE_CTEVCHENNALMGR_H
#define TEVMON_CORE_CTEVCHENNALMGR_H

#include <atomic>
#include <cstdint>
#include <string>

#include "framework/base/CThread.h"
#include "framework/base/SingletonAbstract.h"
#include "tevmon/core/CTevChennalDB.h"

// Message ids: which analyser a message is for.
constexpr int32_t MID_PROCESS = 5;  // "cloudad", process creations
constexpr int32_t MID_FILE = 6;     // "cloudfd", file operations

class CTevChennalMgr : public CThread, public utils::SingletonAbstract<CTevChennalMgr> {
public:
    // [transport] Queues a copy of strDetail for analyser nMid. False, with nothing queued, for an
    // empty text or id 0; true otherwise, even when the store failed: that a caller cannot
    // distinguish a lost message from a stored one is relied on. The loss stands on standard
    // output, but for one that finds no store, for lack of memory or after the exit routines.
    bool PushMsg(const std::string& strDetail, int32_t nMid);

    // [control] Starts the thread; false (logged) when the system refuses it.
    bool Start(Priority ePriority);

    // [control] Ends the thread after the analysis in hand. The queue stays for the next start.
    void Exit();
    // The same without the log line, for the module's end: there the destructor writes it.
    void EndThread();

protected:
    friend class utils::SingletonAbstract<CTevChennalMgr>;
    CTevChennalMgr() = default;
    ~CTevChennalMgr() override;

    void run() override;

    // [channel] Hands every queued message to its analyser and removes it, until the queue is
    // empty, an analyser refuses, or the running flag goes. A refused message stays at the head.
    void Drain();

    // [channel] True when record was accepted; a message for no analyser counts as accepted, one
    // whose analyser could not be made (no memory, or the process ends) does not: it waits.
    // Virtual, behind the interface's slots, so that a test can be the analyser.
    virtual bool DisathMsg(const ChennalRecord& record);

    void SetRunning(bool bRunning) { m_bRunning.exchange(bRunning ? 1 : 0); }
    bool IsRunning() const { return m_bRunning.load() != 0 && !isStoped(); }

private:
    std::atomic<uint8_t> m_bRunning{0};
};

#endif
