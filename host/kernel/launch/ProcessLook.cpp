#include "host/kernel/launch/ProcessLook.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdlib>

#include "host/base/UniqueFd.h"
#include "host/kernel/bpf/launch_record.h"
#include "host/program/FileLook.h"

namespace {

// The fourth field; the second one is a name in brackets that may hold anything.
uint32_t ParentIn(const std::string& strStat) {
    const size_t nBracket = strStat.rfind(')');
    return nBracket == std::string::npos || nBracket + 4 > strStat.size()
               ? 0
               : static_cast<uint32_t>(std::strtoul(strStat.c_str() + nBracket + 4, nullptr, 10));
}

}  // namespace

FileId process_look::IdOf(const FileStatus& status) {
    FileId id;
    id.nInode = status.st_ino;
    id.nDevice = static_cast<uint32_t>(major(status.st_dev) << 20 | minor(status.st_dev));
    id.nMountId = status.nMountId;
    id.nSize = static_cast<uint64_t>(status.st_size);
    id.nChanged = status.Changed();
    return id;
}

FileId process_look::FileOf(const std::string& strPath) {
    FileStatus status;
    return file_look::AtTarget(strPath, status) ? IdOf(status) : FileId();
}

std::string process_look::ReadFile(int nDir, const char* pszName, size_t nMost) {
    std::string strText;
    const UniqueFd fd(openat(nDir, pszName, O_RDONLY | O_CLOEXEC));
    if (!fd) {
        return strText;
    }
    strText.resize(nMost);
    size_t nRead = 0;
    ssize_t nNow = 0;
    while (nRead < nMost && (nNow = read(fd.Get(), &strText[nRead], nMost - nRead)) > 0) {
        nRead += static_cast<size_t>(nNow);
    }
    strText.resize(nRead);
    return strText;
}

std::string process_look::LinkOf(int nDir, const char* pszName) {
    static const std::string DELETED = " (deleted)";
    const std::string strPath = file_look::LinkText(pszName, nDir);
    const bool bDeleted =
        strPath.size() > DELETED.size() &&
        strPath.compare(strPath.size() - DELETED.size(), DELETED.size(), DELETED) == 0;
    return bDeleted || strPath.empty() || strPath[0] != '/' ? "" : strPath;
}

ProcessState process_look::Look(uint32_t nPid, const std::string& strProc) {
    ProcessState state;
    // Everything through one descriptor: should the number be given away, nothing more is read.
    const UniqueFd process(
        open((strProc + "/" + std::to_string(nPid)).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!process) {
        return state;
    }
    const int nDir = process.Get();
    state.strArgs = ReadFile(nDir, "cmdline", LAUNCH_ARGS_MOST + 1);
    if (state.strArgs.size() > LAUNCH_ARGS_MOST) {
        state.strArgs.resize(LAUNCH_ARGS_MOST);
        state.bArgsCut = true;
    }
    FileStatus status;
    if (file_look::AtTargetIn(nDir, "exe", status)) {
        state.exe = IdOf(status);
        state.strExe = LinkOf(nDir, "exe");
        state.strDirectory = LinkOf(nDir, "cwd");
    }
    if (file_look::AtTargetIn(nDir, "ns/mnt", status)) {
        state.nMountNs = static_cast<uint32_t>(status.st_ino);
    }
    if (file_look::AtDescriptor(nDir, status)) {
        state.nUid = status.st_uid;
    }
    state.nParent = ParentIn(ReadFile(nDir, "stat", 512));
    return state;
}
