#include "host/program/FileVersion.h"

#include <gtest/gtest.h>

#include <limits>
#include <unordered_set>

namespace {

TEST(FileVersionTest, ATextIsReadBackWhole) {
    const FileVersion version = {std::numeric_limits<uint32_t>::max(),
                                 std::numeric_limits<uint64_t>::max(), 762000, -5};
    EXPECT_EQ(file_version::Text(version), "4294967295:18446744073709551615:762000:-5");
    EXPECT_EQ(file_version::Parse(file_version::Text(version)), version);
}

TEST(FileVersionTest, AnotherTextIsNone) {
    for (const char* const pszText : {"", "1:2:3", "1:2:3:", "1:2:3:4:", "1:2:3:4x", "1:2:3:4:5",
                                      "1::3:4", "-1:2:3:4", " 1:2:3:4", "4294967296:2:3:4"}) {
        EXPECT_FALSE(file_version::Parse(pszText)) << pszText;
    }
}

TEST(FileVersionTest, EachMemberDistinguishes) {
    const FileVersion version = {1, 2, 3, 4};
    std::unordered_set<size_t> hashes = {FileVersionHash()(version)};
    for (const FileVersion& other :
         {FileVersion{2, 2, 3, 4}, FileVersion{1, 3, 3, 4}, FileVersion{1, 2, 4, 4},
          FileVersion{1, 2, 3, 5}, FileVersion{1, 2, 3, 4, 1}}) {
        EXPECT_FALSE(version == other);
        hashes.insert(FileVersionHash()(other));
    }
    EXPECT_EQ(hashes.size(), 6u);
    EXPECT_TRUE(version.IsKnown());
    EXPECT_FALSE((FileVersion{1, 2, 3, 0}).IsKnown());
}

}  // namespace
