#include "host/kernel/file/HeldEvents.h"

#include <gtest/gtest.h>

#include "tests/unit/host/kernel/file/FileEventBytes.h"

using namespace file_event_bytes;

namespace {

class HeldEventsTest : public testing::Test {
protected:
    void Add(const std::string& strEvents, int64_t tmRead = 0) {
        m_held.Add(strEvents.data(), strEvents.size(), tmRead);
    }
    // "directory's inode/name" of where inode nDirectory was removed; "" when that is not held.
    std::string WhereRemoved(uint32_t nDirectory) {
        const std::string strHandle = Handle(nDirectory);
        const std::optional<FileSpot> spot = m_held.WhereRemoved(strHandle);
        if (!spot) {
            return "";
        }
        return std::to_string(file_handle_key::Inode(spot->strDirectory)) + "/" +
               std::string(spot->strName);
    }

    HeldEvents m_held;
};

}  // namespace

TEST_F(HeldEventsTest, ReadsComeBackInTheirOrderWithTheirTimes) {
    EXPECT_TRUE(m_held.IsEmpty());
    Add("first", 7);
    Add("second one", 9);
    EXPECT_EQ(15u, m_held.Bytes());
    EXPECT_EQ("first", m_held.Oldest());
    EXPECT_EQ(7, m_held.OldestRead());

    m_held.RemoveOldest();
    EXPECT_EQ(10u, m_held.Bytes());
    EXPECT_EQ("second one", m_held.Oldest());
    EXPECT_EQ(9, m_held.OldestRead());
    m_held.RemoveOldest();
    EXPECT_TRUE(m_held.IsEmpty());
    EXPECT_EQ(0u, m_held.Bytes());
}

TEST_F(HeldEventsTest, ADirectoryHasThePlaceOfItsRemovalInAnyRead) {
    Add(At(FAN_CREATE | FAN_ONDIR, 1, 1, "made", 50));
    Add(At(FAN_CREATE, 1, 1, "a") + At(FAN_DELETE | FAN_ONDIR, 1, 3, "gone", 60));
    EXPECT_EQ("3/gone", WhereRemoved(60));
    EXPECT_EQ("", WhereRemoved(50));

    // What comes later is searched too.
    Add(At(FAN_DELETE | FAN_ONDIR, 1, 4, "made", 50));
    EXPECT_EQ("4/made", WhereRemoved(50));
    EXPECT_EQ("3/gone", WhereRemoved(60));
}

TEST_F(HeldEventsTest, TheOldestRemovalCountsAsLongAsItIsHeld) {
    Add(At(FAN_DELETE | FAN_ONDIR, 1, 3, "before", 60) + At(FAN_DELETE | FAN_ONDIR, 1, 3, "x", 60));
    Add(At(FAN_DELETE | FAN_ONDIR, 1, 4, "after", 60));
    EXPECT_EQ("3/before", WhereRemoved(60));
    m_held.RemoveOldest();
    EXPECT_EQ("4/after", WhereRemoved(60));
    m_held.RemoveOldest();
    EXPECT_EQ("", WhereRemoved(60));
}

TEST_F(HeldEventsTest, OnlyRemovedDirectoriesWithAHandleHaveAPlace) {
    Add(At(FAN_DELETE, 1, 3, "file", 60) + At(FAN_MOVED_FROM | FAN_ONDIR, 1, 3, "moved", 61) +
        Event(FAN_DELETE | FAN_ONDIR, 1,
              Info(FAN_EVENT_INFO_TYPE_DFID_NAME, Handle(3), "nameless")));
    EXPECT_EQ("", WhereRemoved(60));
    EXPECT_EQ("", WhereRemoved(61));
    EXPECT_FALSE(m_held.WhereRemoved("").has_value());
}

TEST_F(HeldEventsTest, BytesThatAreNoEventEndTheSearchOfTheirReadOnly) {
    Add("no event at all, but longer than the head of one is");
    Add(At(FAN_DELETE | FAN_ONDIR, 1, 3, "gone", 60) + "rest");
    EXPECT_EQ("3/gone", WhereRemoved(60));
}
