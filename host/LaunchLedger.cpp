#include "host/LaunchLedger.h"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

namespace {

// Queries replace bytes that are not UTF-8, so those of other than ASCII do not count.
std::string KeyOf(const std::string& strPath) {
    std::string strKey;
    for (const char c : strPath) {
        const bool bOther = (static_cast<unsigned char>(c) & 0x80) != 0;
        if (!bOther) {
            strKey += c;
        } else if (strKey.empty() || strKey.back() != '\0') {
            strKey += '\0';
        }
    }
    return strKey;
}

// A name with other than ASCII bytes cannot be told from its key; it counts as being there.
bool IsGone(const std::string& strKey) {
    struct stat status = {};
    return strKey.find('\0') == std::string::npos &&
           (stat(strKey.c_str(), &status) != 0 || !S_ISREG(status.st_mode));
}

}  // namespace

void LaunchLedger::SetEarlier(uint64_t nMessages) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_nEarlier = nMessages;
}

void LaunchLedger::Send(uint64_t nNumber, std::vector<std::string> paths) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (std::string& strPath : paths) {
        strPath = KeyOf(strPath);
    }
    m_state.nSent += paths.size();
    m_state.nWaiting += paths.size();
    m_waiting.push_back({nNumber, std::move(paths)});
    while (m_state.nWaiting > MOST_PATHS && m_waiting.size() > 1) {
        m_state.nSilent += m_waiting.front().keys.size();
        m_state.nWaiting -= m_waiting.front().keys.size();
        m_waiting.pop_front();
        ++m_nEarlier;  // when its turn comes it is none of those that are held
    }
}

void LaunchLedger::Refuse(uint64_t nNumber) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found =
        std::find_if(m_waiting.begin(), m_waiting.end(),
                     [nNumber](const Message& message) { return message.nNumber == nNumber; });
    if (found != m_waiting.end()) {
        m_state.nRefused += found->keys.size();
        m_state.nWaiting -= found->keys.size();
        m_waiting.erase(found);
    }
}

void LaunchLedger::Begin() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_nEarlier > 0) {
        --m_nEarlier;
        return;
    }
    if (!m_waiting.empty()) {
        std::vector<std::string> keys = std::move(m_waiting.front().keys);
        m_waiting.pop_front();
        m_state.nWaiting -= keys.size();
        Open(std::move(keys));
    }
}

// [with m_mutex held]
void LaunchLedger::Open(std::vector<std::string> keys) {
    m_nOpen += keys.size();
    for (std::string& strKey : keys) {
        ++m_open[std::move(strKey)];
    }
    if (m_nOpen > MOST_PATHS) {
        Settle();
    }
}

// [with m_mutex held] Makes room: what is open for so long is not heard of any more.
void LaunchLedger::Settle() {
    for (const auto& entry : m_open) {
        (IsGone(entry.first) ? m_state.nGone : m_state.nSilent) += entry.second;
    }
    m_open.clear();
    m_nOpen = 0;
}

void LaunchLedger::Hear(const std::string& strPath) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_open.find(KeyOf(strPath));
    if (found == m_open.end()) {
        return;  // an event of an earlier run
    }
    ++m_state.nHeard;
    --m_nOpen;
    if (--found->second == 0) {
        m_open.erase(found);
    }
}

void LaunchLedger::Miss(uint64_t nMessages) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (; nMessages > 0 && !m_waiting.empty(); --nMessages) {
        m_state.nSilent += m_waiting.back().keys.size();
        m_state.nWaiting -= m_waiting.back().keys.size();
        m_waiting.pop_back();
    }
}

LedgerState LaunchLedger::State() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    LedgerState state = m_state;
    state.nWaitingMessages = m_waiting.size();
    for (const auto& entry : m_open) {
        (IsGone(entry.first) ? state.nGone : state.nSilent) += entry.second;
    }
    return state;
}
