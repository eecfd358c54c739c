#include "host/source/StarterTable.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>

namespace {

LaunchEvent Event(LaunchKind eKind, uint32_t nPid, uint32_t nPpid) {
    LaunchEvent event;
    event.eKind = eKind;
    event.nPid = nPid;
    event.nPpid = nPpid;
    return event;
}

constexpr uint32_t NOBODY = 0x7ffffff0;  // beyond every process number

}  // namespace

TEST(StarterTableTest, ACopyRunsItsParentsProgramUntilItStartsAnother) {
    StarterTable table;
    table.Note(Event(LAUNCH_KIND_EXEC, NOBODY, 1), "/bin/shell");
    table.Note(Event(LAUNCH_KIND_FORK, NOBODY + 1, NOBODY), "");

    EXPECT_EQ("/bin/shell", table.StarterOf(Event(LAUNCH_KIND_EXEC, 5, NOBODY + 1)));
    table.Note(Event(LAUNCH_KIND_EXEC, NOBODY + 1, NOBODY), "/bin/tool");
    EXPECT_EQ("/bin/tool", table.StarterOf(Event(LAUNCH_KIND_EXEC, 5, NOBODY + 1)));
}

TEST(StarterTableTest, AProcessThatEndedIsForgotten) {
    StarterTable table;
    table.Note(Event(LAUNCH_KIND_EXEC, NOBODY, 1), "/bin/shell");
    table.Note(Event(LAUNCH_KIND_EXIT, NOBODY, 0), "");

    EXPECT_EQ("", table.StarterOf(Event(LAUNCH_KIND_EXEC, 5, NOBODY)));
    EXPECT_EQ(0u, table.Size());
}

TEST(StarterTableTest, AProcessFromBeforeIsLookedUp) {
    char szSelf[PATH_MAX] = "";
    ASSERT_GT(readlink("/proc/self/exe", szSelf, sizeof(szSelf) - 1), 0);

    EXPECT_EQ(szSelf, StarterTable().StarterOf(
                          Event(LAUNCH_KIND_EXEC, 5, static_cast<uint32_t>(getpid()))));
}

TEST(StarterTableTest, ItHoldsABoundedNumberOfProcesses) {
    StarterTable table;
    for (uint32_t nPid = 1; nPid <= StarterTable::MOST_PROCESSES + 10; ++nPid) {
        table.Note(Event(LAUNCH_KIND_EXEC, nPid, 1), "/bin/x");
        ASSERT_LE(table.Size(), StarterTable::MOST_PROCESSES);
    }
    EXPECT_EQ(10u, table.Size());
}
