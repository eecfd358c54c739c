// The module's memory of cloud verdicts: records them with a lifetime by level, looks them up, and
// deletes expired ones on a thread of its own.
//
// Threads: Record [transport, several at once], GetRecord [channel], Start and Exit [control], run
//   and CheckRecords [cache]. They meet at the store's mutex, which a scan holds to its end.
// Errors: nothing throws.
// Ownership: one object per process, made by Instance() (which opens the store) and destroyed at
//   library unload.
#ifndef TEVMON_CORE_CTEVCLOUDCACHOMGR_H
#define TEVMON_CORE_CTEVCLOUDCACHOMGR_H

#include <atomic>
#include <cstdint>
#include <string>

#include "framework/base/CThread.h"
#include "framework/base/SingletonAbstract.h"
#include "tevmon/core/CTevCloudCachoDB.h"

class CTevCloudCachoMgr : public CThread, public utils::SingletonAbstract<CTevCloudCachoMgr> {
public:
    // For Record: the level decides the lifetime.
    static constexpr int64_t DEFAULT_LIFETIME = -1;

    // Records a verdict that lives tmCacho seconds from now. False, with nothing recorded, for a
    // lifetime of 0 or less, for DEFAULT_LIFETIME with a level that has none, and for a key that
    // has a row already, expired or not: its row stays as it is until a scan deletes it. That last
    // road tries 300 statements that fail, and prints as many lines. True otherwise, even when the
    // store failed.
    bool Record(const std::string& strKey, int32_t nLevel, int64_t tmCacho, int32_t eMid,
                const std::string& strDetail);

    // True, with the row copied into entry, when the key has one; its expiry is the caller's to
    // test (IsCachoValid). False for an empty key. Tries a failing database 300 times.
    bool GetRecord(const std::string& strKey, CachoRecord& entry);

    // [control] Starts the thread; false (logged) when the system refuses it.
    bool Start(Priority ePriority);
    // [control] Ends the thread.
    void Exit();
    // The same without the log line, for the module's end: there the destructor writes it.
    void EndThread();

protected:
    friend class utils::SingletonAbstract<CTevCloudCachoMgr>;
    CTevCloudCachoMgr() = default;
    ~CTevCloudCachoMgr() override;

    void run() override;

    // [cache] One expiry scan. Pages go on by the rows read, also past rows that moved up because
    // others were deleted, so a scan passes some expired rows over; a later one takes them.
    void CheckRecords();

    void SetRunning(bool bRunning) { m_bRunning.exchange(bRunning ? 1 : 0); }
    bool IsRunning() const { return m_bRunning.load() != 0 && !isStoped(); }

private:
    int Lookup(const std::string& strKey, CachoRecord& entry);

    std::atomic<uint8_t> m_bRunning{0};
    CTevCloudCachoDB m_store;
};

// [channel] What the analysers ask: true, with the row in entry, while the key has a verdict that
// has not expired by the clock's second.
bool GetLivingRecord(const std::string& strKey, CachoRecord& entry);

#endif
