#include "host/kernel/file/DirectoryPathCache.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>

#include "tests/support/ThreadTime.h"

namespace {

class DirectoryPathCacheTest : public testing::Test {
protected:
    DirectoryPathCache Paths(size_t nMost = 65536) {
        return DirectoryPathCache(
            [this](std::string_view strHandle) {
                ++m_nOpened;
                const auto found = m_disk.find(std::string(strHandle));
                return found == m_disk.end() ? "" : found->second;
            },
            nMost);
    }

    std::map<std::string, std::string> m_disk = {{"ROOT", "/"},
                                                 {"ETC", "/etc"},
                                                 {"CRON", "/etc/cron.d"},
                                                 {"TMP", "/tmp"},
                                                 {"DEEP", "/t/a/b"}};
    int m_nOpened = 0;
};

}  // namespace

TEST_F(DirectoryPathCacheTest, ADirectoryIsOpenedOnce) {
    DirectoryPathCache paths = Paths();

    EXPECT_EQ("/etc/cron.d/job", paths.PathOf({"CRON", "job"}));
    EXPECT_EQ("/etc/cron.d/other", paths.PathOf({"CRON", "other"}));
    EXPECT_EQ("/etc/cron.d", paths.PathOf({"CRON", "."}));
    EXPECT_EQ(1, m_nOpened);
}

TEST_F(DirectoryPathCacheTest, TheRootIsADirectoryToo) {
    DirectoryPathCache paths = Paths();

    EXPECT_EQ("/job", paths.PathOf({"ROOT", "job"}));
    EXPECT_EQ("/", paths.PathOf({"ROOT", "."}));
}

TEST_F(DirectoryPathCacheTest, WhatIsGoneHasNoPath) {
    DirectoryPathCache paths = Paths();

    EXPECT_EQ("", paths.PathOf({"GONE", "job"}));
    EXPECT_EQ("", paths.PathOf({"", "job"}));
}

TEST_F(DirectoryPathCacheTest, ADirectoryThatWasMadeAndIsGoneIsKnown) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "new"}, "NEW");
    paths.Made({"NEW", "below"}, "BELOW");

    EXPECT_EQ("/tmp/new/below/file", paths.PathOf({"BELOW", "file"}));
    paths.Removed({"NEW", "below"}, "BELOW");
    EXPECT_EQ("", paths.PathOf({"BELOW", "file"}));
    EXPECT_EQ("/tmp/new/file", paths.PathOf({"NEW", "file"}));
}

TEST_F(DirectoryPathCacheTest, ADirectoryMadeUnderTheNameOfAnotherTakesItsPlace) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "d"}, "FIRST");
    paths.Made({"FIRST", "below"}, "BELOW");
    paths.Made({"TMP", "d"}, "SECOND");

    EXPECT_EQ("", paths.PathOf({"FIRST", "file"}));
    EXPECT_EQ("", paths.PathOf({"BELOW", "file"}));
    EXPECT_EQ("/tmp/d/file", paths.PathOf({"SECOND", "file"}));
}

TEST_F(DirectoryPathCacheTest, AMovedDirectoryTakesAlongWhatIsBelowIt) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "old"}, "D");
    paths.Made({"D", "a"}, "A");
    paths.Made({"A", "b"}, "B");
    paths.Moved({"TMP", "old"}, {"ETC", "new"}, "D");

    EXPECT_EQ("/etc/new/file", paths.PathOf({"D", "file"}));
    EXPECT_EQ("/etc/new/a/b/file", paths.PathOf({"B", "file"}));
    EXPECT_EQ("/tmp/file", paths.PathOf({"TMP", "file"}));
}

TEST_F(DirectoryPathCacheTest, ADirectoryOnlyKnownAsAPartOfAPathMovesToo) {
    DirectoryPathCache paths = Paths();
    m_disk["T"] = "/t";
    EXPECT_EQ("/t/a/b/file", paths.PathOf({"DEEP", "file"}));
    EXPECT_EQ("/t/file", paths.PathOf({"T", "file"}));
    paths.Moved({"T", "a"}, {"T", "z"}, "A");

    EXPECT_EQ("/t/z/b/file", paths.PathOf({"DEEP", "file"}));
    EXPECT_EQ("/t/z/file", paths.PathOf({"A", "file"}));
}

TEST_F(DirectoryPathCacheTest, TwoDirectoriesThatChangePlacesKeepTheirContents) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "a"}, "A");
    paths.Made({"TMP", "b"}, "B");
    paths.Moved({"TMP", "a"}, {"TMP", "b"}, "A");
    paths.Moved({"TMP", "b"}, {"TMP", "a"}, "B");

    EXPECT_EQ("/tmp/b/file", paths.PathOf({"A", "file"}));
    EXPECT_EQ("/tmp/a/file", paths.PathOf({"B", "file"}));
}

TEST_F(DirectoryPathCacheTest, WhatWasLookedUpAfterItsMoveStaysWhereItIs) {
    DirectoryPathCache paths = Paths();
    m_disk["A"] = "/tmp/new";
    EXPECT_EQ("/tmp/new/file", paths.PathOf({"A", "file"}));
    paths.Moved({"TMP", "old"}, {"TMP", "new"}, "A");

    EXPECT_EQ("/tmp/new/file", paths.PathOf({"A", "file"}));
}

TEST_F(DirectoryPathCacheTest, AMoveIntoAnUnknownPlaceForgetsTheDirectory) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "a"}, "A");
    paths.Moved({"TMP", "a"}, {"GONE", "a"}, "A");

    EXPECT_EQ("", paths.PathOf({"A", "file"}));
}

TEST_F(DirectoryPathCacheTest, AMoveBelowItselfAsFarAsKnownDoesNotHang) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "a"}, "A");
    paths.Made({"A", "b"}, "B");
    paths.Moved({"TMP", "a"}, {"B", "a"}, "A");

    EXPECT_EQ("", paths.PathOf({"A", "file"}));
    EXPECT_EQ("/tmp/file", paths.PathOf({"TMP", "file"}));
}

TEST_F(DirectoryPathCacheTest, ItHoldsABoundedNumberOfNamesAndBeginsAnew) {
    DirectoryPathCache paths = Paths(100);
    for (int i = 0; i < 1000; ++i) {
        paths.Made({"TMP", "d" + std::to_string(i)}, "H" + std::to_string(i));
        ASSERT_LE(paths.Size(), 102u);
    }

    EXPECT_EQ("/tmp/d999/file", paths.PathOf({"H999", "file"}));
}

// 20,000 directories below one that is renamed 20,000 times: by rewriting each that is 400 million.
TEST_F(DirectoryPathCacheTest, AStormOfRenamesDoesNotGrowWithWhatIsBelow) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "0"}, "D");
    for (int i = 0; i < 20000; ++i) {
        paths.Made({"D", "d" + std::to_string(i)}, "H" + std::to_string(i));
    }
    const double dBegin = ThreadSeconds();
    for (int i = 0; i < 20000; ++i) {
        paths.Moved({"TMP", std::to_string(i)}, {"TMP", std::to_string(i + 1)}, "D");
    }

    EXPECT_LT(ThreadSeconds() - dBegin, HANGS_SECONDS);
    EXPECT_EQ("/tmp/20000/d7/file", paths.PathOf({"H7", "file"}));
}

// Whoever may make one directory may make them as deep as he likes.
TEST_F(DirectoryPathCacheTest, APathLongerThanAPathMayBeIsNone) {
    DirectoryPathCache paths = Paths();
    const std::string strName(255, 'd');
    std::string strAbove = "TMP";
    for (int i = 0; i < 60000; ++i) {
        paths.Made({strAbove, strName}, "H" + std::to_string(i));
        strAbove = "H" + std::to_string(i);
    }

    EXPECT_EQ(4 + 15 * 256 + 2u, paths.PathOf({"H14", "f"}).size());
    EXPECT_EQ("", paths.PathOf({"H15", "f"}));
    EXPECT_EQ("", paths.PathOf({"H59999", "f"}));
    EXPECT_LT(paths.Size(), 20u);
}

TEST_F(DirectoryPathCacheTest, ADirectoryMovedDeeperThanAPathMayBeIsForgotten) {
    DirectoryPathCache paths = Paths();
    const std::string strName(255, 'd');
    paths.Made({"TMP", "a"}, "A");
    paths.Made({"A", "below"}, "BELOW");
    std::string strAbove = "TMP";
    for (int i = 0; i < 15; ++i) {
        paths.Made({strAbove, strName}, "H" + std::to_string(i));
        strAbove = "H" + std::to_string(i);
    }
    paths.Moved({"TMP", "a"}, {strAbove, strName}, "A");

    EXPECT_EQ("", paths.PathOf({"A", "file"}));
    EXPECT_EQ("", paths.PathOf({"BELOW", "file"}));
    EXPECT_EQ("/tmp/file", paths.PathOf({"TMP", "file"}));
}

// 40 moves of directories 1,000 deep each: freed and forgotten name by name, without recursion.
TEST_F(DirectoryPathCacheTest, AStackOfMovedDirectoriesStaysShallow) {
    DirectoryPathCache paths = Paths();
    for (int nTower = 0; nTower < 40; ++nTower) {
        std::string strAbove = "TMP";
        for (int i = 0; i < 1000; ++i) {
            const std::string strHandle = std::to_string(nTower) + "," + std::to_string(i);
            paths.Made({strAbove, i == 0 ? std::to_string(nTower) : "d"}, strHandle);
            strAbove = strHandle;
        }
        if (nTower > 0) {
            paths.Moved({"TMP", std::to_string(nTower - 1)}, {strAbove, "x"},
                        std::to_string(nTower - 1) + ",0");
        }
    }

    EXPECT_EQ("", paths.PathOf({"0,999", "file"}));
    EXPECT_NE("", paths.PathOf({"39,999", "file"}));
}

TEST_F(DirectoryPathCacheTest, ItsSizeIsThatOfTheNamesHeld) {
    DirectoryPathCache paths = Paths();
    EXPECT_EQ(0u, paths.Size());
    (void)paths.PathOf({"CRON", "job"});  // etc and cron.d
    (void)paths.PathOf({"ETC", "passwd"});
    EXPECT_EQ(2u, paths.Size());
    paths.Made({"CRON", "a"}, "A");
    paths.Made({"A", "b"}, "B");
    EXPECT_EQ(4u, paths.Size());

    paths.Moved({"CRON", "a"}, {"ETC", "z"}, "A");
    EXPECT_EQ(4u, paths.Size());
    paths.Removed({"ETC", "z"}, "A");
    EXPECT_EQ(2u, paths.Size());
    paths.Clear();
    EXPECT_EQ(0u, paths.Size());
    EXPECT_EQ("/etc/x", paths.PathOf({"ETC", "x"}));
}

TEST_F(DirectoryPathCacheTest, LookingUpIsBoundedAsMakingIs) {
    DirectoryPathCache paths = Paths(10);
    for (int i = 0; i < 100; ++i) {
        m_disk["H" + std::to_string(i)] = "/d" + std::to_string(i);
        EXPECT_EQ("/d" + std::to_string(i) + "/x", paths.PathOf({"H" + std::to_string(i), "x"}));
        ASSERT_LE(paths.Size(), 10u);
    }
}

TEST_F(DirectoryPathCacheTest, WhatIsNoAbsolutePathIsNone) {
    DirectoryPathCache paths = Paths();
    m_disk["PIPE"] = "pipe:[4711]";

    EXPECT_EQ("", paths.PathOf({"PIPE", "x"}));
    paths.Made({"PIPE", "d"}, "D");
    EXPECT_EQ("", paths.PathOf({"D", "x"}));
    EXPECT_EQ(0u, paths.Size());
}

TEST_F(DirectoryPathCacheTest, ARemovalIsThatOfTheDirectoryAndNotOfItsName) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "d"}, "NEW");
    paths.Removed({"TMP", "d"}, "OLD");
    EXPECT_EQ("/tmp/d/x", paths.PathOf({"NEW", "x"}));

    paths.Removed({"TMP", "d"}, "");  // by its name where nothing else is known
    EXPECT_EQ("", paths.PathOf({"NEW", "x"}));
    paths.Removed({"GONE", "d"}, "");
    EXPECT_EQ("/tmp/x", paths.PathOf({"TMP", "x"}));
}

TEST_F(DirectoryPathCacheTest, TheRootIsNeitherRemovedNorMoved) {
    DirectoryPathCache paths = Paths();
    EXPECT_EQ("/x", paths.PathOf({"ROOT", "x"}));
    paths.Removed({"TMP", "r"}, "ROOT");
    EXPECT_EQ("/x", paths.PathOf({"ROOT", "x"}));

    paths.Moved({"ETC", "r"}, {"TMP", "r"}, "ROOT");

    EXPECT_EQ("/tmp/x", paths.PathOf({"TMP", "x"}));
    EXPECT_EQ("/tmp/r/x", paths.PathOf({"ROOT", "x"}));  // as it was reported
}

TEST_F(DirectoryPathCacheTest, AMoveIsThatOfTheDirectoryAndNotOfItsName) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "d"}, "STAYS");
    paths.Moved({"TMP", "d"}, {"ETC", "e"}, "MOVES");
    EXPECT_EQ("/tmp/d/x", paths.PathOf({"STAYS", "x"}));
    EXPECT_EQ("/etc/e/x", paths.PathOf({"MOVES", "x"}));

    paths.Moved({"TMP", "d"}, {"ETC", "f"}, "");
    EXPECT_EQ("/etc/f/x", paths.PathOf({"STAYS", "x"}));
}

TEST_F(DirectoryPathCacheTest, AMoveOverAnotherDirectoryTakesItsPlace) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "a"}, "A");
    paths.Made({"ETC", "b"}, "B");
    paths.Made({"B", "below"}, "BELOW");
    paths.Moved({"TMP", "a"}, {"ETC", "b"}, "A");

    EXPECT_EQ("/etc/b/x", paths.PathOf({"A", "x"}));
    EXPECT_EQ("", paths.PathOf({"B", "x"}));
    EXPECT_EQ("", paths.PathOf({"BELOW", "x"}));
    EXPECT_EQ(3u, paths.Size());  // tmp, etc, b
}

TEST_F(DirectoryPathCacheTest, AMoveToThePlaceOfADirectoryAboveBelievesTheMove) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "a"}, "A");
    paths.Made({"A", "b"}, "B");
    paths.Made({"B", "c"}, "C");
    paths.Moved({"A", "b"}, {"TMP", "a"}, "B");

    EXPECT_EQ("/tmp/a/x", paths.PathOf({"B", "x"}));
    EXPECT_EQ("", paths.PathOf({"A", "x"}));
    EXPECT_EQ("", paths.PathOf({"C", "x"}));
}

TEST_F(DirectoryPathCacheTest, ADirectoryIsWhereItWasSeenLast) {
    DirectoryPathCache paths = Paths();
    paths.Made({"TMP", "a"}, "A");
    paths.Made({"A", "below"}, "BELOW");
    paths.Made({"ETC", "b"}, "A");
    EXPECT_EQ("/etc/b/x", paths.PathOf({"A", "x"}));
    EXPECT_EQ("", paths.PathOf({"BELOW", "x"}));

    paths.Made({"A", "c"}, "A");  // below itself, as far as was known
    EXPECT_EQ("/etc/b/c/x", paths.PathOf({"A", "x"}));
    paths.Removed({"ETC", "b"}, "");
    EXPECT_EQ("", paths.PathOf({"A", "x"}));
}

TEST_F(DirectoryPathCacheTest, WhatIsMadeWithoutAHandleOrInAnUnknownPlaceIsNotHeld) {
    DirectoryPathCache paths = Paths();
    (void)paths.PathOf({"TMP", "x"});
    paths.Made({"TMP", "d"}, "");
    paths.Made({"GONE", "d"}, "D");

    EXPECT_EQ(1u, paths.Size());
    EXPECT_EQ("", paths.PathOf({"D", "x"}));
}
