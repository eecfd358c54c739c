#include "host/program/RecentDigests.h"

const DigestBytes* RecentDigests::Find(const FileVersion& version) {
    const auto place = m_places.find(version);
    if (place == m_places.end()) {
        return nullptr;
    }
    m_entries.splice(m_entries.begin(), m_entries, place->second);
    return &place->second->bytes;
}

void RecentDigests::Keep(const FileVersion& version, const DigestBytes& bytes) {
    if (Find(version) != nullptr) {
        m_entries.front().bytes = bytes;
        return;
    }
    Entries added;
    added.push_front({version, bytes});
    m_places.emplace(version, added.begin());
    m_entries.splice(m_entries.begin(), added);
    if (m_entries.size() > m_nMost) {
        m_places.erase(m_entries.back().version);
        m_entries.pop_back();
    }
}
