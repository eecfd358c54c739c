// What captures file operations: the kernel's fanotify, or events made by a test.
//
// Threads: one. Errors: Open's text says what is missing and how to get it; what cannot be watched
//   later is a notice; nothing throws but std::bad_alloc.
#ifndef HOST_KERNEL_FILE_IFILESENSOR_H
#define HOST_KERNEL_FILE_IFILESENSOR_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What was mounted or unmounted.
enum MountChange {
    NO_MOUNTS,
    OTHER_MOUNTS,  // and the watched places have theirs as before
    PLACE_MOUNTS
};

class IFileSensor {
public:
    virtual ~IFileSensor() = default;

    virtual bool Open(std::string& strError) = 0;
    // Readable while events wait; -1 when there is nothing to wait for.
    virtual int Descriptor() const = 0;
    // Whole events in the order in which they came, as FileEventReader takes them; 0: none waits.
    virtual size_t Read(char* pBuffer, size_t nSize) = 0;
    // No new events from now on; those that wait can still be read.
    virtual void Detach() = 0;

    // Looks whether file systems came or went since the last call: paths may be others then.
    virtual MountChange Tend() = 0;
    // A directory has appeared under this path; a watched place may be in it.
    virtual void OnDirectory(const std::string& strPath) = 0;
    // A file in a watched place has other names as well: what is written to it is reported from now
    // on whatever its name is.
    virtual void OnLinked(const std::string& strPath) = 0;
    // Whether strPath is the file with this handle.
    virtual bool IsFile(const std::string& strPath, std::string_view strHandle) = 0;
    // What happens directly in this directory is not reported from now on, where the kernel can.
    virtual void Ignore(const std::string& strDirectory) = 0;
    // What there was to say since the last call.
    virtual std::vector<std::string> TakeNotices() = 0;

    // Where the directory with this handle is now; "" when it is gone.
    virtual std::string PathOf(std::string_view strHandle) = 0;
    // Where a directory or file is mounted in or over a watched place, its path there; else
    // strPath.
    virtual std::string PathInPlace(const std::string& strPath) const = 0;
    // The type of the file system that this handle is of, or without one that strPath lies on; ""
    // when not known.
    virtual std::string FsTypeOf(std::string_view strHandle, const std::string& strPath) const = 0;
    // The kind of the file with this handle, as in st_mode; 0 when it is gone.
    virtual uint32_t KindOf(std::string_view strHandle) const = 0;
    // True when starts of programs on this device (major << 20 | minor) are among the events.
    virtual bool ReportsStarts(uint32_t nDevice) const = 0;
};

#endif
