// The digests of programs that were started, computed on two threads: small files on one, large
// ones on the other, so that nobody waits for 4 GiB but who waits for as much.
//
// A file version is computed once and remembered. One whose change time is not known is neither
// remembered nor merged with another.
//
// Threads: Ask, Known and Counts any; Begin, End and the destructor the owner's, not a lane's. No
//   lock is held while a file is read or a callback is called; an Ask from a callback is fine.
// Errors: as DigestEnd; std::bad_alloc, with nothing asked. A callback that throws std::exception
//   ends nothing.
// Ownership: a file stays held, with its descriptor, until its digest is computed.
#ifndef HOST_PROGRAM_DIGESTLANES_H
#define HOST_PROGRAM_DIGESTLANES_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <thread>
#include <unordered_set>

#include "host/base/MonotonicCondition.h"
#include "host/base/Mutex.h"
#include "host/program/DigestReader.h"
#include "host/program/FileVersion.h"
#include "host/program/HeldFile.h"
#include "host/program/ProgramDigest.h"
#include "host/program/RecentDigests.h"

struct DigestLanesOptions {
    int64_t nSmallSize = 16 * 1024 * 1024;  // in bytes; a larger file is read in the other lane
    // Files that may wait in each lane: with the 1,024 descriptors that a process has by default,
    // most stay free for everything else.
    size_t nMostSmall = 256;
    size_t nMostLarge = 32;
    size_t nMostRemembered = 65536;  // versions
    std::function<void()> fnOnLane;  // [each lane's thread] first; must not throw
    ReadAt fnRead;                   // pread when empty
};

struct DigestCounts {
    uint64_t nFiles = 0;    // read or tried, each end but DIGEST_LEFT_OUT
    uint64_t nBytes = 0;    // read
    uint64_t nLeftOut = 0;  // DIGEST_LEFT_OUT, returned or called back
};

class DigestLanes {
public:
    // [lanes' threads, one call of each at a time]
    using Done = std::function<void(const FileVersion& version, const ProgramDigest& digest)>;

    explicit DigestLanes(DigestLanesOptions options = {});
    ~DigestLanes();  // End

    DigestLanes(const DigestLanes&) = delete;
    DigestLanes& operator=(const DigestLanes&) = delete;

    // Starts the threads, once. std::system_error: none can be made, and none runs.
    void Begin(Done fnDone);
    // Ends the threads, before the next block of the files in hand. They and those that wait are
    // called back as DIGEST_LEFT_OUT. When it has returned nothing is called any more.
    void End();

    // A digest is the answer, and fnDone is not called: DIGEST_DONE is remembered; DIGEST_LEFT_OUT
    // was not taken, because too many wait or the threads do not run. None: fnDone is called once
    // for the version, however many ask until then.
    std::optional<ProgramDigest> Ask(HeldFileRef pFile);
    // When it is remembered; DIGEST_DONE.
    std::optional<ProgramDigest> Known(const FileVersion& version) const;

    DigestCounts Counts() const;

private:
    static constexpr size_t SMALL = 0;
    static constexpr size_t LARGE = 1;
    static constexpr size_t LANES = 2;

    size_t LaneOf(const HeldFile& file) const;
    void Run(size_t nLane);
    void Serve(DigestReader& reader, const HeldFile& file);
    void Close(const FileVersion& version, DigestEnd eEnd, const DigestBytes& bytes);

    const DigestLanesOptions m_options;
    Done m_fnDone;  // set before the threads start
    std::atomic<bool> m_bStop{false};
    std::atomic<uint64_t> m_nBytes{0};
    std::array<std::unique_ptr<DigestReader>, LANES> m_readers;
    std::array<std::thread, LANES> m_threads;

    mutable Mutex m_mutex;
    MonotonicCondition m_changed;
    bool m_bRunning TEV_GUARDED_BY(m_mutex) = false;
    std::array<std::list<HeldFileRef>, LANES> m_waiting TEV_GUARDED_BY(m_mutex);
    // Known versions that wait or are in hand.
    std::unordered_set<FileVersion, FileVersionHash> m_open TEV_GUARDED_BY(m_mutex);
    mutable RecentDigests m_recent TEV_GUARDED_BY(m_mutex);
    uint64_t m_nFiles TEV_GUARDED_BY(m_mutex) = 0;
    uint64_t m_nLeftOut TEV_GUARDED_BY(m_mutex) = 0;
};

#endif
