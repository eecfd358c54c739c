// The two digests that make a program's key.
#ifndef FRAMEWORK_DIGEST_FILEHASH_H
#define FRAMEWORK_DIGEST_FILEHASH_H

#include <cstdint>
#include <string>

#include "framework/abi/Export.h"

namespace utils {

// A larger file counts as not hashable: one sparse executable of 8 TiB must not hold up the
// analysis, and with it a stop, for hours.
constexpr int64_t HASH_SIZE_LIMIT = 4LL * 1024 * 1024 * 1024;

// A file whose size reads 0, as some served by programs do, is read to its end, up to this many
// bytes.
constexpr int64_t HASH_SIZELESS_LIMIT = 64LL * 1024 * 1024;

// Both digests of the file at strPath, lower-case hexadecimal (32 and 40 characters), from one
// pass over exactly the bytes that the size seen at open promises. Returns true with both, or
// false with both empty: for an empty path or one with a NUL byte, whatever is not a regular file
// after following links, the kernel's own files (under /proc, /sys and their like, but not what a
// link such as /proc/PID/exe leads to), whatever is too large, may not be read or ends before its
// size. The file that is read is the one that was examined: it is opened through /proc, and where
// that is not mounted by its path once more, without a link on the way (Linux 5.6).
//
// Threads: any. Never opens a device, never waits for a FIFO, never maps
// the file, leaves the access time alone where the system allows that. Nothing throws.
// An IDigestObserver is called before it returns true.
HOSTFRAMEWORK_API bool getMD5AndSHA1(const std::string& strPath, std::string& strMd5,
                                     std::string& strSha1);

}  // namespace utils

#endif
