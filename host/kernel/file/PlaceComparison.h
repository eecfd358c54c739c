// The comparison of the watched places with what is known of their files: where events were lost or
// a mount changed what is there, it finds what no event reported.
//
// Threads: one object, one thread. Errors: none but std::bad_alloc; what cannot be known is a
//   notice.
// Ownership: the places must outlive it.
#ifndef HOST_KERNEL_FILE_PLACECOMPARISON_H
#define HOST_KERNEL_FILE_PLACECOMPARISON_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "host/event/FileOperation.h"
#include "host/event/WatchedPaths.h"
#include "host/kernel/file/KnownFiles.h"

class PlaceComparison {
public:
    using Clock = std::chrono::steady_clock;
    using Result = std::function<void(const FoundFile& found)>;

    // every: between two comparisons at least, for mounts may come and go all the time.
    PlaceComparison(const WatchedPaths& places, FileLook fnLook, NamesIn fnNames,
                    std::chrono::milliseconds every);

    // What is there now is known.
    void Begin();
    // An operation on strPath, as the kernel spells it, was reported; nInode: 0 when not known.
    void Reported(const std::string& strPath, uint64_t nInode) {
        m_files.Reported(strPath, nInode);
    }
    // As KnownFiles has them.
    std::string NameOf(uint64_t nInode) const { return m_files.NameOf(nInode); }
    std::vector<std::string> TakeLinked() { return m_files.TakeLinked(); }
    // Something may have happened that no event reports: a comparison is due. bChanged: perhaps to
    // a file that was just reported as well, which else is known as it is.
    void Doubt(bool bChanged) {
        m_bDoubt = true;
        m_bChanged = m_bChanged || bChanged;
    }
    // Nothing waits that was reported until now. Compares when that is due, and gives fnResult what
    // it finds; bLast: without waiting for the time.
    void CaughtUp(Clock::time_point now, bool bLast, const Result& fnResult);

    std::vector<std::string> TakeNotices();

private:
    std::vector<FoundFile> Compare();

    const WatchedPaths& m_places;
    const std::chrono::milliseconds m_every;
    KnownFiles m_files;
    Clock::time_point m_due;
    bool m_bDoubt = false;
    bool m_bChanged = false;
    bool m_bFullSaid = false;
    std::vector<std::string> m_notices;
};

#endif
