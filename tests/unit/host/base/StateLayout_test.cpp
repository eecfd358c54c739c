#include "host/base/StateLayout.h"

#include <gtest/gtest.h>

TEST(StateLayoutTest, EachDirectoryHasItsPlace) {
    EXPECT_EQ("/srv/state/data", state_layout::Data("/srv/state"));
    EXPECT_EQ("/srv/state/data/db", state_layout::Databases("/srv/state"));
    EXPECT_EQ("/srv/state/run", state_layout::Run("/srv/state"));
}

TEST(StateLayoutTest, ADirectoryStandsBeforeThoseInIt) {
    EXPECT_EQ((std::vector<std::string>{"/a", "/a/data", "/a/data/db", "/a/run"}),
              state_layout::Directories("/a"));
}
