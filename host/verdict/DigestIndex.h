// Digests of N bytes and the owner of each, as one sorted array: N + 4 bytes an entry, so that
// hundreds of thousands of them cost little compared with the programs' digests.
//
// Threads: filled by one thread; Find from any once Seal was called.
#ifndef HOST_VERDICT_DIGESTINDEX_H
#define HOST_VERDICT_DIGESTINDEX_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <tuple>
#include <vector>

#include "host/verdict/HexText.h"

template <size_t N>
class DigestIndex {
public:
    using Digest = std::array<uint8_t, N>;

    void Add(const Digest& digest, uint32_t nOwner) { m_entries.push_back({digest, nOwner}); }

    // Makes Find work. Of several owners of one digest the lowest number stays.
    void Seal() {
        std::sort(m_entries.begin(), m_entries.end(), [](const Entry& left, const Entry& right) {
            return std::tie(left.digest, left.nOwner) < std::tie(right.digest, right.nOwner);
        });
        const auto itEnd = std::unique(
            m_entries.begin(), m_entries.end(),
            [](const Entry& left, const Entry& right) { return left.digest == right.digest; });
        m_entries.erase(itEnd, m_entries.end());
        m_entries.shrink_to_fit();
    }

    // The owner of the digest that strHex stands for; nothing for an unknown or malformed one.
    std::optional<uint32_t> Find(std::string_view strHex) const {
        Digest digest;
        if (!hex::Decode(strHex, digest)) {
            return std::nullopt;
        }
        const auto it = std::lower_bound(
            m_entries.begin(), m_entries.end(), digest,
            [](const Entry& entry, const Digest& wanted) { return entry.digest < wanted; });
        if (it == m_entries.end() || it->digest != digest) {
            return std::nullopt;
        }
        return it->nOwner;
    }

    size_t Count() const { return m_entries.size(); }

private:
    struct Entry {
        Digest digest;
        uint32_t nOwner;
    };

    std::vector<Entry> m_entries;
};

#endif
