// The digests of the file versions that were used last. A version takes about 200 bytes.
//
// Threads: one at a time. Errors: std::bad_alloc, which changes nothing.
#ifndef HOST_PROGRAM_RECENTDIGESTS_H
#define HOST_PROGRAM_RECENTDIGESTS_H

#include <cstddef>
#include <list>
#include <unordered_map>

#include "host/program/FileVersion.h"
#include "host/program/ProgramDigest.h"

class RecentDigests {
public:
    // nMost: versions kept, at least one.
    explicit RecentDigests(size_t nMost) : m_nMost(nMost) {}

    RecentDigests(const RecentDigests&) = delete;
    RecentDigests& operator=(const RecentDigests&) = delete;

    // Null for a version that is not kept; else valid until the next Keep. A use.
    const DigestBytes* Find(const FileVersion& version);
    // A use too; beyond nMost the version whose last use is the oldest goes.
    void Keep(const FileVersion& version, const DigestBytes& bytes);

private:
    struct Entry {
        FileVersion version;
        DigestBytes bytes;
    };
    using Entries = std::list<Entry>;

    const size_t m_nMost;
    Entries m_entries;  // the one used last first
    std::unordered_map<FileVersion, Entries::iterator, FileVersionHash> m_places;
};

#endif
