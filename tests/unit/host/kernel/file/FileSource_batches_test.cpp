#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <unistd.h>

#include "host/base/JsonReader.h"
#include "host/kernel/file/FileSource.h"
#include "tests/unit/host/kernel/file/CapturedFiles.h"
#include "tests/unit/host/kernel/file/FileEventBytes.h"

using namespace file_event_bytes;
using namespace captured_files;
using std::chrono::minutes;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(FileSourceTest, ABatchEndsWithItsNumberItsBytesOrItsTime) {
    m_options.nMostOperations = 2;
    m_options.batchTime = minutes(10);
    Capture(At(FAN_CREATE, 5, CRON, "a"));
    const auto now = FileSource::Clock::now();
    EXPECT_FALSE(m_pSource->HasBatch(now, false));
    EXPECT_TRUE(m_pSource->HasBatch(now, true));
    EXPECT_TRUE(m_pSource->HasBatch(now + minutes(11), false));
    Capture(At(FAN_CREATE, 5, CRON, "b") + At(FAN_CREATE, 5, CRON, "c"));
    EXPECT_EQ(3u, Counters().nBatched);

    EventBatch batch;
    ASSERT_TRUE(m_pSource->HasBatch(now, false));
    m_pSource->TakeBatch(batch, 7);
    EXPECT_EQ(7u, batch.nNumber);
    EXPECT_EQ(2u, batch.nEvents);
    EXPECT_FALSE(m_pSource->HasBatch(now, false));
    m_pSource->TakeBatch(batch, 8);
    EXPECT_EQ(1u, batch.nEvents);
    EXPECT_EQ(0u, Counters().nBatched);
}

TEST_F(FileSourceTest, ABatchEndsWithTheBytesOfItsPaths) {
    m_options.batchTime = minutes(10);
    m_options.nMostBytes = 3 * std::string("/etc/cron.d/a").size() + std::string("/bin/sh").size();
    const auto now = FileSource::Clock::now();
    Start(6, "/bin/sh", 10);

    Capture(At(FAN_CREATE, 5, CRON, "a") + At(FAN_CREATE, 6, CRON, "b"));
    EXPECT_FALSE(m_pSource->HasBatch(now, false));
    Capture(At(FAN_CREATE, 5, CRON, "c"));
    EXPECT_TRUE(m_pSource->HasBatch(now, false));
    Capture(At(FAN_CREATE, 5, CRON, "d"));

    EventBatch batch;
    m_pSource->TakeBatch(batch, 1);
    EXPECT_EQ(3u, batch.nEvents);
    EXPECT_FALSE(m_pSource->HasBatch(now, false));  // the next one begins with nothing
}

TEST_F(FileSourceTest, ABatchIsDueByItsFirstOperationWhateverFollows) {
    m_options.batchTime = minutes(10);
    Capture(At(FAN_CREATE, 5, CRON, "a"));
    const auto afterFirst = FileSource::Clock::now();

    Capture(At(FAN_CREATE, 5, CRON, "b"));

    EXPECT_TRUE(m_pSource->HasBatch(afterFirst + minutes(10), false));
}

TEST_F(FileSourceTest, FullBatchesWaitInTheirOrder) {
    m_options.nMostOperations = 1;
    Capture(At(FAN_CREATE, 5, CRON, "a") + At(FAN_CREATE, 5, CRON, "b"));

    EventBatch batch;
    m_pSource->TakeBatch(batch, 1);
    EXPECT_THAT(batch.strBody, testing::HasSubstr("/etc/cron.d/a"));
    m_pSource->TakeBatch(batch, 2);
    EXPECT_THAT(batch.strBody, testing::HasSubstr("/etc/cron.d/b"));
    EXPECT_FALSE(m_pSource->HasBatch(FileSource::Clock::now(), true));
}

TEST_F(FileSourceTest, ABatchIsTheMessageThatTheModuleReads) {
    Start(5, "/bin/sh", 10);
    m_links["/etc/cron.d/job"] = S_IFREG;
    Capture(At(FAN_CREATE, 5, CRON, "job") + At(FAN_DELETE, 6, CRON, "old", 1234));
    const std::string strTime = std::to_string(m_observer.m_operations.at(0).tmWhen);
    EventBatch batch;
    batch.nCopies = 9;

    m_pSource->TakeBatch(batch, 3);

    EXPECT_EQ(
        R"({"param":[{"grup":"cloudquery","context":"cloudfd","path":"/etc/cron.d/job",)"
        R"("optertion":"create","exe_path":"/bin/sh","exe_pid":5,"ino":77,"disk_type":"memory",)"
        R"("fs_type":"tmpfs","result":"0","time":)" +
            strTime + R"(},{"path":"/etc/cron.d/old","optertion":"remove","exe_path":"",)" +
            R"("exe_pid":6,"ino":1234,"disk_type":"memory","fs_type":"tmpfs","result":"0","time":)" +
            strTime + "}]}",
        batch.strBody);
    EXPECT_EQ(1u, batch.nCopies);
    EXPECT_EQ(3u, batch.nNumber);
    EXPECT_EQ(2u, batch.nEvents);
}

TEST_F(FileSourceTest, AnyBytesOfANameReachTheMessage) {
    const std::string strName = "\"\\\n\x01\xff\xc3";
    Capture(At(FAN_CREATE, 5, CRON, strName));
    EventBatch batch;
    m_pSource->TakeBatch(batch, 1);

    Json::Value jsonRoot;
    ASSERT_TRUE(json_reader::Parse(batch.strBody, jsonRoot));
    EXPECT_EQ("/etc/cron.d/" + strName, jsonRoot["param"][0]["path"].asString());
}

TEST_F(FileSourceTest, AWriteThatWasHandedOutIsReportedAgainInTheNextBatch) {
    Capture(At(FAN_MODIFY, 5, CRON, "job"));
    EventBatch batch;
    m_pSource->TakeBatch(batch, 1);

    Capture(At(FAN_MODIFY, 5, CRON, "job") + At(FAN_MODIFY, 5, CRON, "job"));

    EXPECT_EQ(2u, m_observer.m_lines.size());
    EXPECT_EQ(2u, Counters().nReported);
}

TEST_F(FileSourceTest, AProgramThatNoPathLeadsToIsCounted) {
    Capture(At(FAN_CREATE, 5, CRON, "job"));

    EXPECT_EQ("", m_observer.m_operations.at(0).strProgram);
    EXPECT_EQ(1u, Counters().nNoProgram);
}

TEST_F(FileSourceTest, AnOperationIsTheProgramsThatHadBeenStartedByThen) {
    m_images.SetReportsStarts([this](uint32_t nDevice) { return Source().ReportsStarts(nDevice); });
    Start(5, "/bin/sh", 10);
    Start(5, "/bin/rm", 20);

    Capture(At(FAN_CREATE, 5, CRON, "a") + At(FAN_OPEN_EXEC, 5, TMP, "rm", 20) +
            At(FAN_CREATE, 5, CRON, "b"));

    EXPECT_THAT(Programs(), ElementsAre("/bin/sh", "/bin/rm"));
    EXPECT_EQ("/bin/rm", m_observer.m_operations[1].strProgramName);
    EXPECT_EQ(5u, m_observer.m_operations[1].nPid);
    EXPECT_EQ(0u, Counters().nNoProgram);
    EXPECT_EQ(2u, Counters().nCaptured);  // an opening is none
    EXPECT_EQ(3u, Counters().nEvents);
}

TEST_F(FileSourceTest, TheRemovalInAMergedEventIsTheNewestProgramsAndARemovalAloneIsNot) {
    m_images.SetReportsStarts([](uint32_t) { return true; });
    for (const uint64_t nBefore : {FAN_CREATE, FAN_CLOSE_WRITE, FAN_MODIFY}) {
        m_observer.m_operations.clear();
        const auto nPid = static_cast<uint32_t>(100 + nBefore);
        Start(nPid, "/bin/sh", 10);
        Start(nPid, "/bin/rm", 20);

        Capture(At(nBefore | FAN_DELETE, static_cast<int32_t>(nPid), CRON, "job") +
                At(FAN_DELETE, static_cast<int32_t>(nPid), CRON, "old"));

        EXPECT_THAT(Programs(), ElementsAre("/bin/sh", "/bin/rm", "/bin/sh")) << nBefore;
    }
}

TEST_F(FileSourceTest, AfterAnOverflowTheNewestProgramActs) {
    m_images.SetReportsStarts([](uint32_t) { return true; });
    Start(5, "/bin/sh", 10);
    Start(5, "/bin/rm", 20);

    Capture(Event(FAN_Q_OVERFLOW, 0, "") + At(FAN_CREATE, 5, CRON, "job"));

    EXPECT_THAT(Programs(), ElementsAre("/bin/rm"));
    EXPECT_EQ(1u, Counters().nEvents);  // an overflow is none
}

TEST_F(FileSourceTest, OverflowsAreAnnouncedNowAndThenAndAllOfThemAtTheEnd) {
    m_options.announce = minutes(10);
    const std::string strOverflow = Event(FAN_Q_OVERFLOW, 0, "");
    Capture(strOverflow);
    Capture(strOverflow + strOverflow);
    EXPECT_THAT(m_observer.m_overflows, ElementsAre("1 of 1"));

    m_pSource->TakeCounts(true);
    m_pSource->TakeCounts(true);

    EXPECT_THAT(m_observer.m_overflows, ElementsAre("1 of 1", "2 of 3"));
    EXPECT_EQ(3u, Counters().nOverflows);
}

TEST_F(FileSourceTest, ReadTakesNoMoreThanMayBeHeldUntilThatIsDecoded) {
    const std::string strEvent = At(FAN_CREATE, 5, CRON, "a");
    m_options.nReadBytes = strEvent.size();
    m_options.nMostHeld = 2 * strEvent.size();
    (void)Source();
    for (const char* pszName : {"a", "b", "c", "d"}) {
        m_sensor.reads.push_back(At(FAN_CREATE, 5, CRON, pszName));
    }

    EXPECT_TRUE(m_pSource->Read());
    EXPECT_EQ(2u, m_sensor.reads.size());
    m_pSource->Resolve();
    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/a"));
    EXPECT_TRUE(m_pSource->Read());
    EXPECT_EQ(1u, m_sensor.reads.size());
    Capture("");

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/a", "create /etc/cron.d/b",
                                                "create /etc/cron.d/c", "create /etc/cron.d/d"));
    EXPECT_FALSE(m_pSource->IsHolding());
}

TEST_F(FileSourceTest, WithNothingReadThereIsNothingToDecode) {
    EXPECT_FALSE(Source().Read());
    m_pSource->Resolve();
    m_pSource->TakeCounts(false);

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(0u, Counters().nEvents);
    EXPECT_FALSE(m_pSource->HasBatch(FileSource::Clock::now(), true));
}

TEST_F(FileSourceTest, ItsTimeIsThatOfTheReadingAndTheProcessorsIsCounted) {
    const auto tmBefore = static_cast<int64_t>(time(nullptr));
    for (int i = 0; i < 100; ++i) {
        Capture(At(FAN_CREATE, 5, CRON, "job"));
    }
    const auto tmAfter = static_cast<int64_t>(time(nullptr));

    EXPECT_LE(tmBefore, m_observer.m_operations.front().tmWhen);
    EXPECT_GE(tmAfter, m_observer.m_operations.back().tmWhen);
    EXPECT_LT(0u, Counters().nCaptureMicros);
}

TEST_F(FileSourceTest, TheSensorIsOpenedDetachedAndGivenWhatToIgnore) {
    m_options.ignored = {"/state", "/state/run"};
    std::string strError;
    m_sensor.nDescriptor = 4711;
    EXPECT_TRUE(Source().Open(strError));
    EXPECT_EQ(4711, m_pSource->Descriptor());
    EXPECT_TRUE(m_pSource->ReportsStarts(DISK));
    EXPECT_FALSE(m_pSource->ReportsStarts(DISK + 1));
    EXPECT_THAT(m_sensor.ignored, IsEmpty());

    m_pSource->Ignore();
    EXPECT_THAT(m_sensor.ignored, ElementsAre("/state", "/state/run"));
    EXPECT_FALSE(m_sensor.bDetached);
    m_pSource->Detach();
    EXPECT_TRUE(m_sensor.bDetached);

    m_sensor.strRefusal = "run as root";
    EXPECT_FALSE(m_pSource->Open(strError));
    EXPECT_EQ("run as root", strError);
}

TEST_F(FileSourceTest, NoticesOfTheSensorAreReportedOnce) {
    (void)Source();
    m_sensor.notices = {"a mount came", "a mount went"};
    m_pSource->TakeCounts(false);
    m_pSource->TakeCounts(true);

    EXPECT_THAT(m_observer.m_notices, ElementsAre("a mount came", "a mount went"));
}

TEST_F(FileSourceTest, BrokenBytesAreCounted) {
    Capture(At(FAN_CREATE, 5, CRON, "a") + "nonsense");

    EXPECT_EQ(1u, Counters().nBroken);
    EXPECT_EQ(1u, Counters().nReported);
}
