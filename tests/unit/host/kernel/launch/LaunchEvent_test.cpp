#include "host/kernel/launch/LaunchEvent.h"

#include <gtest/gtest.h>

#include <cstring>

#include "host/kernel/bpf/launch_record.h"

namespace {

const std::string NUL(1, '\0');

launch_record Head(unsigned int nType) {
    launch_record head = {};
    head.life.type = nType;
    head.life.pid = 4711;
    head.life.ppid = 42;
    return head;
}

std::string Bytes(const launch_record& head, const std::string& strTexts) {
    std::string strBytes(sizeof(head), '\0');
    std::memcpy(strBytes.data(), &head, sizeof(head));
    return strBytes + strTexts;
}

// /usr/bin/dash started by ./a.sh in /srv/x, below the root /jail.
std::string WholeRecord() {
    launch_record head = Head(LAUNCH_EXEC);
    head.inode = 7;
    head.device = 3 << 20 | 1;
    head.path_length = 13;
    head.name_length = 7;
    head.interp_length = 8;
    head.cwd_length = 6;
    head.root_length = 5;
    head.args_length = 13;
    head.flags = LAUNCH_ARGS_CUT;
    const std::string strTexts = "dash" + NUL + "bin" + NUL + "usr" + NUL + "./a.sh" + NUL +
                                 "/bin/sh" + NUL + "x" + NUL + "srv" + NUL + "jail" + NUL + "sh" +
                                 NUL + "a b" + NUL + NUL + "\xff end";
    return Bytes(head, strTexts);
}

}  // namespace

TEST(LaunchEventTest, ALaunchIsDecodedWithAllItsTexts) {
    const std::string strBytes = WholeRecord();
    LaunchEvent event;

    ASSERT_TRUE(DecodeLaunch(strBytes.data(), strBytes.size(), event));

    EXPECT_EQ(LAUNCH_KIND_EXEC, event.eKind);
    EXPECT_EQ(4711u, event.nPid);
    EXPECT_EQ(42u, event.nPpid);
    EXPECT_EQ(7u, event.nInode);
    EXPECT_EQ(0x300001u, event.nDevice);
    EXPECT_EQ("/usr/bin/dash", event.strPath);
    EXPECT_EQ("./a.sh", event.strName);
    EXPECT_EQ("/bin/sh", event.strInterp);
    EXPECT_EQ("/srv/x", event.strDirectory);
    EXPECT_EQ("/jail", event.strRoot);
    EXPECT_EQ("sh a b  \xff end", event.strCommand);
    EXPECT_TRUE(event.bArgsCut);
    EXPECT_FALSE(event.bArgsUnreadable);
}

TEST(LaunchEventTest, TheNulBehindTheLastArgumentIsNoBlank) {
    launch_record head = Head(LAUNCH_EXEC);
    head.args_length = 5;
    const std::string strBytes = Bytes(head, "ls" + NUL + "x" + NUL);
    LaunchEvent event;

    ASSERT_TRUE(DecodeLaunch(strBytes.data(), strBytes.size(), event));

    EXPECT_EQ("ls x", event.strCommand);
    EXPECT_EQ("", event.strPath);
}

TEST(LaunchEventTest, CopiesAndEndsHaveNumbersOnly) {
    LaunchEvent event;

    ASSERT_TRUE(DecodeLaunch(Bytes(Head(LAUNCH_FORK), "").data(), sizeof(launch_life), event));
    EXPECT_EQ(LAUNCH_KIND_FORK, event.eKind);
    ASSERT_TRUE(DecodeLaunch(Bytes(Head(LAUNCH_EXIT), "").data(), sizeof(launch_life), event));
    EXPECT_EQ(LAUNCH_KIND_EXIT, event.eKind);
    EXPECT_EQ(4711u, event.nPid);
}

TEST(LaunchEventTest, ARecordCutAnywhereIsRefusedAndLeavesTheEventAlone) {
    const std::string strBytes = WholeRecord();
    for (size_t nSize = 0; nSize < strBytes.size(); ++nSize) {
        const std::string strCut = strBytes.substr(0, nSize);
        LaunchEvent event;
        event.strName = "before";
        EXPECT_FALSE(DecodeLaunch(strCut.data(), strCut.size(), event)) << nSize;
        EXPECT_EQ("before", event.strName);
    }
    LaunchEvent event;
    EXPECT_FALSE(DecodeLaunch(nullptr, 0, event));
}

TEST(LaunchEventTest, LengthsBeyondTheRecordAndUnknownTypesAreRefused) {
    launch_record head = Head(LAUNCH_EXEC);
    head.args_length = 0xffffffff;
    LaunchEvent event;
    EXPECT_FALSE(DecodeLaunch(Bytes(head, "x").data(), sizeof(head) + 1, event));
    head = Head(LAUNCH_EXEC);
    head.path_length = 0xffff;
    EXPECT_FALSE(DecodeLaunch(Bytes(head, "x").data(), sizeof(head) + 1, event));
    for (const unsigned int nType : {0u, 4u, 0xffffffffu}) {
        EXPECT_FALSE(DecodeLaunch(Bytes(Head(nType), "").data(), sizeof(head), event));
    }
}

TEST(LaunchEventTest, TextsWithoutTheirNulEndWithTheirLength) {
    launch_record head = Head(LAUNCH_EXEC);
    head.path_length = 4;
    head.name_length = 4;
    const std::string strBytes = Bytes(head, "lastname");
    LaunchEvent event;

    ASSERT_TRUE(DecodeLaunch(strBytes.data(), strBytes.size(), event));

    EXPECT_EQ("/last", event.strPath);
    EXPECT_EQ("name", event.strName);
}

TEST(LaunchEventTest, WhatIsEncodedIsDecodedTheSame) {
    const std::string strBytes = WholeRecord();
    LaunchEvent event;
    ASSERT_TRUE(DecodeLaunch(strBytes.data(), strBytes.size(), event));
    event.bArgsUnreadable = true;
    event.bPathCut = true;
    event.nMountId = 31;
    event.nCgroup = uint64_t{1} << 33;
    event.nSize = uint64_t{1} << 40;
    event.nChanged = int64_t{1700000000} * 1000000000 + 9;
    event.strArguments = "sh" + NUL + "a b" + NUL + NUL + "\xff " + NUL;

    const std::string strAgain = EncodeLaunch(event);
    LaunchEvent again;
    ASSERT_TRUE(DecodeLaunch(strAgain.data(), strAgain.size(), again));

    EXPECT_EQ(event.nPid, again.nPid);
    EXPECT_EQ(event.nPpid, again.nPpid);
    EXPECT_EQ(event.nInode, again.nInode);
    EXPECT_EQ(event.nDevice, again.nDevice);
    EXPECT_EQ(31u, again.nMountId);
    EXPECT_EQ(uint64_t{1} << 33, again.nCgroup);
    EXPECT_EQ(uint64_t{1} << 40, again.nSize);
    EXPECT_EQ(int64_t{1700000000} * 1000000000 + 9, again.nChanged);
    EXPECT_EQ(event.strPath, again.strPath);
    EXPECT_EQ(event.strName, again.strName);
    EXPECT_EQ(event.strInterp, again.strInterp);
    EXPECT_EQ(event.strDirectory, again.strDirectory);
    EXPECT_EQ(event.strRoot, again.strRoot);
    EXPECT_EQ("sh a b  \xff ", again.strCommand);
    EXPECT_EQ(event.strArguments, again.strArguments);
    EXPECT_TRUE(again.bArgsCut);
    EXPECT_TRUE(again.bArgsUnreadable);
    EXPECT_TRUE(again.bPathCut);
}

TEST(LaunchEventTest, ArgumentsKnownByTheirTextAloneAreEncodedAsOne) {
    LaunchEvent event;
    event.strCommand = "sh a b";
    const std::string strBytes = EncodeLaunch(event);
    LaunchEvent again;
    ASSERT_TRUE(DecodeLaunch(strBytes.data(), strBytes.size(), again));
    EXPECT_EQ("sh a b", again.strCommand);
    EXPECT_EQ("sh a b" + NUL, again.strArguments);
}

TEST(LaunchEventTest, AStartIsJustAfterAChangeOfTheSameTick) {
    constexpr int64_t MILLISECOND = 1000000;
    LaunchEvent event;
    event.nStarted = 1000 * MILLISECOND;
    EXPECT_TRUE(event.IsJustAfter(2000 * MILLISECOND));
    EXPECT_TRUE(event.IsJustAfter(980 * MILLISECOND + 1));
    EXPECT_FALSE(event.IsJustAfter(980 * MILLISECOND));
    EXPECT_FALSE(event.IsJustAfter(0));
    event.nStarted = 0;
    EXPECT_TRUE(event.IsJustAfter(980 * MILLISECOND));
}

TEST(LaunchEventTest, CopiesAndEndsAreEncodedWithTheirProcesses) {
    for (const LaunchKind eKind : {LAUNCH_KIND_FORK, LAUNCH_KIND_EXIT}) {
        LaunchEvent event;
        event.eKind = eKind;
        event.nPid = 20;
        event.nPpid = 10;
        const std::string strBytes = EncodeLaunch(event);
        LaunchEvent again;
        ASSERT_TRUE(DecodeLaunch(strBytes.data(), strBytes.size(), again));
        EXPECT_EQ(eKind, again.eKind);
        EXPECT_EQ(20u, again.nPid);
        EXPECT_EQ(10u, again.nPpid);
    }
}

TEST(LaunchEventTest, TextsTooLongForARecordAreLeftOutOrCut) {
    LaunchEvent event;
    event.strPath = "/" + std::string(70000, 'x');
    event.strName = std::string(70000, 'x');
    event.strCommand = std::string(16385, 'y');
    const std::string strBytes = EncodeLaunch(event);
    LaunchEvent again;
    ASSERT_TRUE(DecodeLaunch(strBytes.data(), strBytes.size(), again));

    EXPECT_EQ("", again.strPath);
    EXPECT_EQ("", again.strName);
    EXPECT_EQ(std::string(16384, 'y'), again.strCommand);
    EXPECT_TRUE(again.bArgsCut);
}
