#include "host/base/MountTable.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace mount_table {

namespace {

constexpr const char* MEMORY[] = {"tmpfs", "ramfs", "devtmpfs", "rootfs"};
constexpr const char* NETWORK[] = {"nfs",  "nfs4",   "cifs",     "smb3",    "9p",       "ceph",
                                   "afs",  "coda",   "ncpfs",    "ocfs2",   "gfs2",     "lustre",
                                   "fuse", "beegfs", "virtiofs", "fuseblk", "glusterfs"};
constexpr const char* LOCAL[] = {"ext2",  "ext3",  "ext4",     "xfs",     "btrfs",    "f2fs",
                                 "jfs",   "vfat",  "exfat",    "ntfs3",   "udf",      "zfs",
                                 "tmpfs", "ramfs", "devtmpfs", "overlay", "bcachefs", "reiserfs"};

template <size_t nCount>
bool IsOneOf(const std::string& strType, const char* const (&types)[nCount]) {
    return std::any_of(std::begin(types), std::end(types),
                       [&](const char* pszType) { return strType == pszType; });
}

// Blank, tab, line feed and backslash stand in the text as a backslash and three octal digits.
std::string Unescaped(const std::string& strText) {
    std::string strPlain;
    for (size_t i = 0; i < strText.size(); ++i) {
        const std::string strDigits = strText[i] == '\\' ? strText.substr(i + 1, 3) : "";
        if (strDigits.size() == 3 && strDigits.find_first_not_of("01234567") == std::string::npos) {
            strPlain += static_cast<char>(std::strtoul(strDigits.c_str(), nullptr, 8));
            i += 3;
        } else {
            strPlain += strText[i];
        }
    }
    return strPlain;
}

std::vector<std::string> Words(const std::string& strLine) {
    std::vector<std::string> words;
    for (size_t nBegin = 0; nBegin < strLine.size();) {
        const size_t nEnd = std::min(strLine.find(' ', nBegin), strLine.size());
        words.push_back(strLine.substr(nBegin, nEnd - nBegin));
        nBegin = nEnd + 1;
    }
    return words;
}

// "36 35 98:0 /root /point options [optional...] - type source options"
bool ParseLine(const std::string& strLine, MountEntry& entry) {
    const std::vector<std::string> words = Words(strLine);
    const auto dash = std::find(words.begin(), words.end(), "-");
    const size_t nColon = words.size() > 5 ? words[2].find(':') : std::string::npos;
    if (nColon == std::string::npos || words.end() - dash < 2 || dash - words.begin() < 6) {
        return false;
    }
    const unsigned long nMajor = std::strtoul(words[2].c_str(), nullptr, 10);
    const unsigned long nMinor = std::strtoul(words[2].c_str() + nColon + 1, nullptr, 10);
    entry.nId = static_cast<uint32_t>(std::strtoul(words[0].c_str(), nullptr, 10));
    entry.nDevice = static_cast<uint32_t>(nMajor << 20 | nMinor);
    entry.strRoot = Unescaped(words[3]);
    entry.strPoint = Unescaped(words[4]);
    entry.strType = *(dash + 1);
    return !entry.strPoint.empty() && entry.strPoint[0] == '/';
}

}  // namespace

UniqueFd Open() {
    return UniqueFd(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
}

bool HasChanged(const UniqueFd& table) {
    pollfd fd = {table.Get(), POLLPRI, 0};
    return table && poll(&fd, 1, 0) > 0;
}

std::string Text() {
    std::string strText;
    const UniqueFd file = Open();
    char szPiece[16384];
    for (ssize_t nRead = 0; (nRead = read(file.Get(), szPiece, sizeof(szPiece))) > 0;) {
        strText.append(szPiece, static_cast<size_t>(nRead));
    }
    return strText;
}

std::vector<MountEntry> Parse(const std::string& strText) {
    std::vector<MountEntry> mounts;
    for (size_t nBegin = 0; nBegin < strText.size();) {
        const size_t nEnd = std::min(strText.find('\n', nBegin), strText.size());
        MountEntry entry;
        if (ParseLine(strText.substr(nBegin, nEnd - nBegin), entry)) {
            mounts.push_back(std::move(entry));
        }
        nBegin = nEnd + 1;
    }
    return mounts;
}

const MountEntry* MountOf(const std::vector<MountEntry>& mounts, const std::string& strPath) {
    const MountEntry* pFound = nullptr;
    for (const MountEntry& entry : mounts) {
        const size_t nSize = entry.strPoint == "/" ? 0 : entry.strPoint.size();
        const bool bIn = strPath.compare(0, nSize, entry.strPoint, 0, nSize) == 0 &&
                         (strPath.size() == nSize || strPath[nSize] == '/');
        // Of two on one point the later one covers the other.
        if (bIn && (pFound == nullptr || entry.strPoint.size() >= pFound->strPoint.size())) {
            pFound = &entry;
        }
    }
    return pFound;
}

bool IsLocal(const std::string& strType) {
    return IsOneOf(strType, LOCAL);
}

const char* DiskType(const std::string& strType) {
    if (IsOneOf(strType, MEMORY)) {
        return "memory";
    }
    return IsOneOf(strType, NETWORK) ? "network" : "disk";
}

}  // namespace mount_table
