#include <gmock/gmock.h>

#include "tests/system/host/HostProgram.h"

using testing::HasSubstr;

namespace {

class RunArgumentsTest : public HostProgramTest {};

}  // namespace

TEST_F(RunArgumentsTest, APathFromTheCurrentDirectoryIsFoundAlthoughTheHostLeavesIt) {
    m_dir.WriteFile("run/events",
                    "{\"param\":[{\"grup\":\"cloudquery\",\"context\":\"cloudad\"}]}\n");

    EXPECT_EQ(0, Run({"replay", "events", "--drain"}));

    EXPECT_THAT(m_host.Output(), HasSubstr("1 event in 1 message"));
}

TEST_F(RunArgumentsTest, AListThatCannotBeReadEndsTheRunBeforeItBegins) {
    EXPECT_EQ(3, Run({"scan", m_dir.Path(), "--bad", "/no/such/list"}));

    EXPECT_THAT(m_host.Error(), HasSubstr("/no/such/list"));
    EXPECT_EQ("", m_host.ModuleCalls());
}

TEST_F(RunArgumentsTest, ABadListGoesBeforeAGoodListForTheSameProgram) {
    // The fake module makes its key of the path, so the lists are written for that key.
    const std::string strProgram = m_dir.WriteFile("bin/a", "#!/bin/sh\n", 0755);
    std::string strSha1;
    for (size_t i = 0; strSha1.size() < 40; ++i) {
        strSha1 += "0123456789abcdef"[strProgram[i % strProgram.size()] & 15];
    }
    const std::string strList = m_dir.WriteFile("list", strSha1 + "  bad thing\n");

    EXPECT_EQ(0, Run({"scan", "--good", strList, "--bad", strList, m_dir.Path() + "/bin"}));

    EXPECT_THAT(m_host.Output(), HasSubstr("bad        70  " + strProgram + "  bad"));
    EXPECT_THAT(m_host.ModuleCalls(), HasSubstr("\"result\":\"70\""));
}

TEST_F(RunArgumentsTest, APlaceAfterAListIsAPlace) {
    const std::string strList = m_dir.WriteFile("list", "# nothing\n");
    m_dir.WriteFile("bin/a", "#!/bin/sh\n", 0755);

    EXPECT_EQ(0, Run({"scan", "--no-packages", "--good", strList, "--bad", strList,
                      m_dir.Path() + "/bin"}));
}

TEST_F(RunArgumentsTest, SizesHaveSuffixesAndNothingIsNoSize) {
    const std::string strEvents = m_dir.WriteFile("events", "");

    EXPECT_EQ(0, Run({"replay", strEvents, "--drain", "--queue-bytes", "64M"}));
    EXPECT_EQ(2, Run({"replay", strEvents, "--drain", "--queue-bytes", "0"}));
    EXPECT_EQ(2, Run({"replay", strEvents, "--drain", "--queue-bytes", "64X"}));
    EXPECT_EQ(2, Run({"replay", strEvents, "--drain", "--queue-rows", "0"}));
}
