// What the kernel reports of a file that was opened to be executed, and the heads of such files,
// for tests.
#ifndef TESTS_UNIT_HOST_KERNEL_CONNECTOR_EXECOPENBYTES_H
#define TESTS_UNIT_HOST_KERNEL_CONNECTOR_EXECOPENBYTES_H

#include <elf.h>
#include <sys/fanotify.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace exec_open_bytes {

inline std::string Opened(int32_t nPid, int32_t nFd, uint64_t nMask = FAN_OPEN_EXEC) {
    fanotify_event_metadata head = {};
    head.event_len = sizeof(head);
    head.vers = FANOTIFY_METADATA_VERSION;
    head.metadata_len = sizeof(head);
    head.mask = nMask;
    head.fd = nFd;
    head.pid = nPid;
    return std::string(reinterpret_cast<const char*>(&head), sizeof(head));
}

// The queue was full.
inline std::string Overflow() {
    return Opened(0, FAN_NOFD, FAN_Q_OVERFLOW);
}

// A program with this loader; one without a loader for "".
inline std::string ElfHead(const std::string& strLoader) {
    Elf64_Ehdr head = {};
    std::memcpy(head.e_ident, ELFMAG, SELFMAG);
    head.e_ident[EI_CLASS] = ELFCLASS64;
    head.e_phoff = sizeof(head);
    head.e_phnum = 1;
    Elf64_Phdr entry = {};
    entry.p_type = strLoader.empty() ? PT_LOAD : PT_INTERP;
    entry.p_offset = sizeof(head) + sizeof(entry);
    entry.p_filesz = strLoader.size() + 1;
    std::string strBytes(sizeof(head) + sizeof(entry), '\0');
    std::memcpy(&strBytes[0], &head, sizeof(head));
    std::memcpy(&strBytes[sizeof(head)], &entry, sizeof(entry));
    return strBytes + strLoader + std::string(1, '\0');
}

}  // namespace exec_open_bytes

#endif
