#include "host/kernel/connector/LaunchRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/host/ProcessEvent.h"

using testing::ElementsAre;

namespace {

// Bytes of one record as it waits.
size_t RecordSize() {
    return EncodeLaunch(ProcessEvent(LAUNCH_KIND_EXEC, 1)).size();
}

// The processes of the records that wait, until nMost of them were taken.
std::vector<uint32_t> Drained(LaunchRecords& records, size_t nMost = 100) {
    std::vector<uint32_t> pids;
    records.Drain([&](const void* pData, size_t nSize) {
        LaunchEvent event;
        EXPECT_TRUE(DecodeLaunch(pData, nSize, event));
        pids.push_back(event.nPid);
        return pids.size() < nMost;
    });
    return pids;
}

}  // namespace

TEST(LaunchRecordsTest, RecordsAreDrainedInTheirOrderAndOnce) {
    LaunchRecords records(10000);
    records.Put(ProcessEvent(LAUNCH_KIND_FORK, 1));
    records.Put(ProcessEvent(LAUNCH_KIND_EXEC, 2));
    records.Put(ProcessEvent(LAUNCH_KIND_EXIT, 3));
    EXPECT_THAT(Drained(records, 2), ElementsAre(1, 2));
    EXPECT_THAT(Drained(records), ElementsAre(3));
    EXPECT_THAT(Drained(records), ElementsAre());
    EXPECT_EQ(1u, records.Counts().nCaptured);  // copies and ends are no launches
    EXPECT_EQ(0u, records.Counts().nLost);
    EXPECT_EQ(0u, records.Counts().nOthersLost);
}

TEST(LaunchRecordsTest, WhatFindsNoRoomIsLostAndCountedByItsKind) {
    LaunchRecords records(2 * RecordSize());
    for (uint32_t nPid = 1; nPid <= 4; ++nPid) {
        records.Put(ProcessEvent(LAUNCH_KIND_EXEC, nPid));
    }
    records.Put(ProcessEvent(LAUNCH_KIND_EXIT, 5));
    EXPECT_EQ(4u, records.Counts().nCaptured);
    EXPECT_EQ(2u, records.Counts().nLost);
    EXPECT_EQ(1u, records.Counts().nOthersLost);

    // What was drained gives its room back.
    EXPECT_THAT(Drained(records, 1), ElementsAre(1));
    records.Put(ProcessEvent(LAUNCH_KIND_EXEC, 6));
    records.Put(ProcessEvent(LAUNCH_KIND_EXEC, 7));
    EXPECT_THAT(Drained(records), ElementsAre(2, 6));
    EXPECT_EQ(6u, records.Counts().nCaptured);
    EXPECT_EQ(3u, records.Counts().nLost);
}

TEST(LaunchRecordsTest, WhatWasLostOrDroppedElsewhereIsInTheCounts) {
    LaunchRecords records(10000);
    records.Put(ProcessEvent(LAUNCH_KIND_EXEC, 1));
    records.Lose(5, 7);
    records.SetDropped(10, 20);
    records.SetDropped(100, 200);  // since the start, not since the last call
    EXPECT_EQ(106u, records.Counts().nCaptured);
    EXPECT_EQ(105u, records.Counts().nLost);
    EXPECT_EQ(207u, records.Counts().nOthersLost);
}

TEST(LaunchRecordsTest, ASinkMayPutAndCount) {
    LaunchRecords records(10000);
    records.Put(ProcessEvent(LAUNCH_KIND_EXEC, 1));
    size_t nCalls = 0;
    records.Drain([&](const void*, size_t) {
        if (++nCalls == 1) {
            records.Put(ProcessEvent(LAUNCH_KIND_EXEC, 2));  // it must hold no lock then
        }
        return records.Counts().nCaptured == 2;
    });
    EXPECT_EQ(2u, nCalls);
}
