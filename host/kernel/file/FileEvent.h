// What fanotify reports, decoded from its bytes. No length in them is trusted.
//
// Threads: any; no state beyond the object's own. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_FILE_FILEEVENT_H
#define HOST_KERNEL_FILE_FILEEVENT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// A name in a directory. A handle is the file system's identity and the file handle in it, byte
// for byte as fanotify writes them one after the other. All views lead into the decoded bytes.
struct FileSpot {
    std::string_view strDirectory;  // the directory's handle; "" when the event has none
    std::string_view strName;       // "." for the directory itself
};

struct FileEvent {
    uint64_t nMask = 0;
    uint32_t nPid = 0;  // 0: in another process-number namespace
    FileSpot spot;      // of every event but a FAN_RENAME
    FileSpot from;      // of a FAN_RENAME
    FileSpot to;
    std::string_view strTarget;  // the handle of what it happened to; "" when not known
};

class FileEventReader {
public:
    FileEventReader(const void* pData, size_t nSize);

    // The next event; false at the end, and where the bytes are no event any more.
    bool Next(FileEvent& event);

    uint64_t Broken() const { return m_nBroken; }  // pieces that are no event, skipped

private:
    const char* m_pAt;
    size_t m_nLeft;
    uint64_t m_nBroken = 0;
};

namespace file_handle_key {

constexpr size_t FSID_BYTES = 8;
constexpr size_t HEAD_BYTES = FSID_BYTES + 8;  // the file system, then the handle's size and type

std::string_view FileSystem(std::string_view strHandle);

// Whether overlayfs made it: only this distinguishes one from its upper layer's file system where
// the kernel gives both the same identifier.
bool IsOverlay(std::string_view strHandle);

// The inode number where the handle has it in a known place, else 0.
uint64_t Inode(std::string_view strHandle);

}  // namespace file_handle_key

#endif
