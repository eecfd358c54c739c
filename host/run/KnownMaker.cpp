#include "host/run/KnownMaker.h"

#include <chrono>
#include <memory>
#include <unordered_map>

#include "host/base/Mutex.h"
#include "host/database/DatabaseProbe.h"
#include "host/verdict/ProgramVerdicts.h"
#include "host/verdict/VerdictLevel.h"

namespace {

using Clock = std::chrono::steady_clock;

// Keys of programs that made a pipe a moment ago. A message may name one program for each of its
// pipes, and a program may be large: it is read once for all of them.
class RecentKeys {
public:
    explicit RecentKeys(KeyReader fnKeyOf) : m_fnKeyOf(std::move(fnKeyOf)) {}

    std::string KeyOf(const std::string& strProgram) {
        const MutexLock lock(m_mutex);
        const auto found = m_keys.find(strProgram);
        if (found != m_keys.end() && Clock::now() < found->second.due) {
            return found->second.strKey;
        }
        if (m_keys.size() >= MOST) {
            m_keys.clear();
        }
        std::string strKey = m_fnKeyOf(strProgram);
        m_keys[strProgram] = {strKey, Clock::now() + KEPT};
        return strKey;
    }

private:
    static constexpr size_t MOST = 256;
    static constexpr std::chrono::seconds KEPT{10};
    struct Entry {
        std::string strKey;
        Clock::time_point due;
    };

    const KeyReader m_fnKeyOf;
    Mutex m_mutex;
    std::unordered_map<std::string, Entry> m_keys TEV_GUARDED_BY(m_mutex);
};

}  // namespace

EventLedger::KnownMaker MakeKnownMaker(const VerdictService& service,
                                       const std::string& strCacheFile, KeyReader fnKeyOf) {
    const auto pKeys =
        std::make_shared<RecentKeys>(fnKeyOf ? std::move(fnKeyOf) : ProgramVerdicts::KeyOf);
    return [&service, strCacheFile, pKeys](const std::string& strProgram) {
        const std::string strKey = pKeys->KeyOf(strProgram);
        return !strKey.empty() &&
               verdict_level::ClassOf(service.Decide(strKey).nLevel) == verdict_level::CLASS_GOOD &&
               database_probe::HasVerdict(strCacheFile, strKey).value_or(false);
    };
}
