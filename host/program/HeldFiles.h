// The files of started programs that are held now, each version of a file once. One is held as long
// as somebody has it: a report that the module has not ended, a digest being computed.
//
// Threads: one; what it gave away may go on any.
// Errors: a file that cannot be held is counted. Nothing throws but std::bad_alloc.
// Ownership: whoever has a file keeps it open. The directory must outlive them all.
#ifndef HOST_PROGRAM_HELDFILES_H
#define HOST_PROGRAM_HELDFILES_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "host/program/HeldFile.h"

class HeldFiles {
public:
    // Of the process's descriptors this part is for held files at most.
    static constexpr size_t DESCRIPTORS_PART = 2;
    static constexpr size_t MOST_FILES = 65536;  // however many descriptors there may be

    enum Match { MATCH_NONE, MATCH_INODE, MATCH_SURE };  // as HeldFile has it
    // Whether what the path leads to is the file that was started; fills status.
    using MatchOf = std::function<Match(const std::string& strPath, FileStatus& status)>;

    // nMost: files held at once; 0: by the limit on descriptors, which is raised as far as it goes.
    explicit HeldFiles(size_t nMost = 0);

    // The one held already; null when there is none. A version that is not known is never found.
    std::shared_ptr<const HeldFile> Find(const FileVersion& version);

    // Opens what strPath leads to, if that is the file, and holds it as strName. Null when it is
    // another, may not be read, or too many are held.
    std::shared_ptr<const HeldFile> Hold(const FileVersion& version, const std::string& strPath,
                                         const std::string& strName, const MatchOf& fnMatchOf);

    size_t Count() const { return *m_pCount; }
    size_t Most() const { return m_nMost; }
    uint64_t Refused() const { return m_nRefused; }  // too many were held

private:
    void Sweep();

    const size_t m_nMost;
    const std::shared_ptr<std::atomic<size_t>> m_pCount = std::make_shared<std::atomic<size_t>>(0);
    std::unordered_map<FileVersion, std::weak_ptr<const HeldFile>, FileVersionHash> m_files;
    size_t m_nSweepAt = 1024;
    uint64_t m_nRefused = 0;
};

#endif
