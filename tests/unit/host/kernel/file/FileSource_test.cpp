#include "host/kernel/file/FileSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <deque>
#include <map>

#include "host/base/JsonReader.h"
#include "tests/unit/host/kernel/file/FileEventBytes.h"

using namespace file_event_bytes;
using std::chrono::minutes;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t CRON = 1;  // inodes of directories
constexpr uint32_t TMP = 2;
constexpr uint32_t UNITS = 3;
constexpr uint32_t GONE = 9;

class FakeSensor : public IFileSensor {
public:
    bool Open(std::string&) override { return true; }
    int Descriptor() const override { return -1; }
    size_t Read(char* pBuffer, size_t nSize) override {
        const size_t nTaken = std::min(m_strEvents.copy(pBuffer, nSize), nSize);
        m_strEvents.erase(0, nTaken);
        return nTaken;
    }
    void Detach() override {}
    bool Tend() override { return m_bMounted; }
    void OnDirectory(const std::string& strPath) override { m_directories.push_back(strPath); }
    void Ignore(const std::string&) override {}
    std::vector<std::string> TakeNotices() override { return std::move(m_notices); }
    std::string PathOf(std::string_view strHandle) override {
        const auto found = m_disk.find(std::string(strHandle));
        return found == m_disk.end() ? "" : found->second;
    }
    std::string FsTypeOf(std::string_view) const override { return "tmpfs"; }
    bool TellsStarts(uint32_t) const override { return true; }

    std::string m_strEvents;
    std::map<std::string, std::string> m_disk = {{Handle(CRON), "/etc/cron.d"},
                                                 {Handle(TMP), "/tmp"},
                                                 {Handle(UNITS), "/usr/lib/systemd/system"}};
    std::vector<std::string> m_directories;
    std::vector<std::string> m_notices;
    bool m_bMounted = false;
};

class Observer : public IFileObserver {
public:
    void OnOperation(const FileOperation& operation) override {
        static const char* const ACTS[] = {"create", "write", "rename", "remove"};
        m_lines.push_back(std::string(ACTS[operation.eAct]) + " " + operation.strPath);
        m_operations.push_back(operation);
    }
    void OnOverflow(uint64_t nTimes, uint64_t nTotal) override {
        m_overflows.push_back(std::to_string(nTimes) + " of " + std::to_string(nTotal));
    }
    void OnOperations(const EventBatch&, std::vector<FileOperation> operations) override {
        m_handed += operations.size();
    }
    void OnFileCounters(const FileCounters& counters) override { m_counters = counters; }
    void OnNotice(const std::string& strText) override { m_notices.push_back(strText); }

    std::vector<std::string> m_lines;
    std::vector<FileOperation> m_operations;
    std::vector<std::string> m_overflows;
    std::vector<std::string> m_notices;
    FileCounters m_counters;
    size_t m_handed = 0;
};

class FileSourceTest : public testing::Test {
protected:
    FileSourceTest() {
        m_options.announce = std::chrono::milliseconds(0);
        m_options.fnLook = [this](const std::string& strPath, struct stat& status) {
            status.st_mode = m_pipes.count(strPath) != 0   ? S_IFIFO
                             : m_links.count(strPath) != 0 ? S_IFLNK
                                                           : S_IFREG;
            status.st_ino = 77;
            return true;
        };
        m_options.fnLookThrough = [this](const std::string& strPath, struct stat& status) {
            status.st_mode = m_links[strPath];
            return true;
        };
    }

    // Everything that strEvents holds, to the observer.
    void Sense(const std::string& strEvents) {
        if (m_pSource == nullptr) {
            auto pSensor = std::make_unique<FakeSensor>();
            m_pSensor = pSensor.get();
            m_pSensor->m_disk.insert(m_moreDisk.begin(), m_moreDisk.end());
            m_pSource = std::make_unique<FileSource>(std::move(pSensor), m_observer, m_places,
                                                     m_images, m_options);
        }
        m_pSensor->m_strEvents += strEvents;
        while (m_pSource->Read()) {
            m_pSource->Resolve();
        }
        m_pSource->TakeCounts(false);
    }
    const FileCounters& Counters() const { return m_observer.m_counters; }

    std::map<std::string, int> m_pipes;
    std::map<std::string, mode_t> m_links;
    std::map<std::string, std::string> m_moreDisk;
    WatchedPaths m_places{
        {}, [](const std::string& strPath) { return strPath == "/lib" ? "/usr/lib" : ""; }};
    ProcessTable m_images{{}, "/nowhere"};
    Observer m_observer;
    FileSourceOptions m_options;
    FakeSensor* m_pSensor = nullptr;
    std::unique_ptr<FileSource> m_pSource;
};

}  // namespace

TEST_F(FileSourceTest, OneEventOfSeveralActsIsToldInTheirOrder) {
    Sense(At(FAN_DELETE | FAN_CLOSE_WRITE | FAN_MODIFY | FAN_CREATE, 5, CRON, "job"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/job", "write /etc/cron.d/job",
                                                "remove /etc/cron.d/job"));
    EXPECT_EQ(3u, Counters().nCaptured);
    EXPECT_EQ(3u, Counters().nReported);
    EXPECT_EQ(1u, Counters().nEvents);
}

TEST_F(FileSourceTest, WhatHappensElsewhereIsCountedOnly) {
    Sense(At(FAN_CREATE | FAN_CLOSE_WRITE, 5, TMP, "file") + At(FAN_DELETE, 5, UNITS, "a.service"));

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(3u, Counters().nUnwatched);
    EXPECT_EQ(0u, Counters().Waiting());
}

TEST_F(FileSourceTest, EverythingIsToldWhenThatIsWanted) {
    m_options.bAll = true;
    Sense(At(FAN_CREATE, 5, TMP, "file"));

    ASSERT_THAT(m_observer.m_lines, ElementsAre("create /tmp/file"));
    EXPECT_FALSE(m_observer.m_operations[0].bPlace);
}

TEST_F(FileSourceTest, ANamedPipeIsToldWhereverItIsMadeAndThroughALinkToo) {
    m_pipes["/tmp/pipe"] = 1;
    m_links["/tmp/link"] = S_IFIFO;
    m_links["/tmp/other"] = S_IFREG;
    for (const char* pszName : {"pipe", "link", "other", "file"}) {
        Sense(At(FAN_CREATE, 5, TMP, pszName));
    }

    ASSERT_THAT(m_observer.m_lines, ElementsAre("create /tmp/pipe", "create /tmp/link"));
    EXPECT_TRUE(m_observer.m_operations[0].bPipe);
    EXPECT_FALSE(m_observer.m_operations[0].bPlace);
    EXPECT_EQ(77u, m_observer.m_operations[0].nInode);
    EXPECT_EQ("tmpfs", m_observer.m_operations[0].strFsType);
}

TEST_F(FileSourceTest, ARenameIsToldUnderTheOldPathAndAsACreationInAPlace) {
    Sense(Rename(0, 5, CRON, "a", CRON, "b") + Rename(0, 5, TMP, "new", UNITS, "x.service") +
          Rename(0, 5, CRON, "c", TMP, "gone"));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("rename /etc/cron.d/a", "create /etc/cron.d/b",
                            "create /lib/systemd/system/x.service", "rename /etc/cron.d/c"));
}

TEST_F(FileSourceTest, ARenameWithinADirectoryElsewhereIsOneOperation) {
    m_options.bAll = true;
    Sense(Rename(0, 5, TMP, "a", TMP, "b"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("rename /tmp/a"));
}

TEST_F(FileSourceTest, ADirectoryMadeInAPlaceIsACreationAndWhatIsBelowItIsKnown) {
    Sense(At(FAN_CREATE | FAN_ONDIR, 5, CRON, "d", 100) + At(FAN_CREATE, 5, 100, "job") +
          At(FAN_DELETE, 5, 100, "job") + At(FAN_DELETE | FAN_ONDIR, 5, CRON, "d", 100));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("create /etc/cron.d/d", "create /etc/cron.d/d/job",
                            "remove /etc/cron.d/d/job", "remove /etc/cron.d/d"));
    EXPECT_THAT(m_pSensor->m_directories, ElementsAre("/etc/cron.d/d"));
}

TEST_F(FileSourceTest, ADirectoryThatMovesTakesItsPathsAlong) {
    Sense(At(FAN_CREATE | FAN_ONDIR, 5, TMP, "d", 100) +
          Rename(FAN_ONDIR, 5, TMP, "d", CRON, "e", 100) + At(FAN_CREATE, 5, 100, "job"));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("create /etc/cron.d/e", "create /etc/cron.d/e/job"));
    EXPECT_THAT(m_pSensor->m_directories, ElementsAre("/tmp/d", "/etc/cron.d/e"));
}

TEST_F(FileSourceTest, ManyWritesWithoutAClosureAreOneInABatch) {
    m_options.nMostOperations = 2;
    Sense(At(FAN_MODIFY, 5, CRON, "job") + At(FAN_MODIFY, 5, CRON, "job"));
    Sense(At(FAN_MODIFY, 5, CRON, "job") + At(FAN_CLOSE_WRITE, 5, CRON, "job"));
    Sense(At(FAN_MODIFY, 5, CRON, "job"));  // the next batch

    EXPECT_EQ(3u, m_observer.m_lines.size());
    EXPECT_EQ(3u, Counters().nCaptured);
}

TEST_F(FileSourceTest, WritesOfTwoProcessesToOneFileAreTwoOperations) {
    Sense(At(FAN_MODIFY, 5, CRON, "job") + At(FAN_MODIFY, 6, CRON, "job"));
    Sense(At(FAN_MODIFY, 6, CRON, "job") + At(FAN_MODIFY, 5, CRON, "job"));

    EXPECT_EQ(2u, m_observer.m_lines.size());
}

TEST_F(FileSourceTest, TheHostsOwnDoingsAreCountedAndDropped) {
    Sense(At(FAN_CREATE, getpid(), CRON, "job"));

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(1u, Counters().nOwn);
}

TEST_F(FileSourceTest, WhatHappenedInADirectoryThatIsGoneIsCounted) {
    Sense(At(FAN_CREATE, 5, GONE, "job"));

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(1u, Counters().nUnresolved);
    EXPECT_EQ(0u, Counters().Waiting());
}

TEST_F(FileSourceTest, ADirectoryWithoutAPathMarksNoPlaces) {
    Sense(At(FAN_CREATE | FAN_ONDIR, 5, GONE, "new", 7));

    EXPECT_THAT(m_pSensor->m_directories, IsEmpty());
    EXPECT_EQ(1u, Counters().nUnresolved);
}

TEST_F(FileSourceTest, WhatHappenedInADirectoryRemovedSinceIsKnownByTheRemoval) {
    Sense(At(FAN_DELETE, 5, 101, "job") + At(FAN_DELETE | FAN_ONDIR, 5, 100, "inner", 101) +
          At(FAN_DELETE | FAN_ONDIR, 5, CRON, "outer", 100));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("remove /etc/cron.d/outer/inner/job", "remove /etc/cron.d/outer/inner",
                            "remove /etc/cron.d/outer"));
    EXPECT_EQ(0u, Counters().nUnresolved);
}

TEST_F(FileSourceTest, DirectoriesRemovedFromEachOtherDoNotHang) {
    Sense(At(FAN_DELETE | FAN_ONDIR, 5, 100, "a", 101) +
          At(FAN_DELETE | FAN_ONDIR, 5, 101, "b", 100));

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(2u, Counters().nUnresolved);
}

TEST_F(FileSourceTest, AnOverflowIsAnnouncedOnceAndWhatIsKnownOfPathsEndsThere) {
    Sense(At(FAN_CREATE | FAN_ONDIR, 5, CRON, "d", 100));
    Sense(Event(FAN_Q_OVERFLOW, 0, ""));
    Sense(At(FAN_CREATE, 5, 100, "job"));

    EXPECT_THAT(m_observer.m_overflows, ElementsAre("1 of 1"));
    EXPECT_EQ(1u, Counters().nOverflows);
    EXPECT_EQ(1u, Counters().nUnresolved);
}

TEST_F(FileSourceTest, AfterAMountPathsAreLookedUpAnew) {
    Sense(At(FAN_CREATE, 5, CRON, "job"));
    m_pSensor->m_disk[Handle(CRON)] = "/elsewhere";
    m_pSensor->m_bMounted = true;
    Sense(At(FAN_CREATE, 5, CRON, "job"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/job"));
}

TEST_F(FileSourceTest, AProgramThatNoPathLeadsToIsCounted) {
    Sense(At(FAN_CREATE, 5, CRON, "job"));

    EXPECT_EQ("", m_observer.m_operations.at(0).strProgram);
    EXPECT_EQ(1u, Counters().nNoProgram);
}

TEST_F(FileSourceTest, ABatchEndsWithItsNumberItsBytesOrItsTime) {
    m_options.nMostOperations = 2;
    m_options.batchTime = minutes(10);
    Sense(At(FAN_CREATE, 5, CRON, "a"));
    const auto now = FileSource::Clock::now();
    EXPECT_FALSE(m_pSource->HasBatch(now, false));
    EXPECT_TRUE(m_pSource->HasBatch(now, true));
    EXPECT_TRUE(m_pSource->HasBatch(now + minutes(11), false));
    Sense(At(FAN_CREATE, 5, CRON, "b") + At(FAN_CREATE, 5, CRON, "c"));
    EXPECT_EQ(3u, Counters().nBatched);

    EventBatch batch;
    ASSERT_TRUE(m_pSource->HasBatch(now, false));
    m_pSource->HandOut(batch, 7);
    EXPECT_EQ(7u, batch.nNumber);
    EXPECT_EQ(2u, batch.nEvents);
    EXPECT_FALSE(m_pSource->HasBatch(now, false));
    m_pSource->HandOut(batch, 8);
    EXPECT_EQ(3u, m_observer.m_handed);
    EXPECT_EQ(0u, Counters().nBatched);
}

TEST_F(FileSourceTest, AnyBytesOfANameReachTheMessage) {
    const std::string strName = "\"\\\n\x01\xff\xc3";
    Sense(At(FAN_CREATE, 5, CRON, strName));
    EventBatch batch;
    m_pSource->HandOut(batch, 1);

    Json::Value jsonRoot;
    ASSERT_TRUE(json_reader::Parse(batch.strBody, jsonRoot));
    EXPECT_EQ("/etc/cron.d/" + strName, jsonRoot["param"][0]["path"].asString());
}

TEST_F(FileSourceTest, OnAnOldKernelARenameIsTwoOperations) {
    Sense(At(FAN_MOVED_FROM, 5, CRON, "a") + At(FAN_MOVED_TO, 5, CRON, "b"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("rename /etc/cron.d/a", "create /etc/cron.d/b"));
}

TEST_F(FileSourceTest, BrokenBytesAreCounted) {
    Sense(At(FAN_CREATE, 5, CRON, "a") + "nonsense");

    EXPECT_EQ(1u, Counters().nBroken);
    EXPECT_EQ(1u, Counters().nReported);
}
