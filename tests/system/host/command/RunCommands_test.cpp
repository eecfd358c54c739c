#include <gmock/gmock.h>

#include <utility>

#include "tests/system/host/HostProgram.h"

using testing::HasSubstr;

namespace {

class RunCommandsTest : public HostProgramTest {
protected:
    // How many messages the module was given, and how many answers.
    std::pair<long, long> Calls() const {
        const std::string strCalls = "\n" + m_host.ModuleCalls();
        std::pair<long, long> calls;
        for (size_t nAt = 0; (nAt = strCalls.find('\n', nAt)) != std::string::npos; ++nAt) {
            calls.first += strCalls.compare(nAt + 1, 6, "event ") == 0 ? 1 : 0;
            calls.second += strCalls.compare(nAt + 1, 7, "answer ") == 0 ? 1 : 0;
        }
        return calls;
    }
};

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

TEST_F(RunCommandsTest, ABatchAndAPassAreOneAtLeast) {
    for (const char* pszOption : {"--batch", "--passes"}) {
        for (const char* pszValue : {"0", "-1", "100001", "1.5"}) {
            HostProgram host(m_dir);
            EXPECT_EQ(2, host.Run({"scan", pszOption, pszValue, m_dir.Path()})) << pszValue;
        }
    }
    EXPECT_EQ(2, Run({"scan", "--passes", "1001", m_dir.Path()}));
    EXPECT_THAT(m_host.Error(), HasSubstr("--passes: Value 1001 not in range 1 to 1000"));
}

TEST_F(RunCommandsTest, SeveralPlacesAreLookedAtAlsoThoseNamedFromTheCurrentDirectory) {
    m_dir.WriteFile("run/here/a", "#!/bin/sh\n", 0755);
    const std::string strFile = m_dir.WriteFile("there/b", "#!/bin/sh\n", 0755);

    EXPECT_EQ(0, Run({"scan", "--no-packages", "here", strFile}));

    EXPECT_THAT(m_host.Output(), HasSubstr("2 events in 1 message"));
    EXPECT_THAT(m_host.ModuleCalls(), HasSubstr(m_dir.Path() + "/run/here/a"));
    EXPECT_EQ((std::pair<long, long>{1, 2}), Calls());
}

TEST_F(RunCommandsTest, ABatchHoldsThirtyTwoProgramsUnlessItIsSaid) {
    for (int i = 0; i < 33; ++i) {
        m_dir.WriteFile("bin/" + std::to_string(i), "#!/bin/sh\n", 0755);
    }

    EXPECT_EQ(0, Run({"scan", "--no-packages", m_dir.Path() + "/bin"}));

    EXPECT_THAT(m_host.Output(), HasSubstr("33 events in 2 messages"));
}

TEST_F(RunCommandsTest, ReplayTakesStandardInputForADash) {
    EXPECT_EQ(0, Run({"replay", "--drain", "-"}));

    EXPECT_THAT(m_host.Output(), HasSubstr("0 events in 0 messages"));
    EXPECT_EQ("init\nsetopt\nstart\nstop\nuninit\n", m_host.ModuleCalls());
}

TEST_F(RunCommandsTest, ALineThatIsNoMessageIsNamedByItsNumberAndTheNextIsDelivered) {
    const std::string strEvents = m_dir.WriteFile(
        "events", "nonsense\n{\"param\":[{\"grup\":\"cloudquery\",\"context\":\"cloudad\"}]}\n");

    EXPECT_EQ(0, Run({"replay", "--drain", strEvents}));

    EXPECT_THAT(m_host.Output() + m_host.Error(), HasSubstr("line 1: not a JSON text"));
    EXPECT_THAT(m_host.Output(), HasSubstr("1 event in 1 message"));
    EXPECT_EQ((std::pair<long, long>{1, 0}), Calls());
}
