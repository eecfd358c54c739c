#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "tests/system/host/HostProgram.h"

namespace {

constexpr uint64_t WATCHING = (1ULL << 2) | (1ULL << 19) | (1ULL << 21) | (1ULL << 39);
constexpr uint64_t STARTING = WATCHING | (1ULL << 12) | (1ULL << 23) | (1ULL << 24) | (1ULL << 38);

// The number behind "Name:" in a status text.
uint64_t Number(const std::string& strStatus, const std::string& strName, int nBase) {
    const size_t nAt = strStatus.find("\n" + strName + ":");
    EXPECT_NE(std::string::npos, nAt) << strName;
    return nAt == std::string::npos
               ? 0
               : std::stoull(strStatus.substr(nAt + strName.size() + 2), nullptr, nBase);
}

// The thread sanitizer starts a thread before the program's first line. It has the program's name,
// which of the program's own threads only the first one keeps.
bool IsSanitizersThread([[maybe_unused]] const std::filesystem::path& task,
                        [[maybe_unused]] const std::filesystem::path& tasks) {
#ifdef __SANITIZE_THREAD__
    return task.filename() != tasks.parent_path().filename() &&
           FileText((task / "comm").string()) == "tevmon-host\n";
#else
    return false;
#endif
}

class PrivilegesTest : public testing::Test {
protected:
    // The status of each thread of a run that has begun, with that option more.
    std::vector<std::string> StatusOfThreads(const std::string& strOption) {
        const std::string strEvents = m_dir.WriteFile("events", "");
        std::vector<std::string> arguments = {"--module", FakeModule("works"), "--json", "replay",
                                              strEvents};
        if (!strOption.empty()) {
            arguments.push_back(strOption);
        }
        m_host.Start(arguments);
        EXPECT_TRUE(m_host.WaitForOutput("\"start\""));
        EXPECT_TRUE(m_host.WaitForError("everything is delivered"));
        std::vector<std::string> texts;
        const std::string strTasks = "/proc/" + std::to_string(m_host.Pid()) + "/task";
        for (const auto& entry : std::filesystem::directory_iterator(strTasks)) {
            if (!IsSanitizersThread(entry.path(), strTasks)) {
                texts.push_back(FileText(entry.path().string() + "/status"));
            }
        }
        m_host.Signal(SIGTERM);
        EXPECT_EQ(0, m_host.Wait());
        return texts;
    }

    TestDir m_dir;
    HostProgram m_host{m_dir};
};

}  // namespace

TEST_F(PrivilegesTest, ARunningHostKeepsWhatWatchingNeedsOnEveryThread) {
    const std::vector<std::string> texts = StatusOfThreads("");

    ASSERT_LE(2u, texts.size());
    for (const std::string& strStatus : texts) {
        EXPECT_EQ(1u, Number(strStatus, "NoNewPrivs", 10)) << strStatus;
        for (const char* pszSet : {"CapPrm", "CapEff"}) {
            EXPECT_EQ(0u, Number(strStatus, pszSet, 16) & ~WATCHING) << strStatus;
        }
        EXPECT_EQ(0u, Number(strStatus, "CapInh", 16)) << strStatus;
        EXPECT_EQ(0u, Number(strStatus, "CapAmb", 16)) << strStatus;
        if (geteuid() == 0) {
            EXPECT_EQ(0u, Number(strStatus, "CapBnd", 16) & ~STARTING) << strStatus;
        }
    }
}

TEST_F(PrivilegesTest, TheThreadThatWaitsForSignalsHasNone) {
    bool bFound = false;
    for (const std::string& strStatus : StatusOfThreads("")) {
        if (strStatus.find("host_signals") != std::string::npos) {
            bFound = true;
            EXPECT_EQ(0u, Number(strStatus, "CapPrm", 16)) << strStatus;
        }
    }
    EXPECT_TRUE(bFound);
}

TEST_F(PrivilegesTest, TheyAreKeptForWhoAsks) {
    const std::string strOwn = FileText("/proc/self/status");

    for (const std::string& strStatus : StatusOfThreads("--keep-privileges")) {
        EXPECT_EQ(Number(strOwn, "NoNewPrivs", 10), Number(strStatus, "NoNewPrivs", 10));
        EXPECT_EQ(Number(strOwn, "CapBnd", 16), Number(strStatus, "CapBnd", 16));
    }
}
