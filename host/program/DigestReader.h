// Reads a held file once, from its descriptor and never by its path, for SHA-1, MD5 and SHA-256,
// and finds out whether what it read is still what was started.
//
// The content is that of the start when the held file is sure, and size, modification and change
// time still are those of its status. Another name or mode changes the time as well, and that a
// process runs the file says nothing: it may have written to it and started it again.
//
// Threads: one at a time; a stop from any. Errors: as DigestEnd; the constructor throws
// std::bad_alloc, Read nothing. A read that the file's server never answers (FUSE, NFS) does not
// return, nor does Read.
#ifndef HOST_PROGRAM_DIGESTREADER_H
#define HOST_PROGRAM_DIGESTREADER_H

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "host/program/HeldFile.h"
#include "host/program/ProgramDigest.h"

// pread's arguments and results.
using ReadAt = std::function<ssize_t(int nFd, void* pBytes, size_t nBytes, off_t nOffset)>;

class DigestReader {
public:
    // fnRead: pread when empty. bStop: ends a Read before its next block. nBytes: grows by what is
    // read. Both are the caller's and outlive the reader.
    DigestReader(ReadAt fnRead, const std::atomic<bool>& bStop, std::atomic<uint64_t>& nBytes);
    ~DigestReader();

    DigestReader(const DigestReader&) = delete;
    DigestReader& operator=(const DigestReader&) = delete;

    // Fills bytes when the end is DIGEST_DONE, or DIGEST_CHANGED and the file could be read to its
    // end all the same. DIGEST_LEFT_OUT: stopped. DIGEST_UNREADABLE: also what is no regular file,
    // and where OpenSSL cannot work.
    DigestEnd Read(const HeldFile& file, DigestBytes& bytes);

private:
    struct Kit;

    DigestEnd ReadContent(const HeldFile& file, DigestBytes& bytes);
    DigestEnd AddContent(const HeldFile& file);

    const ReadAt m_fnRead;
    const std::atomic<bool>& m_bStop;
    std::atomic<uint64_t>& m_nBytes;
    const std::unique_ptr<Kit> m_pKit;
};

#endif
