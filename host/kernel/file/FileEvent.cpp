#include "host/kernel/file/FileEvent.h"

#include <sys/fanotify.h>

#include <algorithm>
#include <cstring>

namespace {

// Layouts of handles, by type and size; see the file systems' encode_fh.
constexpr uint32_t HANDLE_INODE_32 = 1;     // inode, generation: ext4, and xfs in short
constexpr uint32_t HANDLE_INODE_64 = 0x81;  // xfs
constexpr uint32_t HANDLE_OBJECT = 0x4d;    // btrfs
constexpr uint32_t HANDLE_OVERLAY = 0xf8;   // that of a layer, with a head
constexpr uint32_t SIZE_INODE_32 = 8;
constexpr uint32_t SIZE_MEMORY = 12;  // generation, inode low, inode high: tmpfs

template <class T>
T Read(const char* pAt) {
    T value = {};
    std::memcpy(&value, pAt, sizeof(value));
    return value;
}

FileSpot* SpotOf(FileEvent& event, uint8_t nType) {
    switch (nType) {
        case FAN_EVENT_INFO_TYPE_DFID:
        case FAN_EVENT_INFO_TYPE_DFID_NAME:
            return &event.spot;
        case FAN_EVENT_INFO_TYPE_OLD_DFID_NAME:
            return &event.from;
        case FAN_EVENT_INFO_TYPE_NEW_DFID_NAME:
            return &event.to;
        default:
            return nullptr;
    }
}

// One piece of information about an event, nSize bytes with its head.
bool TakeInfo(const char* pInfo, size_t nSize, FileEvent& event) {
    const uint8_t nType = static_cast<uint8_t>(pInfo[0]);
    FileSpot* const pSpot = SpotOf(event, nType);
    if (pSpot == nullptr && nType != FAN_EVENT_INFO_TYPE_FID) {
        return true;  // of a kind that is not asked for
    }
    constexpr size_t HEAD = sizeof(fanotify_event_info_header);
    if (nSize < HEAD + file_handle_key::HEAD_BYTES) {
        return false;
    }
    const size_t nHandle = Read<uint32_t>(pInfo + HEAD + file_handle_key::FSID_BYTES);
    const size_t nRoom = nSize - HEAD - file_handle_key::HEAD_BYTES;
    if (nHandle > nRoom) {
        return false;
    }
    const std::string_view strHandle(pInfo + HEAD, file_handle_key::HEAD_BYTES + nHandle);
    if (pSpot == nullptr) {
        event.strTarget = strHandle;
        return true;
    }
    const char* const pName = strHandle.data() + strHandle.size();
    pSpot->strDirectory = strHandle;
    pSpot->strName = std::string_view(pName, strnlen(pName, nRoom - nHandle));
    if (pSpot->strName.empty()) {
        pSpot->strName = ".";
    }
    return pSpot->strName.find('/') == std::string_view::npos;
}

bool TakeInfos(const char* pAt, size_t nLeft, FileEvent& event) {
    while (nLeft > 0) {
        if (nLeft < sizeof(fanotify_event_info_header)) {
            return false;
        }
        const size_t nSize = Read<uint16_t>(pAt + offsetof(fanotify_event_info_header, len));
        if (nSize < sizeof(fanotify_event_info_header) || nSize > nLeft ||
            !TakeInfo(pAt, nSize, event)) {
            return false;
        }
        pAt += nSize;
        nLeft -= nSize;
    }
    return true;
}

}  // namespace

FileEventReader::FileEventReader(const void* pData, size_t nSize)
    : m_pAt(static_cast<const char*>(pData)), m_nLeft(pData == nullptr ? 0 : nSize) {}

bool FileEventReader::Next(FileEvent& event) {
    while (m_nLeft > 0) {
        fanotify_event_metadata head = {};
        std::memcpy(&head, m_pAt, std::min(m_nLeft, sizeof(head)));
        if (m_nLeft < sizeof(head) || head.vers != FANOTIFY_METADATA_VERSION ||
            head.metadata_len < sizeof(head) || head.event_len < head.metadata_len ||
            head.event_len > m_nLeft) {
            ++m_nBroken;  // where the next event begins is not known either
            m_nLeft = 0;
            return false;
        }
        const char* const pInfos = m_pAt + head.metadata_len;
        m_pAt += head.event_len;
        m_nLeft -= head.event_len;
        event = FileEvent();
        event.nMask = head.mask;
        event.nPid = head.pid > 0 ? static_cast<uint32_t>(head.pid) : 0;
        if (TakeInfos(pInfos, head.event_len - head.metadata_len, event)) {
            return true;
        }
        ++m_nBroken;
    }
    return false;
}

namespace file_handle_key {

namespace {

uint32_t TypeOf(std::string_view strHandle) {
    return Read<uint32_t>(strHandle.data() + FSID_BYTES + sizeof(uint32_t));
}

}  // namespace

std::string_view FileSystem(std::string_view strHandle) {
    return strHandle.substr(0, FSID_BYTES);
}

bool IsOverlay(std::string_view strHandle) {
    return strHandle.size() >= HEAD_BYTES && TypeOf(strHandle) == HANDLE_OVERLAY;
}

uint64_t Inode(std::string_view strHandle) {
    if (strHandle.size() < HEAD_BYTES + SIZE_INODE_32) {
        return 0;
    }
    const char* const pHandle = strHandle.data() + HEAD_BYTES;
    const size_t nSize = strHandle.size() - HEAD_BYTES;
    switch (TypeOf(strHandle)) {
        case HANDLE_INODE_32:
            if (nSize == SIZE_MEMORY) {
                return Read<uint32_t>(pHandle + 4) |
                       static_cast<uint64_t>(Read<uint32_t>(pHandle + 8)) << 32;
            }
            return nSize == SIZE_INODE_32 ? Read<uint32_t>(pHandle) : 0;
        case HANDLE_INODE_64:
        case HANDLE_OBJECT:
            return Read<uint64_t>(pHandle);
        default:
            return 0;
    }
}

}  // namespace file_handle_key
