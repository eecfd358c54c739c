#include "host/RunCommands.h"

#include "tests/unit/host/HostProgram.h"

namespace {

class RunCommandsTest : public testing::Test {
protected:
    int Run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--module", FakeModule("works")});
        return m_host.Run(arguments);
    }

    TestDir m_dir;
    HostProgram m_host{m_dir};
};

}  // namespace

TEST_F(RunCommandsTest, APathFromTheCurrentDirectoryIsFoundAlthoughTheHostLeavesIt) {
    m_dir.WriteFile("run/events",
                    "{\"param\":[{\"grup\":\"cloudquery\",\"context\":\"cloudad\"}]}\n");

    EXPECT_EQ(0, Run({"replay", "events", "--drain"}));

    EXPECT_NE(std::string::npos, m_host.Output().find("1 event in 1 message")) << m_host.Output();
}

TEST_F(RunCommandsTest, AnInputThatDoesNotExistIsNamedWithItsRemedy) {
    EXPECT_EQ(3, Run({"replay", "/no/such/file"}));
    EXPECT_EQ(
        "tevmon-host: cannot open /no/such/file: No such file or directory; name a file of "
        "JSON lines, or - for standard input\n",
        m_host.Error());

    EXPECT_EQ(3, HostProgram(m_dir).Run({"scan", "/no/such/place"}));
}

TEST_F(RunCommandsTest, AListThatCannotBeReadEndsTheRunBeforeItBegins) {
    EXPECT_EQ(3, Run({"scan", m_dir.Path(), "--block", "/no/such/list"}));

    EXPECT_NE(std::string::npos, m_host.Error().find("/no/such/list"));
    EXPECT_EQ("", m_host.ModuleCalls());
}

TEST_F(RunCommandsTest, AListLineThatIsNoneIsNamedByItsNumber) {
    const std::string strList = m_dir.WriteFile("list", "# a comment\nnonsense\n");

    EXPECT_EQ(3, Run({"scan", m_dir.Path(), "--allow", strList}));

    EXPECT_NE(std::string::npos, m_host.Error().find("list:2: ")) << m_host.Error();
}

TEST_F(RunCommandsTest, ScanMakesBatchesOfTheSizeAskedFor) {
    for (const char* pszName : {"bin/a", "bin/b", "bin/c"}) {
        m_dir.WriteFile(pszName, "#!/bin/sh\n", 0755);
    }

    EXPECT_EQ(0, Run({"scan", "--batch", "2", "--no-packages", m_dir.Path() + "/bin"}));

    EXPECT_NE(std::string::npos, m_host.Output().find("3 events in 2 messages")) << m_host.Output();
}

TEST_F(RunCommandsTest, EachPassLooksAtEverythingAgain) {
    m_dir.WriteFile("bin/a", "#!/bin/sh\n", 0755);

    EXPECT_EQ(0, Run({"scan", "--passes", "3", m_dir.Path() + "/bin", "--no-packages"}));

    EXPECT_NE(std::string::npos, m_host.Output().find("Pass 3 of 3"));
    EXPECT_NE(std::string::npos, m_host.Output().find("pass 3"));
    const std::string strCalls = m_host.ModuleCalls();
    EXPECT_EQ(3, std::count(strCalls.begin(), strCalls.end(), '\n') - 6) << strCalls;
}

TEST_F(RunCommandsTest, ABlockListGoesBeforeAnAllowListForTheSameProgram) {
    // The fake module makes its key of the path, so the lists are written for that key.
    const std::string strProgram = m_dir.WriteFile("bin/a", "#!/bin/sh\n", 0755);
    std::string strSha1;
    for (size_t i = 0; strSha1.size() < 40; ++i) {
        strSha1 += "0123456789abcdef"[strProgram[i % strProgram.size()] & 15];
    }
    const std::string strList = m_dir.WriteFile("list", strSha1 + "  bad thing\n");

    EXPECT_EQ(0, Run({"scan", "--allow", strList, "--block", strList, m_dir.Path() + "/bin"}));

    EXPECT_NE(std::string::npos, m_host.Output().find("blocked    70  " + strProgram + "  bad"))
        << m_host.Output();
    EXPECT_NE(std::string::npos, m_host.ModuleCalls().find("\"result\":\"70\""));
}

TEST_F(RunCommandsTest, APlaceAfterAListIsAPlace) {
    const std::string strList = m_dir.WriteFile("list", "# nothing\n");
    m_dir.WriteFile("bin/a", "#!/bin/sh\n", 0755);

    EXPECT_EQ(0, Run({"scan", "--no-packages", "--allow", strList, "--block", strList,
                      m_dir.Path() + "/bin"}));
}

TEST_F(RunCommandsTest, ARecordingThatCannotBeMadeEndsTheWatchBeforeItBegins) {
    EXPECT_EQ(3, Run({"watch", "--record", "/no/such/place/recording"}));

    EXPECT_EQ("tevmon-host: cannot write /no/such/place/recording: No such file or directory\n",
              m_host.Error());
    EXPECT_EQ("", m_host.ModuleCalls());
}
