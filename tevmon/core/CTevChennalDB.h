// The message channel's store: a first-in-first-out queue of event messages, one row each, in
// table "msgchennal" of ../data/db/tevchennaldb.db (relative to the host's current directory).
//
// Threads: any. Transport threads insert while the channel thread fetches and removes; every
//   public call but the transaction commands holds m_mutex from entry to return and takes no other
//   lock.
// Errors: nothing throws. A failed call rolls back, prints SQLite's text on standard output and
//   returns SQLite's result code; STORE_BUSY is the only code worth trying again.
// Ownership: one object per process, made by Instance() and destroyed at library unload.
#ifndef TEVMON_CORE_CTEVCHENNALDB_H
#define TEVMON_CORE_CTEVCHENNALDB_H

#include <cstdint>
#include <list>
#include <string>

#include "framework/base/SingletonAbstract.h"
#include "tevmon/core/CTevStore.h"

struct ChennalRecord {
    int64_t id = 0;          // row id, given by SQLite; 0 while not stored
    int64_t createtime = 0;  // seconds since the epoch, read from the clock at the push
    std::string detail;      // the message as the host sent it, any bytes; Base64 on disk
    int32_t mid = 0;         // analyser it is for: 5 process creations, 6 file operations
};

class CTevChennalDB : public CTevStore, public utils::SingletonAbstract<CTevChennalDB> {
public:
    // Appends one message; record.id is not read. Returns 0 or SQLite's code.
    int Insert(const ChennalRecord& record);

    // Replaces recordList by the oldest messages, at most nCount; they stay stored. Returns 0, also
    // when none is queued, or SQLite's code with recordList empty.
    int Fetch(std::list<ChennalRecord>& recordList, int nCount);

    // Fetch, and deletes what it fetched in the same transaction.
    int FetchAndRemove(std::list<ChennalRecord>& recordList, int nCount);

    // Deletes message nId. Returns 0, also when there is none, or SQLite's code. Only the low 32
    // bits of nId count; this width is relied on and kept.
    int Remove(int64_t nId);

    // Queued messages; 0 also after an error.
    int Count();

    // Deletes every message.
    bool Clear();

protected:
    friend class utils::SingletonAbstract<CTevChennalDB>;
    CTevChennalDB();  // opens the file; tests derive to have a store of their own
    ~CTevChennalDB() = default;

private:
    const std::string m_strInsertPrefix;  // ends in ") values"
};

#endif
