// What happens to files on this machine, as the kernel reports it, and who observes it.
#ifndef HOST_EVENT_FILEOPERATION_H
#define HOST_EVENT_FILEOPERATION_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/event/IEventSource.h"

enum FileAct { FILE_CREATE, FILE_WRITE, FILE_RENAME, FILE_REMOVE };

struct FileOperation {
    FileAct eAct = FILE_CREATE;
    std::string strPath;         // of a rename: the old one
    std::string strProgram;      // leads to the acting program's file; "" when no path does
    std::string strProgramName;  // as the kernel spells it; for people
    std::string strFsType;
    uint64_t nInode = 0;  // 0: not known
    uint32_t nPid = 0;
    bool bPlace = false;  // in a watched place, by its spelling
    bool bPipe = false;   // a created named pipe
    bool bFound = false;  // by a comparison of the watched places; who did it is not known
    int64_t tmWhen = 0;   // when it was read
};

struct FileCounters {
    uint64_t nCaptured = 0;       // operations that the kernel reported, made of these, or found
    uint64_t nOwn = 0;            // of these: the host's own process
    uint64_t nUnwatched = 0;      // of these: in no watched place and no pipe; not reported
    uint64_t nUnresolved = 0;     // of these: no path, their directory is gone
    uint64_t nReported = 0;       // of these: reported
    uint64_t nBatched = 0;        // reported and in a batch that is not full yet
    uint64_t nFound = 0;          // of these: found by a comparison, without an event
    uint64_t nGone = 0;           // files made and gone before their kind was known; pipes perhaps
    uint64_t nNoProgram = 0;      // reported without the acting program
    uint64_t nOverflows = 0;      // times that the kernel's queue was full; what it lost is unknown
    uint64_t nBroken = 0;         // records of the kernel that are no event
    uint64_t nEvents = 0;         // of the kernel; some hold several operations, some none
    uint64_t nCaptureMicros = 0;  // processor time for all of it, until it is reported

    // Captured, and neither reported nor counted for a reason.
    uint64_t Waiting() const {
        const uint64_t nKnown = nOwn + nUnwatched + nUnresolved + nReported;
        return nCaptured > nKnown ? nCaptured - nKnown : 0;
    }
};

class IFileObserver {
public:
    virtual ~IFileObserver() = default;
    virtual void OnOperation(const FileOperation& operation) = 0;
    // The kernel's queue was full nTimes more, nTotal since the start.
    virtual void OnOverflow(uint64_t nTimes, uint64_t nTotal) = 0;
    virtual void OnFileCounters(const FileCounters& counters) = 0;
    // A place or file system that cannot be watched, or as a part only; a mount that came or went.
    virtual void OnNotice(const std::string& strText) = 0;
};

#endif
