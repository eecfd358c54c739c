// Remembers which keys were answered, so that the module gets one answer per key while the row
// of that answer lives: it tries to rewrite a row that it has 300 times before it gives up.
//
// Of the keys answered here the answer's time is kept; of those in the cache before the run a
// number each. Where these say "perhaps", the cache itself is asked, because only there can be
// seen when a row has gone: an expired one stays until the module's next scan.
//
// Threads: any; one mutex, not held while the cache is asked.
// Errors: none but std::bad_alloc.
#ifndef HOST_CLOUD_ANSWERTRACKER_H
#define HOST_CLOUD_ANSWERTRACKER_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/base/Mutex.h"

class AnswerTracker {
public:
    // strCacheFile: the verdict cache. Reads its keys; before the module starts.
    explicit AnswerTracker(std::string strCacheFile);

    // True when strKey may be answered now. It then counts as being answered until End.
    bool Begin(const std::string& strKey);

    // The answer with nLevel has reached the module, or has not.
    void End(const std::string& strKey, int nLevel, bool bDelivered);

private:
    struct Answer {
        int64_t tmGiven;
        int64_t tmExpiry;
    };
    enum Known { KNOWN_FREE, KNOWN_TAKEN, KNOWN_PERHAPS };

    Known Look(const std::string& strKey, int64_t tmNow, int64_t& tmExpiry) const
        TEV_REQUIRES(m_mutex);
    void Prune(int64_t tmNow) TEV_REQUIRES(m_mutex);

    const std::string m_strCacheFile;
    const std::vector<uint64_t> m_before;  // sorted
    Mutex m_mutex;
    std::unordered_set<std::string> m_underWay TEV_GUARDED_BY(m_mutex);
    std::unordered_map<uint64_t, Answer> m_answers TEV_GUARDED_BY(m_mutex);
};

#endif
