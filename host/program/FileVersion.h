// Which version of which file it is: what the kernel says of it at a start. Two files never have
// the same at one time; another content of one file has another change time.
//
// Threads: any. Errors: none but std::bad_alloc.
#ifndef HOST_PROGRAM_FILEVERSION_H
#define HOST_PROGRAM_FILEVERSION_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

struct FileVersion {
    uint32_t nDevice = 0;  // in the kernel's form: major << 20 | minor
    uint64_t nInode = 0;
    uint64_t nSize = 0;    // in bytes
    int64_t nChanged = 0;  // change time, ns since 1970; 0: neither that nor the size is known
    // Another number for each start of a file that was changed just before, so that another content
    // of it may have the same time; else 0.
    uint64_t nFresh = 0;

    bool IsKnown() const { return nChanged != 0; }
};

inline bool operator==(const FileVersion& left, const FileVersion& right) {
    return left.nDevice == right.nDevice && left.nInode == right.nInode &&
           left.nSize == right.nSize && left.nChanged == right.nChanged &&
           left.nFresh == right.nFresh;
}

struct FileVersionHash {
    size_t operator()(const FileVersion& version) const;
};

namespace file_version {

// Four decimal numbers with ":" between them, in the order of the members; without nFresh.
std::string Text(const FileVersion& version);
std::optional<FileVersion> Parse(const std::string& strText);

}  // namespace file_version

#endif
