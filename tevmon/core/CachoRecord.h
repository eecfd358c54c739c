// One cached cloud verdict.
#ifndef TEVMON_CORE_CACHORECORD_H
#define TEVMON_CORE_CACHORECORD_H

#include <cstdint>
#include <limits>
#include <string>

struct CachoRecord {
    int64_t id = 0;           // never written, so 0 when read back
    std::string key;          // program key: SHA-1 text, then MD5 text; any text the cloud named
    int32_t nLevel = 0;       // the verdict
    int64_t nTmInterval = 0;  // seconds it is valid for
    int64_t nTmCreate = 0;    // seconds since the epoch when it was recorded
    int32_t eMid = 0;         // message id that the query came from, 0 when unknown
    std::string strDetail;    // free text, Base64 on disk
};

// True while the verdict lives: through the second nTmCreate + nTmInterval, not the one after. The
// sum stops at the ends of its range, so that no pair of numbers on disk can turn it round.
inline bool IsCachoValid(const CachoRecord& record, int64_t tmNow) {
    int64_t tmEnd = 0;
    if (__builtin_add_overflow(record.nTmCreate, record.nTmInterval, &tmEnd)) {
        tmEnd = record.nTmCreate < 0 ? std::numeric_limits<int64_t>::min()
                                     : std::numeric_limits<int64_t>::max();
    }
    return tmEnd >= tmNow;
}

#endif
