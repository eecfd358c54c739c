// Bytes as fanotify writes them, for tests.
#ifndef TESTS_UNIT_HOST_KERNEL_FILE_FILEEVENTBYTES_H
#define TESTS_UNIT_HOST_KERNEL_FILE_FILEEVENTBYTES_H

#include <sys/fanotify.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace file_event_bytes {

template <class T>
std::string Bytes(T value) {
    std::string strBytes(sizeof(value), '\0');
    std::memcpy(strBytes.data(), &value, sizeof(value));
    return strBytes;
}

// The handle of inode nInode on the file system with this name of eight letters.
inline std::string Handle(uint32_t nInode, const std::string& strFsid = "fs-fs-fs") {
    return strFsid + Bytes<uint32_t>(8) + Bytes<uint32_t>(1) + Bytes(nInode) + Bytes<uint32_t>(7);
}

inline std::string Info(uint8_t nType, const std::string& strHandle,
                        const std::string& strName = "") {
    std::string strBody = strHandle;
    if (nType != FAN_EVENT_INFO_TYPE_FID) {
        strBody += strName + std::string(1, '\0');
    }
    strBody.resize((strBody.size() + 3) / 4 * 4);
    return Bytes(nType) + Bytes<uint8_t>(0) + Bytes(static_cast<uint16_t>(strBody.size() + 4)) +
           strBody;
}

inline std::string Event(uint64_t nMask, int32_t nPid, const std::string& strInfos) {
    fanotify_event_metadata head = {};
    head.event_len = static_cast<uint32_t>(sizeof(head) + strInfos.size());
    head.vers = FANOTIFY_METADATA_VERSION;
    head.metadata_len = sizeof(head);
    head.mask = nMask;
    head.fd = FAN_NOFD;
    head.pid = nPid;
    return Bytes(head) + strInfos;
}

// Something happened to strName (inode nTarget) in the directory with inode nDirectory.
inline std::string At(uint64_t nMask, int32_t nPid, uint32_t nDirectory, const std::string& strName,
                      uint32_t nTarget = 999) {
    return Event(nMask, nPid,
                 Info(FAN_EVENT_INFO_TYPE_DFID_NAME, Handle(nDirectory), strName) +
                     Info(FAN_EVENT_INFO_TYPE_FID, Handle(nTarget)));
}

inline std::string Rename(uint64_t nMoreMask, int32_t nPid, uint32_t nFrom,
                          const std::string& strFrom, uint32_t nTo, const std::string& strTo,
                          uint32_t nTarget = 999) {
    return Event(FAN_RENAME | nMoreMask, nPid,
                 Info(FAN_EVENT_INFO_TYPE_FID, Handle(nTarget)) +
                     Info(FAN_EVENT_INFO_TYPE_OLD_DFID_NAME, Handle(nFrom), strFrom) +
                     Info(FAN_EVENT_INFO_TYPE_NEW_DFID_NAME, Handle(nTo), strTo));
}

}  // namespace file_event_bytes

#endif
