#include "host/verdict/DigestIndex.h"

#include <gtest/gtest.h>

#include <array>
#include <utility>
#include <vector>

namespace {

using Entry = std::pair<std::array<uint8_t, 2>, uint32_t>;  // a digest and its owner

DigestIndex<2> Sealed(const std::vector<Entry>& entries) {
    DigestIndex<2> index;
    for (const Entry& entry : entries) {
        index.Add(entry.first, entry.second);
    }
    index.Seal();
    return index;
}

}  // namespace

TEST(DigestIndexTest, FindsTheOwnerOfEachDigest) {
    const DigestIndex<2> index = Sealed({{{0xFF, 0x00}, 7}, {{0x00, 0x01}, 8}, {{0x00, 0x02}, 9}});

    EXPECT_EQ(7u, index.Find("ff00"));
    EXPECT_EQ(8u, index.Find("0001"));
    EXPECT_EQ(9u, index.Find("0002"));
    EXPECT_EQ(3u, index.Count());
}

TEST(DigestIndexTest, OfSeveralOwnersTheLowestStays) {
    const DigestIndex<2> index = Sealed({{{1, 1}, 5}, {{1, 1}, 3}, {{1, 1}, 4}});

    EXPECT_EQ(3u, index.Find("0101"));
    EXPECT_EQ(1u, index.Count());
}

TEST(DigestIndexTest, KnowsNothingWhenEmpty) {
    const DigestIndex<2> index = Sealed({});

    EXPECT_FALSE(index.Find("0000").has_value());
    EXPECT_EQ(0u, index.Count());
}

TEST(DigestIndexTest, NeighboursAndMalformedTextsAreNotFound) {
    const DigestIndex<2> index = Sealed({{{0x10, 0x10}, 1}});

    for (const char* pszText : {"100f", "1011", "0000", "ffff", "", "10", "101010", "10g0"}) {
        EXPECT_FALSE(index.Find(pszText).has_value()) << pszText;
    }
}
