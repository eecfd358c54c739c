#include "host/command/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "tests/support/StdoutCapture.h"

namespace {

using Texts = std::vector<std::string>;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class CommandLineTest : public testing::Test {
protected:
    CommandLineTest() {
        m_program.NeedsCommand();
        (void)m_program.AddFlag("-v,--verbose", m_bVerbose, "Say more");
        m_program.OnParsed([this] { m_calls.push_back("parsed"); });
        Command run = m_program.AddCommand("run", "Run it");
        (void)run.AddOption("--name", m_strName, "A name").OneOf({"red", "blue"});
        (void)run.AddOption("--number", m_nNumber, "A number").TypeName("N").InRange(1, 9);
        (void)run.AddOption("--share", m_dShare, "A share").InRange(0.5, 1.5);
        (void)run.AddOption("--size", m_nSize, "A size").ByteSize().Positive();
        (void)run.AddOption("--list", m_list, "Some").Repeatable();
        (void)run.AddOption("--checked", m_strChecked, "Checked").Check([](const std::string& str) {
            return str == "good" ? "" : "is not good";
        });
        const CommandOption one = run.AddFlag("--one", m_bOne, "One");
        (void)run.AddFlag("--not-with-one", m_bTwo, "Two").Excludes(one);
        (void)run.AddFlag("--with-one", m_bThree, "Three").Needs(one);
        (void)run.AddOption("PATH", m_paths, "Paths");
        run.Footer("The end.");
        run.OnRun([this] { m_calls.push_back("run"); });
        Command need = m_program.AddCommand("need", "Needs a file");
        (void)need.AddOption("FILE", m_strFile, "A file").Required();
        need.OnRun([this] { m_calls.push_back("need"); });
    }

    // The exit code, or -1 when a command ran; what was printed and said is kept.
    int Parse(const std::string& strArguments) {
        const StdoutCapture output;
        testing::internal::CaptureStderr();
        int nExitCode = -1;
        const bool bRan = m_program.Parse(strArguments, nExitCode);
        m_strError = testing::internal::GetCapturedStderr();
        m_strOutput = output.Text();
        EXPECT_EQ(bRan, nExitCode == -1);
        return nExitCode;
    }

    CommandLine m_program{"prog", "A program"};
    Texts m_calls;
    std::string m_strOutput;
    std::string m_strError;
    bool m_bVerbose = false;
    bool m_bOne = false;
    bool m_bTwo = false;
    bool m_bThree = false;
    std::string m_strName;
    std::string m_strChecked;
    std::string m_strFile;
    int m_nNumber = 0;
    double m_dShare = 0;
    uint64_t m_nSize = 0;
    Texts m_list;
    Texts m_paths;
};

}  // namespace

TEST_F(CommandLineTest, ACommandRunsOnceEverythingIsUnderstood) {
    EXPECT_EQ(-1, Parse("run --name red --number 9 --share 1.5 --size 2K --checked good"));

    EXPECT_EQ((Texts{"parsed", "run"}), m_calls);
    EXPECT_EQ("red", m_strName);
    EXPECT_EQ(9, m_nNumber);
    EXPECT_EQ(1.5, m_dShare);
    EXPECT_EQ(2048u, m_nSize);
    EXPECT_EQ("good", m_strChecked);
}

TEST_F(CommandLineTest, OptionsOfTheProgramMayStandBehindTheCommand) {
    EXPECT_EQ(-1, Parse("run -v"));

    EXPECT_TRUE(m_bVerbose);
}

TEST_F(CommandLineTest, ARepeatableOptionTakesOneValueEachTime) {
    EXPECT_EQ(-1, Parse("run --list a /path --list b"));

    EXPECT_EQ((Texts{"a", "b"}), m_list);
    EXPECT_EQ(Texts{"/path"}, m_paths);
}

TEST_F(CommandLineTest, WhatIsRefusedRunsNothingAndExitsWithUsage) {
    for (const char* pszArguments :
         {"run --name green", "run --number 0", "run --number 10", "run --share 0.4",
          "run --size 0", "run --checked bad", "run --one --not-with-one", "run --with-one", "need",
          "run --nonsense", "nonsense", ""}) {
        EXPECT_EQ(2, Parse(pszArguments)) << pszArguments;
        EXPECT_NE("", m_strError) << pszArguments;
    }
    EXPECT_THAT(m_calls, testing::Not(testing::Contains("run")));
}

TEST_F(CommandLineTest, AMissingCommandIsAnsweredWithThoseThatThereAre) {
    EXPECT_EQ(2, Parse(""));
    EXPECT_THAT(m_strError, HasSubstr("prog: no command given; there are run, need\n"));

    EXPECT_EQ(2, Parse("nonsense"));
    EXPECT_THAT(m_strError, HasSubstr("prog: no command 'nonsense'; there are run, need\n"));
}

TEST_F(CommandLineTest, HelpAndVersionAreNoFailure) {
    m_program.AddVersion("prog 1");

    EXPECT_EQ(0, Parse("--version"));
    EXPECT_EQ("prog 1\n", m_strOutput);
    EXPECT_EQ(0, Parse("run --help"));
    EXPECT_THAT(m_strOutput, HasSubstr("--number N:INT in [1 - 9]"));
    EXPECT_THAT(m_strOutput, HasSubstr("The end."));
}

TEST_F(CommandLineTest, EachRefusalNamesTheOptionAndWhatItTakes) {
    const std::pair<const char*, const char*> cases[] = {
        {"run --name green", "--name: green not in {red,blue}"},
        {"run --number 10", "--number: Value 10 not in range "},
        {"run --number x", "--number: Value x not in range "},
        {"run --number 4294967297", "--number: Value 4294967297 not in range "},
        {"run --share 1.6", "--share: Value 1.6 not in range "},
        {"run --size 0", "--size: Value 0 not in range "},
        {"run --size 2X", "--size: x unit not recognized"},
        {"run --checked bad", "--checked: is not good"},
        {"run --one --not-with-one", "--one excludes --not-with-one"},
        {"run --with-one", "--with-one requires --one"},
        {"run --name", "--name: 1 required TEXT:{red,blue} missing"},
        {"need", "FILE is required"},
        {"need a b", "The following argument was not expected: b"},
        {"run --nonsense", "The following argument was not expected: --nonsense"},
    };
    for (const auto& [pszArguments, pszError] : cases) {
        EXPECT_EQ(2, Parse(pszArguments)) << pszArguments;
        EXPECT_THAT(m_strError, StartsWith(pszError));
        EXPECT_THAT(m_strError, EndsWith("\nRun with --help for more information.\n"));
        EXPECT_EQ("", m_strOutput) << pszArguments;
    }
}

TEST_F(CommandLineTest, TheBoundsOfARangeAreInIt) {
    EXPECT_EQ(-1, Parse("run --number 1 --share 0.5 --size 1"));
    EXPECT_EQ(1, m_nNumber);
    EXPECT_EQ(0.5, m_dShare);
    EXPECT_EQ(1u, m_nSize);

    EXPECT_EQ(-1, Parse("run --number=9 --share=1.5 --size=3g"));
    EXPECT_EQ(9, m_nNumber);
    EXPECT_EQ(1.5, m_dShare);
    EXPECT_EQ(3221225472u, m_nSize);
}

TEST_F(CommandLineTest, WordsOfAnArrayAreTakenAsTheyAreWithTheirBlanks) {
    const char* const pszArguments[] = {"prog",          "run", "--list", "a b",
                                        "--list=--name", "--",  "--one",  "two words"};
    int nExitCode = 7;

    EXPECT_TRUE(m_program.Parse(8, pszArguments, nExitCode));

    EXPECT_EQ((Texts{"a b", "--name"}), m_list);
    EXPECT_EQ((Texts{"--one", "two words"}), m_paths);
    EXPECT_FALSE(m_bOne);
    EXPECT_EQ(7, nExitCode);  // the command's own business
}

TEST_F(CommandLineTest, AnArrayThatIsNotUnderstoodIsUsageToo) {
    const char* const pszArguments[] = {"prog", "run", "--name", "gr een"};
    int nExitCode = 0;
    testing::internal::CaptureStderr();

    EXPECT_FALSE(m_program.Parse(4, pszArguments, nExitCode));

    EXPECT_EQ("--name: gr een not in {red,blue}\nRun with --help for more information.\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ(2, nExitCode);
}

TEST_F(CommandLineTest, OfACommandBelowACommandTheWholeNameIsPrinted) {
    Command queue = m_program.AddCommand("queue", "Look into it");
    queue.NeedsCommand();
    Command list = queue.AddCommand("list", "List it");
    list.OnRun([this] { m_calls.push_back("list"); });
    (void)queue.AddCommand("count", "Count it");
    (void)queue.AddOption("--limit", m_nNumber, "A limit").InRange(1, 9);

    EXPECT_EQ(2, Parse("queue"));
    EXPECT_EQ(
        "prog queue: no command given; there are list, count\n"
        "Run with --help for more information.\n",
        m_strError);
    EXPECT_EQ(2, Parse("queue lsit"));
    EXPECT_EQ(
        "prog queue: no command 'lsit'; there are list, count\n"
        "Run with --help for more information.\n",
        m_strError);
    EXPECT_EQ(2, Parse("queue lsit cuont"));
    EXPECT_THAT(m_strError, StartsWith("prog queue: no command 'lsit'; "));
    EXPECT_EQ(2, Parse("queue --limit 10"));
    EXPECT_THAT(m_strError, StartsWith("--limit: Value 10 not in range "));
    m_calls.clear();
    EXPECT_EQ(-1, Parse("queue list -v"));
    EXPECT_EQ((Texts{"parsed", "list"}), m_calls);
    EXPECT_TRUE(m_bVerbose);
}

TEST_F(CommandLineTest, HelpShowsTheNamesTheLimitsAndTheValueThatStandsThere) {
    m_nNumber = 4;
    Command more = m_program.AddCommand("more", "Show more");
    (void)more.AddOption("--number", m_nNumber, "A number")
        .TypeName("N")
        .InRange(1, 9)
        .ShowDefault();
    (void)more.AddOption("FILE", m_strFile, "A file").TypeName("PATH").Required();
    more.Footer("No more.");
    m_nNumber = 5;  // shown is what stood there when it was asked for

    EXPECT_EQ(0, Parse("more --help"));

    EXPECT_EQ(
        "Show more\n"
        "Usage: prog more [OPTIONS] FILE\n"
        "\n"
        "Positionals:\n"
        "  FILE PATH REQUIRED          A file\n"
        "\n"
        "Options:\n"
        "  -h,--help                   Print this help message and exit\n"
        "  --number N:INT in [1 - 9]=4 A number\n"
        "\n"
        "No more.\n",
        m_strOutput);
    EXPECT_EQ("", m_strError);
    EXPECT_EQ(Texts{}, m_calls);
}
