// A file of a program that was started, held by a descriptor: it stays readable when its name is
// gone or leads to another file.
//
// Threads: any; nothing of it changes. Errors: none. Ownership: owns the descriptor.
#ifndef HOST_PROGRAM_HELDFILE_H
#define HOST_PROGRAM_HELDFILE_H

#include <string>
#include <utility>

#include "host/base/UniqueFd.h"
#include "host/program/FileLook.h"
#include "host/program/FileVersion.h"

class HeldFile {
public:
    // fd: opened for reading. version: as the kernel named it at the start. status: that of fd, at
    // a time when it was known to be the file that was started, unchanged. strName: for people.
    HeldFile(UniqueFd fd, const FileVersion& version, const FileStatus& status, std::string strName)
        : m_fd(std::move(fd)),
          m_version(version),
          m_status(status),
          m_strName(std::move(strName)) {}

    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

    int Descriptor() const { return m_fd.Get(); }
    const FileVersion& Version() const { return m_version; }
    const FileStatus& Status() const { return m_status; }
    const std::string& Name() const { return m_strName; }

private:
    const UniqueFd m_fd;
    const FileVersion m_version;
    const FileStatus m_status;
    const std::string m_strName;
};

#endif
