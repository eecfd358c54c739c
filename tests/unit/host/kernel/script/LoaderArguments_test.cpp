#include "host/kernel/script/LoaderArguments.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::string Given(LoaderKind eKind, const std::vector<std::string>& arguments) {
    std::string strArguments;
    for (const std::string& strArgument : arguments) {
        strArguments += strArgument + std::string(1, '\0');
    }
    return loader_arguments::ProgramOf(eKind, strArguments);
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
        EXPECT_EQ("", OfGlibc({strOption + "=/x", "./a"})) << strOption;
    }
    EXPECT_EQ("--a", OfMusl({"--", "--a"}));
    EXPECT_EQ("", OfMusl({"--"}));
}

TEST(LoaderArgumentsTest, WhatStartsNoProgramHasNone) {
    for (const char* pszOption : {"--list", "--verify", "--list-tunables", "--list-diagnostics",
                                  "--help", "--version", "--unknown", "--"}) {
        EXPECT_EQ("", OfGlibc({pszOption, "./a"})) << pszOption;
    }
    EXPECT_EQ("", OfMusl({"--list", "./a"}));
    EXPECT_EQ("", OfMusl({"--unknown", "./a"}));
    EXPECT_EQ("", Given(LOADER_MUSL, {"/usr/bin/ldd", "./a"}));
    EXPECT_EQ("", Given(LOADER_NONE, {"ld.so", "./a"}));
    EXPECT_EQ("", OfGlibc({}));
    EXPECT_EQ("", loader_arguments::ProgramOf(LOADER_MUSL, ""));
}

TEST(LoaderArgumentsTest, ANameThatGlibcLooksForIsNotKnown) {
    EXPECT_EQ("", OfGlibc({"a"}));
    EXPECT_EQ("", OfGlibc({"$ORIGIN/a"}));
    EXPECT_EQ("a", OfMusl({"a"}));
}

TEST(LoaderArgumentsTest, AnArgumentThatWasCutIsNone) {
    const std::string strNul(1, '\0');
    EXPECT_EQ("", loader_arguments::ProgramOf(LOADER_GLIBC, "ld.so" + strNul + "/bin/a"));
    EXPECT_EQ("/bin/a", loader_arguments::ProgramOf(LOADER_GLIBC,
                                                    "ld.so" + strNul + "/bin/a" + strNul + "x"));
}
