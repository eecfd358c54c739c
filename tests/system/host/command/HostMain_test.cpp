#include <gmock/gmock.h>

#include <utility>

#include "tests/system/host/HostProgram.h"

using testing::HasSubstr;

namespace {

class HostMainTest : public testing::Test {
protected:
    TestDir m_dir;
    HostProgram m_host{m_dir};
};

}  // namespace

TEST_F(HostMainTest, HelpIsSuccessAndNamesTheCommands) {
    EXPECT_EQ(0, m_host.Run({"--help"}));

    for (const char* pszCommand : {"replay", "scan", "queue", "verdicts", "Exit codes"}) {
        EXPECT_THAT(m_host.Output(), HasSubstr(pszCommand)) << pszCommand;
    }
    EXPECT_EQ("", m_host.Error());
}

TEST_F(HostMainTest, EveryCommandHasHelpOfItsOwn) {
    for (const char* pszCommand : {"replay", "scan", "queue", "verdicts"}) {
        HostProgram host(m_dir);
        EXPECT_EQ(0, host.Run({pszCommand, "--help"})) << pszCommand;
        EXPECT_THAT(host.Output(), HasSubstr("Usage: ")) << pszCommand;
    }
}

TEST_F(HostMainTest, VersionIsOneLine) {
    EXPECT_EQ(0, m_host.Run({"--version"}));

    ASSERT_EQ(1u, m_host.OutputLines().size());
    EXPECT_EQ(0u, m_host.OutputLines()[0].find("tevmon-host 0."));
}

TEST_F(HostMainTest, ACommandLineThatIsNotUnderstoodIsUsage) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                      {"frobnicate"},
                                                      {"scan"},
                                                      {"replay"},
                                                      {"scan", "/", "--passes", "0"},
                                                      {"scan", "/", "--batch", "x"},
                                                      {"replay", "-", "--for", "-1"},
                                                      {"--log-level", "high", "scan", "/"}}) {
        HostProgram host(m_dir);
        EXPECT_EQ(2, host.Run(arguments));
        EXPECT_NE("", host.Error());
        EXPECT_EQ("", host.Output());
    }
}

TEST_F(HostMainTest, AMissingCommandIsAnsweredWithThoseThatThereAre) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "tevmon-host: no command given; there are replay, scan, watch, "},
        {{"wtach", "--json"}, "tevmon-host: no command 'wtach'; there are replay, scan, watch, "},
        {{"queue"}, "tevmon-host queue: no command given; there are list, "},
        {{"queue", "lsit"}, "tevmon-host queue: no command 'lsit'; there are list, "},
        {{"scan"}, "PATH is required"},
    };
    for (const auto& [arguments, strError] : cases) {
        HostProgram host(m_dir);
        EXPECT_EQ(2, host.Run(arguments));
        EXPECT_EQ(0u, host.Error().find(strError)) << host.Error();
    }
}

TEST_F(HostMainTest, ARelativeStateDirectoryIsOneOfTheCurrentDirectory) {
    EXPECT_EQ(0, m_host.Run({"--state-dir", "here", "--module", FakeModule("works"), "replay",
                             "--drain", "/dev/null"}));

    EXPECT_NE("", FileText(m_dir.Path() + "/run/here/run/calls"));
}
