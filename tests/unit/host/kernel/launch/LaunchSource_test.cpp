#include "host/kernel/launch/LaunchSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "host/base/JsonReader.h"
#include "host/kernel/KernelSource.h"
#include "host/kernel/bpf/launch_record.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/FakeLaunchSensor.h"

using std::chrono::milliseconds;
using std::chrono::minutes;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string NUL(1, '\0');

// Nobody reports anything to it: there is no file sensor here.
class NoFiles : public IFileObserver {
public:
    void OnOperation(const FileOperation&) override { ADD_FAILURE(); }
    void OnOverflow(uint64_t, uint64_t) override { ADD_FAILURE(); }
    void OnFileCounters(const FileCounters&) override { ADD_FAILURE(); }
    void OnNotice(const std::string&) override { ADD_FAILURE(); }
};

class Observer : public ILaunchObserver {
public:
    void OnLaunch(const Launch& launch) override { m_launches.push_back(launch); }
    void OnUnresolved(const LaunchEvent& event, const LaunchContext& context,
                      const HeldFileRef& pFile) override {
        m_unresolved.push_back(event);
        m_contexts.push_back(context);
        m_held.push_back(pFile);
    }
    void OnRepeat(const Launch&) override {}
    void OnLost(uint64_t nLost, uint64_t nTotal) override { m_lost.push_back({nLost, nTotal}); }
    void OnCounters(const LaunchCounters& counters) override { m_counters = counters; }
    void OnNotice(const std::string& strText) override { m_notices.push_back(strText); }

    std::vector<Launch> m_launches;
    std::vector<LaunchContext> m_contexts;  // of those unresolved
    std::vector<HeldFileRef> m_held;
    std::vector<LaunchEvent> m_unresolved;
    std::vector<std::pair<uint64_t, uint64_t>> m_lost;
    std::vector<std::string> m_notices;
    LaunchCounters m_counters;
};

class LaunchSourceTest : public testing::Test {
protected:
    LaunchSourceTest() {
        m_state.strLimits = "it sees nothing";
        m_options.batchTime = milliseconds(0);
        m_options.announce = milliseconds(0);
        m_options.nMountNs = 0;
        m_options.strCgroups = "";
        // Everything is the file started, but what is below /other.
        m_options.fnLook = [](const std::string& strPath, struct stat& status) {
            status.st_mode = S_IFREG | 0755;
            status.st_ino = strPath.rfind("/other/", 0) == 0 || strPath.rfind("/proc/", 0) == 0;
            return true;
        };
    }

    // The launches' half, driven as a run drives it.
    KernelSource& Source() {
        if (m_pSource == nullptr) {
            KernelSourceOptions options;
            options.look = m_look;
            options.launches = m_options;
            m_pSource = std::make_unique<KernelSource>(std::make_unique<FakeLaunchSensor>(m_state),
                                                       m_observer, nullptr, m_noFiles, options);
            std::string strError;
            EXPECT_TRUE(m_pSource->Start(strError)) << strError;
        }
        return *m_pSource;
    }
    // A start of strName with the arguments strName and "x".
    void Capture(const std::string& strName, uint32_t nPid = 4711,
                 const std::string& strInterp = "") {
        launch_record head = {};
        head.life.type = LAUNCH_EXEC;
        head.life.pid = nPid;
        head.life.ppid = 0x7ffffff0;
        head.uid = 1000;
        head.name_length = static_cast<unsigned short>(strName.size() + 1);
        head.interp_length =
            static_cast<unsigned short>(strInterp.empty() ? 0 : strInterp.size() + 1);
        head.args_length = static_cast<unsigned int>(strName.size() + 3);
        std::string strBytes(sizeof(head), '\0');
        std::memcpy(strBytes.data(), &head, sizeof(head));
        strBytes +=
            strName + NUL + (strInterp.empty() ? "" : strInterp + NUL) + strName + NUL + "x" + NUL;
        m_state.records.push_back(strBytes);
        ++m_state.counts.nCaptured;
    }

    FakeLaunchState m_state;
    Observer m_observer;
    NoFiles m_noFiles;
    LaunchSourceOptions m_options;
    milliseconds m_look{1};
    std::unique_ptr<KernelSource> m_pSource;
    EventBatch m_batch;
};

}  // namespace

TEST_F(LaunchSourceTest, ALaunchBecomesAMessageWithOneTaggedElement) {
    Capture("/bin/a");
    Capture("/bin/b", 4712);

    ASSERT_EQ(SOURCE_BATCH, Source().Next(m_batch, minutes(1)));

    EXPECT_EQ(R"({"param":[{"grup":"cloudquery","context":"cloudad","path":"/bin/a",)"
              R"("cmd":"/bin/a x","pid":4711},{"path":"/bin/b","cmd":"/bin/b x","pid":4712}]})",
              m_batch.strBody);
    EXPECT_EQ(2u, m_batch.nEvents);
    EXPECT_EQ(1u, m_batch.nNumber);
}

TEST_F(LaunchSourceTest, ALaunchHasItsUserAlsoWhenNoPathLeadsToIt) {
    Capture("/bin/a");
    Capture("/other/a", 4712);
    ASSERT_EQ(SOURCE_BATCH, Source().Next(m_batch, minutes(1)));

    ASSERT_EQ(1u, m_observer.m_launches.size());
    EXPECT_EQ(1000u, m_observer.m_launches[0].context.nUid);
    ASSERT_EQ(1u, m_observer.m_contexts.size());
    EXPECT_EQ(1000u, m_observer.m_contexts[0].nUid);
    EXPECT_EQ("", m_observer.m_contexts[0].strCgroup);
}

TEST_F(LaunchSourceTest, ABatchEndsWithItsNumberAndTheRestComesNext) {
    m_options.nMostLaunches = 2;
    for (const char* pszName : {"/bin/a", "/bin/b", "/bin/c"}) {
        Capture(pszName);
    }

    ASSERT_EQ(SOURCE_BATCH, Source().Next(m_batch, minutes(1)));
    EXPECT_EQ(2u, m_batch.nEvents);
    ASSERT_EQ(SOURCE_BATCH, Source().Next(m_batch, minutes(1)));
    EXPECT_EQ(1u, m_batch.nEvents);
    EXPECT_EQ(2u, m_batch.nNumber);
}

TEST_F(LaunchSourceTest, ABatchEndsWithItsBytes) {
    m_options.nMostBytes = 10;
    Capture("/bin/a");
    Capture("/bin/b");

    ASSERT_EQ(SOURCE_BATCH, Source().Next(m_batch, minutes(1)));

    EXPECT_EQ(1u, m_batch.nEvents);
}

TEST_F(LaunchSourceTest, ABatchWaitsForItsTime) {
    m_options.batchTime = minutes(10);
    Capture("/bin/a");

    EXPECT_EQ(SOURCE_NOTHING_YET, Source().Next(m_batch, milliseconds(3)));
    EXPECT_EQ(1u, m_observer.m_launches.size());
}

TEST_F(LaunchSourceTest, StopReportsWhatWasCapturedAndThenEnds) {
    m_options.batchTime = minutes(10);
    Capture("/bin/a");
    Source().Stop();

    EXPECT_EQ(SOURCE_BATCH, Source().Next(m_batch, minutes(1)));
    EXPECT_TRUE(m_state.bDetached);
    EXPECT_EQ(SOURCE_END, Source().Next(m_batch, minutes(1)));
    EXPECT_EQ(0u, m_observer.m_counters.Waiting());
}

TEST_F(LaunchSourceTest, StopEndsAWait) {
    m_look = minutes(1);
    KernelSource& source = Source();
    std::thread stopper([&source] { source.Stop(); });

    EXPECT_EQ(SOURCE_END, source.Next(m_batch, minutes(1)));
    stopper.join();
}

TEST_F(LaunchSourceTest, AScriptIsALaunchOfItsOwnWithTheSameCommandLine) {
    Capture("/srv/a.sh", 4711, "/bin/sh");

    ASSERT_EQ(SOURCE_BATCH, Source().Next(m_batch, minutes(1)));

    ASSERT_EQ(2u, m_observer.m_launches.size());
    EXPECT_EQ("/bin/sh", m_observer.m_launches[0].creation.strPath);
    EXPECT_FALSE(m_observer.m_launches[0].bScript);
    EXPECT_EQ("/srv/a.sh", m_observer.m_launches[1].creation.strPath);
    EXPECT_EQ("/srv/a.sh x", m_observer.m_launches[1].creation.strCommand);
    EXPECT_TRUE(m_observer.m_launches[1].bScript);
    EXPECT_EQ(1u, m_observer.m_counters.nReported);
    EXPECT_EQ(1u, m_observer.m_counters.nScripts);
}

TEST_F(LaunchSourceTest, AScriptWhoseNameLeadsOverALinkOfProcIsNotReported) {
    const TestDir dir;
    const std::string strLink = dir.Path() + "/a.sh";
    (void)dir.WriteFile("file", "#!/bin/sh\n");
    ASSERT_EQ(0, symlink(("/proc/self/root" + dir.Path() + "/file").c_str(), strLink.c_str()));
    m_options.fnLook = nullptr;
    Capture(dir.Path() + "/file", 4711, "/bin/sh");
    Capture(strLink, 4711, "/bin/sh");
    Source().Stop();

    (void)Source().Next(m_batch, minutes(1));

    ASSERT_EQ(1u, m_observer.m_launches.size());
    EXPECT_EQ(dir.Path() + "/file", m_observer.m_launches[0].creation.strPath);
    EXPECT_EQ(1u, m_observer.m_counters.nScriptsUnreported);
}

TEST_F(LaunchSourceTest, ALaunchThatNoPathNamesIsShownAndCountedAndNotReported) {
    Capture("/other/a");
    Source().Stop();

    EXPECT_EQ(SOURCE_END, Source().Next(m_batch, minutes(1)));

    ASSERT_EQ(1u, m_observer.m_unresolved.size());
    EXPECT_EQ("/other/a", m_observer.m_unresolved[0].strName);
    EXPECT_EQ(1u, m_observer.m_counters.nUnresolved);
    EXPECT_TRUE(m_observer.m_launches.empty());
}

TEST_F(LaunchSourceTest, TheHostsOwnProcessAndBrokenRecordsAreCountedAndDropped) {
    Capture("/bin/a", static_cast<uint32_t>(getpid()));
    m_state.records.push_back("nonsense");
    ++m_state.counts.nCaptured;
    Source().Stop();

    EXPECT_EQ(SOURCE_END, Source().Next(m_batch, minutes(1)));

    EXPECT_EQ(1u, m_observer.m_counters.nOwn);
    EXPECT_EQ(1u, m_observer.m_counters.nBroken);
    EXPECT_EQ(0u, m_observer.m_counters.Waiting());
}

TEST_F(LaunchSourceTest, EachLossIsAnnouncedOnce) {
    m_state.counts.nCaptured = m_state.counts.nLost = 3;
    EXPECT_EQ(SOURCE_NOTHING_YET, Source().Next(m_batch, milliseconds(2)));
    EXPECT_EQ(SOURCE_NOTHING_YET, Source().Next(m_batch, milliseconds(2)));
    m_state.counts.nCaptured = m_state.counts.nLost = 5;
    EXPECT_EQ(SOURCE_NOTHING_YET, Source().Next(m_batch, milliseconds(2)));

    const std::vector<std::pair<uint64_t, uint64_t>> EXPECTED = {{3, 3}, {2, 5}};
    EXPECT_EQ(EXPECTED, m_observer.m_lost);
    EXPECT_EQ(5u, m_observer.m_counters.nLost);
}

TEST_F(LaunchSourceTest, LossesInQuickSuccessionAreAnnouncedTogether) {
    m_options.calm = m_options.announce = minutes(10);
    for (const uint64_t nLost : {1u, 2u, 3u}) {
        m_state.counts.nLost = nLost;
        EXPECT_EQ(SOURCE_NOTHING_YET, Source().Next(m_batch, milliseconds(0)));
    }
    Source().Stop();
    EXPECT_EQ(SOURCE_END, Source().Next(m_batch, milliseconds(0)));

    const std::vector<std::pair<uint64_t, uint64_t>> EXPECTED = {{3, 3}};
    EXPECT_EQ(EXPECTED, m_observer.m_lost);
}

TEST_F(LaunchSourceTest, AnyBytesOfANameReachTheMessage) {
    const std::string strName = "/bin/\"\\\n\x01\xff\xc3";
    Capture(strName);
    ASSERT_EQ(SOURCE_BATCH, Source().Next(m_batch, minutes(1)));

    EXPECT_THAT(m_batch.strBody, Not(HasSubstr("\n")));
    Json::Value jsonRoot;
    ASSERT_TRUE(json_reader::Parse(m_batch.strBody, jsonRoot));
    EXPECT_EQ(strName, jsonRoot["param"][0]["path"].asString());
    EXPECT_EQ(strName + " x", jsonRoot["param"][0]["cmd"].asString());
}

TEST_F(LaunchSourceTest, TheStartSaysWhatSensesAndWhatThatCannotSee) {
    (void)Source();

    const std::vector<std::string> EXPECTED = {"launches are captured by a test: it sees nothing"};
    EXPECT_EQ(EXPECTED, m_observer.m_notices);
}

TEST_F(LaunchSourceTest, ASensorThatCannotBeOpenedEndsTheStart) {
    m_state.strRefusal = "no kernel here";
    KernelSource source(std::make_unique<FakeLaunchSensor>(m_state), m_observer, nullptr,
                        m_noFiles);
    std::string strError;

    EXPECT_FALSE(source.Start(strError));
    EXPECT_EQ("no kernel here", strError);
    EXPECT_TRUE(m_observer.m_notices.empty());
}
