// The files that the kernel opens to execute them, as fanotify reports them: by process, in their
// order. Notifications only: nothing ever waits for this reader.
//
// Threads: one. Errors: Open's text says what is missing; nothing throws but std::bad_alloc.
//
// Memory is bounded: some files for each of some thousand processes; the kernel's own queue holds
// 16,384 and says when it was full. What is missing then is looked up in /proc instead.
#ifndef HOST_KERNEL_CONNECTOR_EXECOPENS_H
#define HOST_KERNEL_CONNECTOR_EXECOPENS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/kernel/connector/OpenedImage.h"
#include "host/kernel/launch/ExecNotices.h"

class ExecOpens {
public:
    ExecOpens() = default;

    ExecOpens(const ExecOpens&) = delete;
    ExecOpens& operator=(const ExecOpens&) = delete;

    // As ExecNotices.
    bool Open(std::string& strError) { return m_notices.Open(strError); }
    // Takes what waits in the kernel's queue, and marks what was mounted since.
    void Read();
    // The files opened for process nPid since the last call for it.
    std::vector<OpenedFile> Take(uint32_t nPid);
    void Forget(uint32_t nPid) { m_files.erase(nPid); }
    // File systems that could not be marked, for people; "" when there is none.
    const std::string& Unmarked() const { return m_notices.Unmarked(); }

private:
    static constexpr size_t MOST_PROCESSES = 4096;
    static constexpr size_t MOST_FILES = 64;  // of one process

    void TakeFile(uint32_t nPid, int nFd);

    ExecNotices m_notices;
    std::unordered_map<uint32_t, std::vector<OpenedFile>> m_files;  // by process
};

#endif
