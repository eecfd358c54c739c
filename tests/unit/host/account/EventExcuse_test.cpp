#include "host/account/EventExcuse.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/TestDir.h"

namespace {

ExpectedQuery Expected(ExpectedKind eKind, const std::string& strFile,
                       const std::string& strProgram = "") {
    ExpectedQuery expected;
    expected.eKind = eKind;
    expected.strFile = strFile;
    expected.strProgram = strProgram;
    return expected;
}

}  // namespace

TEST(EventExcuseTest, AProgramThatIsNoRegularFileAnyMoreIsExcused) {
    const TestDir dir;
    const EventExcuse excuses({});
    EXPECT_EQ(EXCUSE_NONE, excuses.Of(Expected(EXPECTED_LAUNCH, dir.WriteFile("program", "x"))));
    for (const std::string& strPath :
         {dir.Path() + "/gone", dir.Path(), std::string("/bin/a\0b", 8)}) {
        EXPECT_EQ(EXCUSE_VANISHED, excuses.Of(Expected(EXPECTED_LAUNCH, strPath)));
    }
}

TEST(EventExcuseTest, APipeOfAKnownProgramIsExcused) {
    const TestDir dir;
    const std::string strPipe = dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    int nAsked = 0;
    const EventExcuse excuses([&nAsked](const std::string& strProgram) {
        ++nAsked;
        return strProgram == "/bin/known";
    });
    EXPECT_EQ(EXCUSE_KNOWN_MAKER, excuses.Of(Expected(EXPECTED_PIPE, strPipe, "/bin/known")));
    EXPECT_EQ(EXCUSE_NONE, excuses.Of(Expected(EXPECTED_PIPE, strPipe, "/bin/other")));
    EXPECT_EQ(2, nAsked);
    EXPECT_EQ(EXCUSE_VANISHED,
              excuses.Of(Expected(EXPECTED_PIPE, dir.WriteFile("file", ""), "/bin/known")));
    EXPECT_EQ(EXCUSE_NONE, excuses.Of(Expected(EXPECTED_FILE, dir.Path() + "/gone")));
    EXPECT_EQ(2, nAsked);
}
