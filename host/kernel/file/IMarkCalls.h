// What the marks need of the kernel; a test brings its own.
//
// Threads: one. Errors: as the calls name them; nothing throws but std::bad_alloc.
#ifndef HOST_KERNEL_FILE_IMARKCALLS_H
#define HOST_KERNEL_FILE_IMARKCALLS_H

#include <cstdint>
#include <string>
#include <vector>

class IMarkCalls {
public:
    virtual ~IMarkCalls() = default;
    virtual int Mark(bool bWhole, uint64_t nMask, const std::string& strPath) = 0;  // 0 or errno
    virtual int MarkFile(uint64_t nMask, const std::string& strPath) = 0;  // likewise; no link
    virtual std::string Mounts() = 0;  // the text of /proc/self/mountinfo
    // Of the mount that strPath leads over, as in that text; 0 when that is not known.
    virtual uint32_t MountIdOf(const std::string& strPath) = 0;
    virtual bool IsDirectory(const std::string& strPath) = 0;  // not for a link
    virtual std::vector<std::string> DirectoriesIn(const std::string& strPath) = 0;
    virtual std::string FsidOf(const std::string& strPath) = 0;    // as in handles; "" for none
    virtual std::string HandleOf(const std::string& strPath) = 0;  // as in events; "" for none
};

#endif
