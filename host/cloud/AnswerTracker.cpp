#include "host/cloud/AnswerTracker.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <optional>
#include <utility>

#include "host/base/ModuleFacts.h"
#include "host/database/DatabaseProbe.h"

namespace {

// So soon after an answer its row is there; the cache need not be asked.
constexpr int64_t SURE_SECONDS = 5;

constexpr size_t MANY_ANSWERS = 200000;

}  // namespace

AnswerTracker::AnswerTracker(std::string strCacheFile)
    : m_strCacheFile(std::move(strCacheFile)),
      m_before(database_probe::VerdictKeys(m_strCacheFile)) {}

AnswerTracker::Known AnswerTracker::Look(const std::string& strKey, int64_t tmNow,
                                         int64_t& tmExpiry) const {
    const uint64_t nHash = database_probe::HashKey(strKey);
    const auto it = m_answers.find(nHash);
    if (it != m_answers.end()) {
        tmExpiry = it->second.tmExpiry;
        const bool bSure = tmNow >= it->second.tmGiven && tmNow - it->second.tmGiven < SURE_SECONDS;
        return bSure ? KNOWN_TAKEN : KNOWN_PERHAPS;
    }
    tmExpiry = std::numeric_limits<int64_t>::max();
    return std::binary_search(m_before.begin(), m_before.end(), nHash) ? KNOWN_PERHAPS : KNOWN_FREE;
}

bool AnswerTracker::Begin(const std::string& strKey) {
    const int64_t tmNow = time(nullptr);
    int64_t tmExpiry = 0;
    {
        const MutexLock lock(m_mutex);
        const Known eKnown = Look(strKey, tmNow, tmExpiry);
        if (eKnown == KNOWN_TAKEN || !m_underWay.insert(strKey).second) {
            return false;
        }
        if (eKnown == KNOWN_FREE) {
            return true;
        }
    }
    const std::optional<bool> held = database_probe::HasVerdict(m_strCacheFile, strKey);
    const bool bFree = held.has_value() ? !*held : tmNow > tmExpiry;
    if (!bFree) {
        const MutexLock lock(m_mutex);
        m_underWay.erase(strKey);
    }
    return bFree;
}

void AnswerTracker::End(const std::string& strKey, int nLevel, bool bDelivered) {
    const int64_t tmNow = time(nullptr);
    const MutexLock lock(m_mutex);
    m_underWay.erase(strKey);
    if (bDelivered && module_facts::Lifetime(nLevel) > 0) {
        Prune(tmNow);
        m_answers[database_probe::HashKey(strKey)] = {tmNow,
                                                      tmNow + module_facts::Lifetime(nLevel)};
    }
}

// A row lives on for a scan or two after its expiry; an hour is ample.
void AnswerTracker::Prune(int64_t tmNow) {
    constexpr int64_t GRACE = 3600;
    if (m_answers.size() < MANY_ANSWERS || m_answers.size() % 1024 != 0) {
        return;
    }
    for (auto it = m_answers.begin(); it != m_answers.end();) {
        it = tmNow > it->second.tmExpiry + GRACE ? m_answers.erase(it) : std::next(it);
    }
}
