#include "tevmon/core/EventHelpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <limits>

#include "tests/support/TestDir.h"
#include "tests/support/TimeZone.h"
#include "tests/support/memory/MemoryLimit.h"
#include "tests/support/trace/CallTrace.h"
#include "tests/support/trace/FakeFiles.h"

using testing::ElementsAre;

// The working directory holds run.sh, run.py and run.php.
class EventHelpersTest : public testing::Test {
protected:
    EventHelpersTest() {
        m_dir.WriteFile("run/run.sh", "");
        m_dir.WriteFile("run/run.py", "");
        m_dir.WriteFile("run/run.php", "");
    }

    const TestDir m_dir;
};

TEST_F(EventHelpersTest, EachInterpreterRunsScriptsOfItsOwnSuffix) {
    const struct {
        const char* pszPath;
        int32_t nShell;
        int32_t nPython;
        int32_t nPhp;
    } rows[] = {
        {"/bin/bash", 1, 0, 0},        {"/bin/dash", 1, 0, 0},        {"/usr/bin/python", 0, 2, 0},
        {"/usr/bin/python2", 0, 2, 0}, {"/usr/bin/python3", 0, 2, 0}, {"/usr/bin/php", 0, 0, 3},
    };

    for (const auto& row : rows) {
        EXPECT_EQ(row.nShell, DetectScriptType(row.pszPath, "x run.sh")) << row.pszPath;
        EXPECT_EQ(row.nPython, DetectScriptType(row.pszPath, "x run.py")) << row.pszPath;
        EXPECT_EQ(row.nPhp, DetectScriptType(row.pszPath, "x run.php")) << row.pszPath;
    }
}

TEST_F(EventHelpersTest, OnlyTheExactProgramNamesCount) {
    for (const char* pszPath :
         {"/bin/sh", "/bin/Bash", "/bin/BASH", "/bin/bash5", "/bin/rbash", "/bin/bash.sh",
          "/usr/bin/python3.8", "/usr/bin/python4", "/usr/bin/php8.2", "/usr/bin/perl",
          "/bin/bash/", "/bin/bash/x", "/bin/bash ", ""}) {
        EXPECT_EQ(0, DetectScriptType(pszPath, "x run.sh run.py run.php")) << pszPath;
    }
}

TEST_F(EventHelpersTest, AProgramPathWithoutDirectoryIsItsOwnName) {
    EXPECT_EQ(1, DetectScriptType("bash", "bash run.sh"));
    EXPECT_EQ(1, DetectScriptType("opt/tools/dash", "dash run.sh"));
}

TEST_F(EventHelpersTest, AnEmptyCommandLineIsNoScriptWhateverTheProgram) {
    for (const char* pszPath : {"/bin/bash", "/usr/bin/python3", "/usr/bin/php", "/bin/ls", ""}) {
        EXPECT_EQ(0, DetectScriptType(pszPath, "")) << pszPath;
    }
}

TEST_F(EventHelpersTest, ARelativeScriptCountsOnlyWhenItExistsInTheModulesOwnDirectory) {
    m_dir.WriteFile("elsewhere/other.py", "");

    EXPECT_EQ(2, DetectScriptType("/usr/bin/python2", "python2 run.py"));
    EXPECT_EQ(2, DetectScriptType("/usr/bin/python2", "python2 ./run.py"));
    EXPECT_EQ(2, DetectScriptType("/usr/bin/python2", "python2 ../elsewhere/other.py"));
    EXPECT_EQ(0, DetectScriptType("/usr/bin/python2", "python2 other.py"));
    EXPECT_EQ(0, DetectScriptType("/usr/bin/python2", "python2 missing.py"));
}

TEST_F(EventHelpersTest, AScriptGivenByItsAbsolutePathCountsFromAnyDirectory) {
    const std::string strScript = m_dir.WriteFile("elsewhere/other.py", "");

    EXPECT_EQ(2, DetectScriptType("/usr/bin/python2", "python2 " + strScript));
}

TEST_F(EventHelpersTest, AScriptMustBeARegularFile) {
    ASSERT_EQ(0, mkdir("dir.sh", 0700));
    ASSERT_EQ(0, mkfifo("fifo.sh", 0600));
    ASSERT_EQ(0, symlink("/dev/null", "device.sh"));
    ASSERT_EQ(0, symlink("nowhere", "broken.sh"));

    EXPECT_EQ(0, DetectScriptType("/bin/bash", "bash dir.sh fifo.sh device.sh broken.sh"));
}

TEST_F(EventHelpersTest, ALinkToAScriptIsFollowedAndCountsByTheLinksName) {
    ASSERT_EQ(0, symlink("run.py", "link.sh"));
    ASSERT_EQ(0, symlink("run.sh", "link"));

    EXPECT_EQ(1, DetectScriptType("/bin/bash", "bash link.sh"));
    EXPECT_EQ(0, DetectScriptType("/bin/bash", "bash link"));
}

TEST_F(EventHelpersTest, AnInlineCommandOfBashIsNoScript) {
    EXPECT_EQ(0, DetectScriptType("/bin/bash", "bash -c ls"));
}

TEST_F(EventHelpersTest, TheCommandLineIsTrimmedBeforeItIsSplit) {
    EXPECT_EQ(1, DetectScriptType("/bin/bash", "  bash run.sh  "));
    EXPECT_EQ(1, DetectScriptType("/bin/bash", "run.sh\n"));
    EXPECT_EQ(1, DetectScriptType("/bin/bash", "\r\n\t run.sh \t\r\n"));
    EXPECT_EQ(0, DetectScriptType("/bin/bash", " \t\r\n "));
}

TEST_F(EventHelpersTest, WordsAreSplitAtBlanksOnly) {
    EXPECT_EQ(1, DetectScriptType("/bin/bash", "bash    run.sh"));
    EXPECT_EQ(0, DetectScriptType("/bin/bash", "bash\trun.sh"));
    EXPECT_EQ(0, DetectScriptType("/bin/bash", "bash\nrun.sh"));
}

TEST_F(EventHelpersTest, AQuotedScriptWithABlankIsTakenApart) {
    m_dir.WriteFile("run/my run.sh", "");

    EXPECT_EQ(0, DetectScriptType("/bin/bash", "bash 'run.sh'"));
    EXPECT_EQ(0, DetectScriptType("/bin/bash", "bash \"run.sh\""));
    EXPECT_EQ(1, DetectScriptType("/bin/bash", "bash my run.sh"));  // by the word run.sh
    ASSERT_EQ(0, unlink("run.sh"));
    EXPECT_EQ(0, DetectScriptType("/bin/bash", "bash my run.sh"));
}

TEST_F(EventHelpersTest, AnyWordOfTheCommandLineMayBeTheScript) {
    EXPECT_TRUE(CommandRunsScript("run.sh", "sh"));
    EXPECT_TRUE(CommandRunsScript("bash -x --norc run.py missing.sh run.sh last", "sh"));
}

TEST_F(EventHelpersTest, TheSuffixMustBeEqualToTheLetter) {
    m_dir.WriteFile("run/upper.SH", "");
    m_dir.WriteFile("run/long.bash", "");
    m_dir.WriteFile("run/two.sh.bak", "");
    m_dir.WriteFile("run/sh", "");
    m_dir.WriteFile("run/dir.sh/none", "");

    EXPECT_FALSE(CommandRunsScript("upper.SH long.bash two.sh.bak sh dir.sh/none", "sh"));
}

TEST_F(EventHelpersTest, APointAtTheStartOfTheNameBeginsASuffixToo) {
    m_dir.WriteFile("run/.sh", "");

    EXPECT_TRUE(CommandRunsScript(".sh", "sh"));
}

TEST_F(EventHelpersTest, AFileWithoutSuffixIsNoScriptEvenOfTheEmptySuffix) {
    m_dir.WriteFile("run/plain", "");
    m_dir.WriteFile("run/point.", "");

    EXPECT_FALSE(CommandRunsScript("plain point.", ""));
}

TEST_F(EventHelpersTest, NoWordsRunNoScript) {
    EXPECT_FALSE(CommandRunsScript("", "sh"));
    EXPECT_FALSE(CommandRunsScript("   ", "sh"));
}

TEST_F(EventHelpersTest, TheFirstScriptEndsTheSearch) {
    const CallTrace trace;

    EXPECT_TRUE(CommandRunsScript("bash run.sh run.php", "sh"));

    EXPECT_THAT(trace.Calls(), ElementsAre("stat bash", "stat run.sh"));
}

TEST_F(EventHelpersTest, AWordWithANulByteNamesNoFile) {
    EXPECT_FALSE(CommandRunsScript(std::string("run.sh\0.sh", 10), "sh"));
}

TEST(EventTimeTest, NanosecondsAreWrittenWithoutPadding) {
    const TimeZone zone("UTC0");

    EXPECT_EQ("2020-01-31 08:05:09.5", FormatEventTime(1580457909, 5));
    EXPECT_EQ("2020-01-31 08:05:09.123456789", FormatEventTime(1580457909, 123456789));
    EXPECT_EQ("2020-01-31 08:05:09.100000000", FormatEventTime(1580457909, 100000000));
}

TEST(EventTimeTest, AWholeSecondEndsInPointZero) {
    const TimeZone zone("UTC0");

    EXPECT_EQ("1970-01-01 00:00:00.0", FormatEventTime(0, 0));
}

TEST(EventTimeTest, TheTimeIsLocal) {
    const TimeZone zone("EAST-5:30");

    EXPECT_EQ("2020-01-31 13:35:09.0", FormatEventTime(1580457909, 0));
}

TEST(EventTimeTest, TimesBeforeTheEpochHaveADateToo) {
    const TimeZone zone("UTC0");

    EXPECT_EQ("1969-12-31 23:59:59.999999999", FormatEventTime(-1, 999999999));
    EXPECT_EQ("1901-12-13 20:45:51.0", FormatEventTime(-2147483649, 0));
}

TEST(EventTimeTest, TimesBeyond32BitsHaveADate) {
    const TimeZone zone("UTC0");

    EXPECT_EQ("2038-01-19 03:14:08.7", FormatEventTime(2147483648, 7));
    EXPECT_EQ("10000-01-01 00:00:00.0", FormatEventTime(253402300800, 0));
}

TEST(EventTimeTest, ATimeWithoutADateGivesAnEmptyTextWithoutAPoint) {
    EXPECT_EQ("", FormatEventTime(std::numeric_limits<int64_t>::max(), 5));
    EXPECT_EQ("", FormatEventTime(std::numeric_limits<int64_t>::min(), 5));
}

TEST(TrimTest, TakesTheFourBlanksFromBothEndsOnly) {
    const struct {
        const char* pszText;
        const char* pszTrimmed;
    } rows[] = {
        {"", ""},        {"a", "a"},        {" a ", "a"},       {"\t\n\r a b \r\n\t", "a b"},
        {" \n\r\t", ""}, {" a\tb", "a\tb"}, {"\va\f", "\va\f"}, {"\xc2\xa0x", "\xc2\xa0x"},
    };

    for (const auto& row : rows) {
        std::string strText = row.pszText;
        EXPECT_EQ(row.pszTrimmed, Trim(strText)) << row.pszText;
    }
}

TEST(TrimTest, WorksInPlaceAndGivesTheSameTextBack) {
    std::string strText = " a ";

    const std::string& strResult = Trim(strText);

    EXPECT_EQ(&strText, &strResult);
    EXPECT_EQ("a", strText);
}

TEST(FormatModeTest, IsTheWholeModeWordInOctal) {
    EXPECT_EQ("100755", FormatMode(S_IFREG | 0755));
    EXPECT_EQ("104755", FormatMode(S_IFREG | 04755));
    EXPECT_EQ("100000", FormatMode(S_IFREG));
    EXPECT_EQ("40700", FormatMode(S_IFDIR | 0700));
    EXPECT_EQ("0", FormatMode(0));
}

TEST_F(EventHelpersTest, StatFileFollowsLinks) {
    ASSERT_EQ(0, symlink("run.sh", "link"));
    struct stat status = {};

    ASSERT_TRUE(StatFile("link", status));

    EXPECT_TRUE(S_ISREG(status.st_mode));
}

TEST_F(EventHelpersTest, StatFileFindsNothingWhereNothingIs) {
    struct stat status = {};

    EXPECT_FALSE(StatFile("missing", status));
    EXPECT_FALSE(StatFile("", status));
    EXPECT_FALSE(StatFile(std::string("run.sh\0", 7), status));
}

TEST_F(EventHelpersTest, TheProgramKeyIsTheSha1ThenTheMd5) {
    m_dir.WriteFile("run/abc", "abc");

    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d900150983cd24fb0d6963f7d28e17f72",
              ProgramKey("abc"));
}

TEST_F(EventHelpersTest, WithoutMemoryForItThereIsNoProgramKey) {
    const std::string strPath = m_dir.WriteFile("abc", "abc");
    ASSERT_NE("", ProgramKey(strPath));
    std::string strKey = "none";
    {
        const MemoryLimit limit(71);  // the digests are had, the two of them in one are not

        EXPECT_NO_THROW(strKey = ProgramKey(strPath));

        EXPECT_LT(0, limit.Refused());
    }
    EXPECT_EQ("", strKey);
}

TEST_F(EventHelpersTest, WhatCannotBeHashedHasNoProgramKey) {
    EXPECT_EQ("", ProgramKey("missing"));
    EXPECT_EQ("", ProgramKey("/"));
}

TEST(AppendItemTest, AnItemHasExactlyAKeyAndAValue) {
    Json::Value jsonEvent(Json::arrayValue);

    AppendItem(jsonEvent, "hi.type", "0");
    AppendItem(jsonEvent, "hi.empty", "");

    ASSERT_EQ(2u, jsonEvent.size());
    EXPECT_THAT(jsonEvent[0].getMemberNames(), ElementsAre("key", "value"));
    EXPECT_EQ("hi.type", jsonEvent[0]["key"].asString());
    EXPECT_EQ("0", jsonEvent[0]["value"].asString());
    EXPECT_TRUE(jsonEvent[1]["value"].isString());
}
