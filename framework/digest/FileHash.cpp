#include "framework/digest/FileHash.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

#include "framework/digest/DigestObserver.h"
#include "framework/digest/DigestPair.h"

namespace {

constexpr size_t BLOCK_SIZE = 64 * 1024;

// What one call works with: both digests and the block read last.
class CHashKit {
public:
    bool Add(size_t nBytes) { return m_pair.Add(m_block, nBytes); }
    bool End(unsigned char* pMd5, unsigned char* pSha1) { return m_pair.End(pMd5, pSha1); }
    unsigned char* Block() { return m_block; }

private:
    utils::CDigestPair m_pair;
    unsigned char m_block[BLOCK_SIZE];
};

class CFileHandle {
public:
    explicit CFileHandle(int nFd) : m_nFd(nFd) {}
    ~CFileHandle() {
        if (m_nFd >= 0) {
            close(m_nFd);
        }
    }

    CFileHandle(const CFileHandle&) = delete;
    CFileHandle& operator=(const CFileHandle&) = delete;

    int Get() const { return m_nFd; }

private:
    int m_nFd;
};

// Where the kernel makes the files up, as regular ones. No program is started from there, and
// reading may act: it takes lines out of the kernel's log, or reads a device's registers.
constexpr uint32_t KERNEL_FILE_SYSTEMS[] = {
    PROC_SUPER_MAGIC, SYSFS_MAGIC, DEBUGFS_MAGIC, TRACEFS_MAGIC, SECURITYFS_MAGIC, SELINUX_MAGIC,
    SMACK_MAGIC, AAFS_MAGIC, BPF_FS_MAGIC, CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC, PSTOREFS_MAGIC,
    EFIVARFS_MAGIC, BINFMTFS_MAGIC, RDTGROUP_SUPER_MAGIC, BINDERFS_SUPER_MAGIC, XENFS_SUPER_MAGIC,
    // No header of the kernel's has these.
    0x65735543,  // fusectl: the connections of FUSE
    0x62656570,  // configfs
    0x6e667364,  // nfsd
    0x19800202,  // mqueue
};

bool IsKernelsOwn(int nFd) {
    struct statfs status = {};
    return fstatfs(nFd, &status) == 0 &&
           std::find(std::begin(KERNEL_FILE_SYSTEMS), std::end(KERNEL_FILE_SYSTEMS),
                     static_cast<uint32_t>(status.f_type)) != std::end(KERNEL_FILE_SYSTEMS);
}

// Only the owner may leave the access time alone besides.
constexpr int READ_FLAGS = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;

// Opens for reading the very file that nPathFd stands on, whatever its path names by now. Asks for
// the thread's own descriptors: those of "self" are gone once the host's first thread has ended.
int Reopen(int nPathFd) {
    char szLink[40];
    (void)snprintf(szLink, sizeof(szLink), "/proc/thread-self/fd/%d", nPathFd);
    const int nFd = open(szLink, READ_FLAGS | O_NOATIME);
    return nFd < 0 && errno == EPERM ? open(szLink, READ_FLAGS) : nFd;
}

// The same where /proc is not mounted: by its path once more, with the links resolved beforehand.
// On the way to the opening no link counts, so that whoever exchanges parts of the path cannot lead
// it to a device.
int ReopenByPath(const std::string& strPath) {
    const std::unique_ptr<char, void (*)(void*)> pResolved(realpath(strPath.c_str(), nullptr),
                                                           free);
    if (pResolved == nullptr) {
        return -1;
    }
    open_how how = {};
    how.flags = static_cast<uint64_t>(READ_FLAGS | O_NOATIME);
    how.resolve = RESOLVE_NO_SYMLINKS;
    long nFd = syscall(SYS_openat2, AT_FDCWD, pResolved.get(), &how, sizeof(how));
    if (nFd < 0 && errno == EPERM) {
        how.flags = static_cast<uint64_t>(READ_FLAGS);
        nFd = syscall(SYS_openat2, AT_FDCWD, pResolved.get(), &how, sizeof(how));
    }
    return static_cast<int>(nFd);
}

bool IsSameFile(int nFd, const struct stat& seen) {
    struct stat status = {};
    return fstat(nFd, &status) == 0 && status.st_dev == seen.st_dev &&
           status.st_ino == seen.st_ino && S_ISREG(status.st_mode);
}

bool IsProcMounted() {
    return access("/proc/thread-self/fd", F_OK) == 0;
}

// Reads at most nWanted bytes into pBlock; 0 at the end, -1 on an error.
ssize_t ReadBlock(int nFd, unsigned char* pBlock, int64_t nWanted) {
    const size_t nBytes =
        nWanted < static_cast<int64_t>(BLOCK_SIZE) ? static_cast<size_t>(nWanted) : BLOCK_SIZE;
    ssize_t nRead = 0;
    do {
        nRead = read(nFd, pBlock, nBytes);
    } while (nRead < 0 && errno == EINTR);
    return nRead;
}

// Exactly nSize bytes; a file that has become shorter was not read to its end.
bool AddSized(int nFd, CHashKit& kit, int64_t nSize) {
    while (nSize > 0) {
        const ssize_t nRead = ReadBlock(nFd, kit.Block(), nSize);
        if (nRead <= 0 || !kit.Add(static_cast<size_t>(nRead))) {
            return false;
        }
        nSize -= nRead;
    }
    return true;
}

bool AddSizeless(int nFd, CHashKit& kit) {
    int64_t nLeft = utils::HASH_SIZELESS_LIMIT;
    for (;;) {
        // One byte is asked for beyond the limit: what gives it is too large.
        const ssize_t nRead = ReadBlock(nFd, kit.Block(), nLeft + 1);
        if (nRead == 0) {
            return true;
        }
        if (nRead < 0 || nRead > nLeft || !kit.Add(static_cast<size_t>(nRead))) {
            return false;
        }
        nLeft -= nRead;
    }
}

std::string HexText(const unsigned char* pBytes, size_t nBytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string strText;
    strText.reserve(2 * nBytes);
    for (size_t i = 0; i < nBytes; ++i) {
        strText += DIGITS[pBytes[i] >> 4];
        strText += DIGITS[pBytes[i] & 0x0f];
    }
    return strText;
}

std::optional<struct stat> StatusOf(int nFd) {
    struct stat status = {};
    return fstat(nFd, &status) == 0 ? std::optional<struct stat>(status) : std::nullopt;
}

// pStatus: null, or filled with the status of what was read, if it has one.
bool HashFile(const std::string& strPath, unsigned char* pMd5, unsigned char* pSha1,
              std::optional<struct stat>* pStatus) {
    if (strPath.empty() || strPath.find('\0') != std::string::npos) {
        return false;
    }
    // Examined without opening: opening a device may act, opening a FIFO may wait.
    const CFileHandle path(open(strPath.c_str(), O_PATH | O_CLOEXEC));
    struct stat status = {};
    if (path.Get() < 0 || fstat(path.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > utils::HASH_SIZE_LIMIT || IsKernelsOwn(path.Get())) {
        return false;
    }
    int nFd = Reopen(path.Get());
    if (nFd < 0 && errno == ENOENT && !IsProcMounted()) {
        nFd = ReopenByPath(strPath);
    }
    const CFileHandle file(nFd);
    if (file.Get() < 0 || !IsSameFile(file.Get(), status)) {
        return false;
    }
    CHashKit kit;
    const bool bHashed = (status.st_size > 0 ? AddSized(file.Get(), kit, status.st_size)
                                             : AddSizeless(file.Get(), kit)) &&
                         kit.End(pMd5, pSha1);
    if (bHashed && pStatus != nullptr) {
        *pStatus = StatusOf(file.Get());
    }
    return bHashed;
}

}  // namespace

bool utils::getMD5AndSHA1(const std::string& strPath, std::string& strMd5, std::string& strSha1) {
    try {
        unsigned char md5[CDigestPair::MD5_SIZE];
        unsigned char sha1[CDigestPair::SHA1_SIZE];
        std::optional<struct stat> status;
        if (HashFile(strPath, md5, sha1, digest_observer::IsSet() ? &status : nullptr)) {
            std::string strMd5Text = HexText(md5, sizeof(md5));
            std::string strSha1Text = HexText(sha1, sizeof(sha1));
            if (status) {
                digest_observer::Call(strPath, *status, strMd5Text, strSha1Text);
            }
            strMd5 = std::move(strMd5Text);
            strSha1 = std::move(strSha1Text);
            return true;
        }
    } catch (const std::exception&) {  // no memory: a file that could not be read
    }
    strMd5.clear();
    strSha1.clear();
    return false;
}
