#include "host/command/RunCommands.h"

#include <gmock/gmock.h>

#include "tests/support/HostProgram.h"

using testing::HasSubstr;

namespace {

class RunCommandsTest : public HostProgramTest {};

}  // namespace

TEST_F(RunCommandsTest, AnInputThatDoesNotExistIsNamedWithItsRemedy) {
    EXPECT_EQ(3, Run({"replay", "/no/such/file"}));
    EXPECT_EQ(
        "tevmon-host: cannot open /no/such/file: No such file or directory; name a file of "
        "JSON lines, or - for standard input\n",
        m_host.Error());

    EXPECT_EQ(3, HostProgram(m_dir).Run({"scan", "/no/such/place"}));
}

TEST_F(RunCommandsTest, AListLineThatIsNoneIsNamedByItsNumber) {
    const std::string strList = m_dir.WriteFile("list", "# a comment\nnonsense\n");

    EXPECT_EQ(3, Run({"scan", m_dir.Path(), "--good", strList}));

    EXPECT_THAT(m_host.Error(), HasSubstr("list:2: "));
}

TEST_F(RunCommandsTest, ScanMakesBatchesOfTheSizeAskedFor) {
    for (const char* pszName : {"bin/a", "bin/b", "bin/c"}) {
        m_dir.WriteFile(pszName, "#!/bin/sh\n", 0755);
    }

    EXPECT_EQ(0, Run({"scan", "--batch", "2", "--no-packages", m_dir.Path() + "/bin"}));

    EXPECT_THAT(m_host.Output(), HasSubstr("3 events in 2 messages"));
}

TEST_F(RunCommandsTest, EachPassLooksAtEverythingAgain) {
    m_dir.WriteFile("bin/a", "#!/bin/sh\n", 0755);

    EXPECT_EQ(0, Run({"scan", "--passes", "3", m_dir.Path() + "/bin", "--no-packages"}));

    EXPECT_THAT(m_host.Output(), HasSubstr("Pass 3 of 3"));
    EXPECT_THAT(m_host.Output(), HasSubstr("pass 3"));
    const std::string strCalls = m_host.ModuleCalls();
    EXPECT_EQ(3, std::count(strCalls.begin(), strCalls.end(), '\n') - 6) << strCalls;
}
