// On which file systems a file is read at all: fstatfs is answered by this program.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/vfs.h>

#include <cstdint>
#include <optional>
#include <string>

#include "framework/digest/FileHash.h"
#include "tests/support/TestDir.h"

namespace {

std::optional<uint32_t> s_magic;  // answers fstatfs() while it is set
int s_nAsked = 0;

}  // namespace

extern "C" {
__attribute__((visibility("default"))) int HookedFstatfs(int nFd,
                                                         struct statfs* pStatus) __asm__("fstatfs");

int HookedFstatfs(int nFd, struct statfs* pStatus) {
    using Function = int (*)(int, struct statfs*);
    static const auto pfnNext = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "fstatfs"));
    const int nResult = pfnNext(nFd, pStatus);
    if (nResult == 0 && s_magic) {
        ++s_nAsked;
        pStatus->f_type = static_cast<decltype(pStatus->f_type)>(*s_magic);
    }
    return nResult;
}
}

namespace {

class FileHashFilesystemsTest : public testing::Test {
protected:
    // Whether a file is hashed that seems to lie on such a file system.
    bool IsHashed(uint32_t nMagic) {
        std::string strMd5;
        std::string strSha1;
        s_magic = nMagic;
        s_nAsked = 0;
        const bool bHashed = utils::getMD5AndSHA1(m_strFile, strMd5, strSha1);
        s_magic.reset();
        EXPECT_LT(0, s_nAsked);
        EXPECT_EQ(bHashed, !strMd5.empty() && !strSha1.empty());
        return bHashed;
    }

    const TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("file", "abc");
};

}  // namespace

TEST_F(FileHashFilesystemsTest, NothingIsReadWhereTheKernelMakesTheFilesUp) {
    constexpr uint32_t FUSECTL = 0x65735543, CONFIGFS = 0x62656570, NFSD = 0x6e667364,
                       MQUEUE = 0x19800202;
    for (const uint32_t nMagic : {uint32_t{PROC_SUPER_MAGIC},
                                  uint32_t{SYSFS_MAGIC},
                                  uint32_t{DEBUGFS_MAGIC},
                                  uint32_t{TRACEFS_MAGIC},
                                  uint32_t{SECURITYFS_MAGIC},
                                  uint32_t{SELINUX_MAGIC},
                                  uint32_t{SMACK_MAGIC},
                                  uint32_t{AAFS_MAGIC},
                                  uint32_t{BPF_FS_MAGIC},
                                  uint32_t{CGROUP_SUPER_MAGIC},
                                  uint32_t{CGROUP2_SUPER_MAGIC},
                                  uint32_t{PSTOREFS_MAGIC},
                                  uint32_t{EFIVARFS_MAGIC},
                                  uint32_t{BINFMTFS_MAGIC},
                                  uint32_t{RDTGROUP_SUPER_MAGIC},
                                  uint32_t{BINDERFS_SUPER_MAGIC},
                                  uint32_t{XENFS_SUPER_MAGIC},
                                  FUSECTL,
                                  CONFIGFS,
                                  NFSD,
                                  MQUEUE}) {
        EXPECT_FALSE(IsHashed(nMagic)) << std::hex << nMagic;
    }
}

TEST_F(FileHashFilesystemsTest, FilesOfEveryOtherFileSystemAreHashed) {
    for (const uint32_t nMagic :
         {uint32_t{EXT4_SUPER_MAGIC}, uint32_t{BTRFS_SUPER_MAGIC}, uint32_t{XFS_SUPER_MAGIC},
          uint32_t{TMPFS_MAGIC}, uint32_t{OVERLAYFS_SUPER_MAGIC}, uint32_t{SQUASHFS_MAGIC},
          uint32_t{NFS_SUPER_MAGIC}, uint32_t{FUSE_SUPER_MAGIC}, uint32_t{RAMFS_MAGIC}}) {
        EXPECT_TRUE(IsHashed(nMagic)) << std::hex << nMagic;
    }
}
