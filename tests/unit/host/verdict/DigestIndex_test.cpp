#include "host/verdict/DigestIndex.h"

#include <gtest/gtest.h>

TEST(DigestIndexTest, FindsTheOwnerOfEachDigest) {
    DigestIndex<2> index;
    index.Add({0xFF, 0x00}, 7);
    index.Add({0x00, 0x01}, 8);
    index.Add({0x00, 0x02}, 9);
    index.Seal();

    EXPECT_EQ(7u, index.Find("ff00"));
    EXPECT_EQ(8u, index.Find("0001"));
    EXPECT_EQ(9u, index.Find("0002"));
    EXPECT_EQ(3u, index.Count());
}

TEST(DigestIndexTest, OfSeveralOwnersTheLowestStays) {
    DigestIndex<2> index;
    index.Add({1, 1}, 5);
    index.Add({1, 1}, 3);
    index.Add({1, 1}, 4);
    index.Seal();

    EXPECT_EQ(3u, index.Find("0101"));
    EXPECT_EQ(1u, index.Count());
}

TEST(DigestIndexTest, KnowsNothingWhenEmpty) {
    DigestIndex<2> index;
    index.Seal();

    EXPECT_FALSE(index.Find("0000").has_value());
    EXPECT_EQ(0u, index.Count());
}

TEST(DigestIndexTest, NeighboursAndMalformedTextsAreNotFound) {
    DigestIndex<2> index;
    index.Add({0x10, 0x10}, 1);
    index.Seal();

    for (const char* pszText : {"100f", "1011", "0000", "ffff", "", "10", "101010", "10g0"}) {
        EXPECT_FALSE(index.Find(pszText).has_value()) << pszText;
    }
}
