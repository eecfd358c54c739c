#include <gmock/gmock.h>
#include <json/json.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "tests/system/host/HostProgram.h"

using testing::HasSubstr;

namespace {

class DoctorCommandTest : public HostProgramTest {};

}  // namespace

TEST_F(DoctorCommandTest, EveryCheckIsOneRecordAndTheLastOneCountsThem) {
    (void)m_host.Run({"--module", FakeModule("works"), "doctor", "--json"});

    int nFailed = 0;
    Json::Value jsonLast;
    const std::unique_ptr<Json::CharReader> pReader(Json::CharReaderBuilder().newCharReader());
    for (const std::string& strLine : m_host.OutputLines()) {
        ASSERT_TRUE(
            pReader->parse(strLine.data(), strLine.data() + strLine.size(), &jsonLast, nullptr))
            << strLine;
        nFailed += jsonLast["state"] == "failed" ? 1 : 0;
        EXPECT_EQ(jsonLast["state"] == "ok" || jsonLast["event"] == "doctor",
                  jsonLast["remedy"].asString().empty())
            << strLine;
    }
    EXPECT_EQ("doctor", jsonLast["event"].asString());
    EXPECT_EQ(nFailed, jsonLast["failed"].asInt());
    EXPECT_LE(10, jsonLast["ok"].asInt() + jsonLast["warnings"].asInt() + nFailed);
}

TEST_F(DoctorCommandTest, AFailureHasItsExitCodeAndRemedyAndNothingIsMade) {
    EXPECT_EQ(11, m_host.Run({"--module", FakeModule("lacks_function"), "doctor"}));

    EXPECT_THAT(m_host.Output(), HasSubstr("\nfailed   module "));
    EXPECT_THAT(m_host.Output(), HasSubstr("to do: name the module with --module"));
    EXPECT_NE(0, access(m_host.StateDir().c_str(), F_OK));
}

TEST_F(DoctorCommandTest, TheMachineThatIsExaminedIsThisOne) {
    utsname system = {};
    ASSERT_EQ(0, uname(&system));

    (void)m_host.Run({"--module", FakeModule("works"), "doctor"});

    EXPECT_THAT(m_host.Output(), HasSubstr("Linux " + std::string(system.release)));
    for (const char* pszCheck :
         {" privilege ", " launches by ebpf ", " launches by connector-fanotify ",
          " launches by connector ", " file operations ", " clock ", " packages "}) {
        EXPECT_THAT(m_host.Output(), HasSubstr(pszCheck));
    }
}
