#include "host/kernel/script/LoaderArguments.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// The program, or "?" when it is not known which.
std::string TextOf(const GivenProgram& program) {
    return program.bUnknown ? "?" + program.strPath : program.strPath;
}

std::string Given(LoaderKind eKind, const std::vector<std::string>& arguments, bool bCut = false) {
    std::string strArguments;
    for (const std::string& strArgument : arguments) {
        strArguments += strArgument + std::string(1, '\0');
    }
    return TextOf(loader_arguments::ProgramOf(eKind, strArguments, bCut));
}

std::string OfGlibc(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "ld.so");
    return Given(LOADER_GLIBC, arguments);
}

std::string OfMusl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "ld-musl");
    return Given(LOADER_MUSL, arguments);
}

}  // namespace

TEST(LoaderArgumentsTest, TheFirstArgumentThatIsNoOptionIsTheProgram) {
    EXPECT_EQ("./a", OfGlibc({"./a"}));
    EXPECT_EQ("/bin/a", OfGlibc({"/bin/a", "--list", "/bin/b"}));
    EXPECT_EQ("./a", OfMusl({"./a", "b"}));
    EXPECT_EQ("-/a", OfGlibc({"-/a"}));
}

TEST(LoaderArgumentsTest, ArgumentsKeepTheirBlanks) {
    EXPECT_EQ("./with blank", OfGlibc({"./with blank", "b"}));
    EXPECT_EQ("./a", Given(LOADER_GLIBC, {"a /bin/true", "./a"}));
    EXPECT_EQ("./a", OfGlibc({"--argv0", "x /bin/true", "./a"}));
    EXPECT_EQ("./a", OfGlibc({"--argv0", "", "./a"}));
}

TEST(LoaderArgumentsTest, OptionsOfGlibcAreTakenWithTheirValues) {
    EXPECT_EQ("./a", OfGlibc({"--inhibit-cache", "./a"}));
    for (const char* pszOption : {"--library-path", "--inhibit-rpath", "--audit", "--preload",
                                  "--argv0", "--glibc-hwcaps-mask", "--glibc-hwcaps-prepend"}) {
        EXPECT_EQ("./a", OfGlibc({pszOption, "/x", "./a"})) << pszOption;
        EXPECT_EQ("", OfGlibc({pszOption})) << pszOption;
        EXPECT_EQ("", OfGlibc({pszOption, "/x"})) << pszOption;
    }
    EXPECT_EQ("./a", OfGlibc({"--library-path", "--list", "--inhibit-cache", "./a"}));
}

TEST(LoaderArgumentsTest, OptionsOfMuslAreTakenInBothForms) {
    for (const std::string strOption : {"--library-path", "--preload", "--argv0"}) {
        EXPECT_EQ("./a", OfMusl({strOption, "/x", "./a"})) << strOption;
        EXPECT_EQ("./a", OfMusl({strOption + "=/x", "./a"})) << strOption;
        EXPECT_EQ("", OfMusl({strOption, "./a"})) << strOption;
        EXPECT_EQ("?", OfGlibc({strOption + "=/x", "./a"})) << strOption;
    }
    EXPECT_EQ("--a", OfMusl({"--", "--a"}));
    EXPECT_EQ("", OfMusl({"--"}));
}

TEST(LoaderArgumentsTest, WhatStartsNoProgramHasNone) {
    for (const char* pszOption :
         {"--list", "--verify", "--list-tunables", "--list-diagnostics", "--help", "--version"}) {
        EXPECT_EQ("", OfGlibc({pszOption, "./a"})) << pszOption;
    }
    EXPECT_EQ("", OfMusl({"--list", "./a"}));
    EXPECT_EQ("", Given(LOADER_MUSL, {"/usr/bin/ldd", "./a"}));
    EXPECT_EQ("", Given(LOADER_NONE, {"ld.so", "./a"}));
    EXPECT_EQ("", OfGlibc({}));
    EXPECT_EQ("", Given(LOADER_MUSL, {}));
}

TEST(LoaderArgumentsTest, ANameThatGlibcLooksForIsNotKnown) {
    EXPECT_EQ("?", OfGlibc({"a"}));
    EXPECT_EQ("?", OfGlibc({"$ORIGIN/a"}));
    EXPECT_EQ("a", OfMusl({"a"}));
}

TEST(LoaderArgumentsTest, WhatComesBehindAnUnknownOptionIsNotKnown) {
    EXPECT_EQ("?", OfGlibc({"--unknown", "./a"}));
    EXPECT_EQ("?", OfGlibc({"--", "./a"}));
    EXPECT_EQ("?", OfMusl({"--unknown", "./a"}));
}

TEST(LoaderArgumentsTest, WhatWasCutIsNotKnown) {
    const std::string strNul(1, '\0');
    const auto ofText = [](const std::string& strArguments) {
        return TextOf(loader_arguments::ProgramOf(LOADER_GLIBC, strArguments));
    };
    EXPECT_EQ("?", ofText("ld.so" + strNul + "/bin/a"));
    EXPECT_EQ("/bin/a", ofText("ld.so" + strNul + "/bin/a" + strNul + "x"));
    EXPECT_EQ("?", Given(LOADER_GLIBC, {"ld.so", "--inhibit-cache"}, true));
    EXPECT_EQ("?", Given(LOADER_MUSL, {"ld.so", "--preload"}, true));
    EXPECT_EQ("/bin/a", Given(LOADER_GLIBC, {"ld.so", "/bin/a", "x"}, true));
    EXPECT_EQ("", Given(LOADER_NONE, {"ld.so", "--inhibit-cache"}, true));
}

TEST(LoaderArgumentsTest, HoweverManyOptionsStandBeforeItTheProgramIsFoundOrCounted) {
    std::vector<std::string> arguments(4000, "--inhibit-cache");
    arguments.emplace_back("./a");
    EXPECT_EQ("./a", OfGlibc(arguments));
    arguments.insert(arguments.begin(), 200, "--inhibit-cache");
    EXPECT_EQ("?", OfGlibc(arguments));
}
