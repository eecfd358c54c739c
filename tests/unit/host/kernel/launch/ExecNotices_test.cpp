#include "host/kernel/launch/ExecNotices.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "host/kernel/launch/ProcessLook.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/ExecNoticeBytes.h"
#include "tests/support/kernel/FakeKernel.h"

namespace {

class ExecNoticesTest : public testing::Test {
protected:
    void Open() {
        m_kernel.paths["/proc/self/mountinfo"] = m_dir.WriteFile("mountinfo", "");
        std::string strError;
        ASSERT_TRUE(m_notices.Open(strError)) << strError;
    }
    int FdOf(const std::string& strName) {
        return open(m_dir.WriteFile(strName, "x").c_str(), O_RDONLY | O_CLOEXEC);
    }

    FakeKernel m_kernel;
    TestDir m_dir;
    ExecNotices m_notices;
};

}  // namespace

TEST_F(ExecNoticesTest, EachFileIsHandedOverWithItsProcess) {
    Open();
    const int nFirst = FdOf("first");
    const int nSecond = FdOf("second");
    m_kernel.Tell({},
                  {{exec_open_bytes::Opened(7, nFirst)}, {exec_open_bytes::Opened(8, nSecond)}});

    std::vector<std::pair<uint32_t, int>> taken;
    m_notices.Read([&taken](uint32_t nPid, UniqueFd fd) { taken.emplace_back(nPid, fd.Get()); });

    const std::vector<std::pair<uint32_t, int>> expected = {{7, nFirst}, {8, nSecond}};
    EXPECT_EQ(expected, taken);
    EXPECT_EQ(-1, fcntl(nFirst, F_GETFD));  // nobody kept it
    EXPECT_EQ(-1, fcntl(nSecond, F_GETFD));
}

TEST_F(ExecNoticesTest, AFullQueueIsSaidByNoFile) {
    Open();
    m_kernel.Tell({}, {{exec_open_bytes::Overflow()}});
    int nNone = 0;
    m_notices.Read([&nNone](uint32_t, const UniqueFd& fd) { nNone += fd ? 0 : 1; });
    EXPECT_EQ(1, nNone);
}

TEST_F(ExecNoticesTest, AFloodIsTakenInParts) {
    Open();
    std::vector<FakeKernel::Told> told;
    for (int i = 0; i < 3; ++i) {
        told.push_back({exec_open_bytes::Opened(i + 1, FdOf(std::to_string(i)))});
    }
    m_kernel.Tell({}, told);
    std::vector<uint32_t> taken;
    const auto fnTake = [&taken](uint32_t nPid, const UniqueFd&) { taken.push_back(nPid); };
    m_notices.Read(fnTake, 2);
    EXPECT_EQ((std::vector<uint32_t>{1, 2}), taken);
    m_notices.Read(fnTake);
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3}), taken);
}

TEST_F(ExecNoticesTest, AMarkedFileSystemIsKnownByItsDevice) {
    FileStatus status;
    ASSERT_TRUE(file_look::AtTarget(m_dir.Path(), status));
    const uint32_t nDevice = process_look::IdOf(status).nDevice;
    Open();
    EXPECT_FALSE(m_notices.IsMarked(nDevice));

    ExecNotices marked;
    m_kernel.paths["/proc/self/mountinfo"] =
        m_dir.WriteFile("mountinfo", "1 0 8:1 / " + m_dir.Path() + " rw - ext4 x rw\n");
    std::string strError;
    ASSERT_TRUE(marked.Open(strError)) << strError;
    EXPECT_TRUE(marked.IsMarked(nDevice));
}
