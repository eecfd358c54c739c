#include "host/kernel/connector/StartedProgram.h"

#include <gtest/gtest.h>

namespace {

const std::string NUL(1, '\0');
constexpr uint32_t OWN_NS = 77;

OpenedImage Image(uint64_t nInode, const std::string& strPath) {
    OpenedImage image;
    image.program.id = {nInode, 1};
    image.program.strPath = strPath;
    return image;
}

ProcessState State(uint64_t nInode, const std::string& strArgs) {
    ProcessState state;
    state.exe = {nInode, 1};
    state.strExe = "/usr/bin/other";
    state.strArgs = strArgs;
    state.strDirectory = "/srv";
    state.nMountNs = 5;
    state.nParent = 4;
    return state;
}

}  // namespace

TEST(StartedProgramTest, TheLastLaunchesGetTheLastImages) {
    const auto starts = ImagesPerStart({Image(1, "/failed"), Image(2, "/a"), Image(3, "/b")}, 2);

    ASSERT_EQ(2u, starts.size());
    EXPECT_EQ("/a", starts[0]->program.strPath);
    EXPECT_EQ("/b", starts[1]->program.strPath);
}

TEST(StartedProgramTest, ALaunchWithoutAnImageIsNotGivenAnothers) {
    const auto starts = ImagesPerStart({Image(1, "/a")}, 2);

    ASSERT_EQ(2u, starts.size());
    EXPECT_FALSE(starts[0]);
    EXPECT_EQ("/a", starts[1]->program.strPath);
}

TEST(StartedProgramTest, ALaunchHasTheFileOpenedAndTheArgumentsOfTheProcess) {
    const ProcessState state = State(2, "./a" + NUL + "b c" + NUL + NUL);

    const LaunchEvent event = StartedProgram(10, 3, Image(2, "/srv/a"), &state, OWN_NS);

    EXPECT_EQ(10u, event.nPid);
    EXPECT_EQ(3u, event.nPpid);
    EXPECT_EQ(2u, event.nInode);
    EXPECT_EQ(1u, event.nDevice);
    EXPECT_EQ("/srv/a", event.strPath);
    EXPECT_EQ("./a", event.strName);
    EXPECT_EQ("/srv", event.strDirectory);
    EXPECT_EQ("./a b c ", event.strCommand);
    EXPECT_EQ(5u, event.nMountNs);
    EXPECT_FALSE(event.bArgsUnreadable);
}

TEST(StartedProgramTest, TheFileIsTheOneThatWasOpenedInTheStateItHadThen) {
    OpenedImage image = Image(2, "/srv/a");
    image.program.id.nMountId = 31;
    image.program.id.nSize = 100;
    image.program.id.nChanged = 7000000009;

    const LaunchEvent event = StartedProgram(10, 3, image, nullptr, OWN_NS);

    EXPECT_EQ(31u, event.nMountId);
    EXPECT_EQ(100u, event.nSize);
    EXPECT_EQ(7000000009, event.nChanged);
}

TEST(StartedProgramTest, ANameWithoutASlashIsLookedForBesideTheFile) {
    const ProcessState state = State(2, "python3" + NUL);

    EXPECT_EQ("/usr/bin/python3",
              StartedProgram(10, 3, Image(2, "/usr/bin/python3.11"), &state, OWN_NS).strName);
}

TEST(StartedProgramTest, ArgumentsOfAnotherProgramAreNotTaken) {
    const ProcessState state = State(8, "other" + NUL);

    const LaunchEvent event = StartedProgram(10, 3, Image(2, "/srv/a"), &state, OWN_NS);

    EXPECT_EQ("/srv/a", event.strPath);
    EXPECT_EQ("", event.strCommand);
    EXPECT_EQ("", event.strName);
    EXPECT_TRUE(event.bArgsUnreadable);
}

TEST(StartedProgramTest, WithoutAnImageTheProcessItselfSaysWhatItRuns) {
    const ProcessState state = State(8, "other" + NUL);

    const LaunchEvent event = StartedProgram(10, 0, std::nullopt, &state, OWN_NS);

    EXPECT_EQ(8u, event.nInode);
    EXPECT_EQ("/usr/bin/other", event.strPath);
    EXPECT_EQ("other", event.strCommand);
    EXPECT_EQ(4u, event.nPpid);
}

TEST(StartedProgramTest, OfALaunchThatNobodyKnowsNothingIsMadeUp) {
    const LaunchEvent event = StartedProgram(10, 3, std::nullopt, nullptr, OWN_NS);

    EXPECT_EQ(0u, event.nInode);
    EXPECT_EQ("", event.strPath);
    EXPECT_TRUE(event.bArgsUnreadable);
}

TEST(StartedProgramTest, AScriptIsNamedAsTheHostNamesIt) {
    OpenedImage image = Image(2, "/usr/bin/dash");
    image.strScript = "/srv/a.sh";
    image.strInterp = "/bin/sh";
    const ProcessState state = State(2, "/bin/sh" + NUL + "./a.sh" + NUL);

    const LaunchEvent event = StartedProgram(10, 3, image, &state, OWN_NS);

    EXPECT_EQ("/srv/a.sh", event.strName);
    EXPECT_EQ("/bin/sh", event.strInterp);
    EXPECT_EQ("/bin/sh ./a.sh", event.strCommand);
    EXPECT_EQ(OWN_NS, event.nMountNs);
}

TEST(StartedProgramTest, AScriptThatNoPathLeadsToIsOneWithoutAName) {
    OpenedImage image = Image(2, "/usr/bin/dash");
    image.strInterp = "/bin/sh";
    const ProcessState state = State(2, "/bin/sh" + NUL + "./a.sh" + NUL);

    const LaunchEvent event = StartedProgram(10, 3, image, &state, OWN_NS);

    EXPECT_EQ("", event.strName);
    EXPECT_EQ("/bin/sh", event.strInterp);
}
