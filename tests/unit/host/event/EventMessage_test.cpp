#include "host/event/EventMessage.h"

#include <gtest/gtest.h>

#include "host/base/JsonReader.h"

namespace {

struct Unusable {
    const char* pszBody;
    const char* pszReason;
};

}  // namespace

TEST(EventMessageTest, AMessageWithATaggedElementIsUsable) {
    uint64_t nCopies = 0;
    uint64_t nEvents = 0;
    std::string strReason;

    EXPECT_TRUE(event_message::IsUsable(
        R"({"param":[{"grup":"cloudquery","context":"cloudad"},{"path":"/x"},3]})", nCopies,
        nEvents, strReason));

    EXPECT_EQ(1u, nCopies);
    EXPECT_EQ(3u, nEvents);
}

TEST(EventMessageTest, EachTaggedElementHasTheWholeMessageQueued) {
    uint64_t nCopies = 0;
    uint64_t nEvents = 0;
    std::string strReason;

    EXPECT_TRUE(event_message::IsUsable(
        R"({"param":[{"grup":"cloudquery","context":"cloudad"},)"
        R"({"grup":"cloudquery","context":"cloudfd"},{"grup":"other","context":"cloudad"}]})",
        nCopies, nEvents, strReason));

    EXPECT_EQ(2u, nCopies);
    EXPECT_EQ(6u, nEvents);
}

// 8,000 tagged elements in 360 KB would be 2.7 GB in the queue, and an empty one takes a message
// of any size.
TEST(EventMessageTest, AMessageThatWouldFillTheDiskIsNotUsable) {
    std::string strBody = R"({"param":[{"grup":"cloudquery","context":"cloudad"})";
    for (int i = 1; i < 8000; ++i) {
        strBody += R"(,{"grup":"cloudquery","context":"cloudad"})";
    }
    strBody += "]}";
    uint64_t nCopies = 1;
    uint64_t nEvents = 1;
    std::string strReason;

    EXPECT_FALSE(event_message::IsUsable(strBody, nCopies, nEvents, strReason));

    EXPECT_EQ("would be stored 8000 times, 2.5 GiB in all", strReason);
    EXPECT_EQ(0u, nCopies);
    EXPECT_EQ(0u, nEvents);
}

TEST(EventMessageTest, WhatIsMissingIsSaid) {
    constexpr char NO_ELEMENT[] = "no element with \"grup\" \"cloudquery\" and a known \"context\"";
    const Unusable CASES[] = {
        {"nonsense", "not a JSON text"},
        {"[1]", "not a JSON object"},
        {"\"param\"", "not a JSON object"},
        {"{}", "no array \"param\""},
        {R"({"param":{"grup":"cloudquery","context":"cloudad"}})", "no array \"param\""},
        {R"({"param":[]})", NO_ELEMENT},
        {R"({"param":[null,1,"x",[]]})", NO_ELEMENT},
        {R"({"param":[{"grup":"CloudQuery","context":"cloudad"}]})", NO_ELEMENT},
        {R"({"param":[{"grup":"cloudquery","context":"cloudzz"}]})", NO_ELEMENT},
        {R"({"param":[{"grup":["cloudquery"],"context":"cloudad"}]})", NO_ELEMENT},
        {R"({"param":[{"grup":"cloudquery"},{"context":"cloudad"}]})", NO_ELEMENT},
    };
    for (const Unusable& unusable : CASES) {
        uint64_t nCopies = 7;
        uint64_t nEvents = 7;
        std::string strReason;
        EXPECT_FALSE(event_message::IsUsable(unusable.pszBody, nCopies, nEvents, strReason));
        EXPECT_EQ(unusable.pszReason, strReason) << unusable.pszBody;
        EXPECT_EQ(0u, nCopies);
        EXPECT_EQ(0u, nEvents);
    }
}

TEST(EventMessageTest, OnlyTheFirstProgramOfABatchIsTagged) {
    EXPECT_EQ(
        R"({"param":[{"grup":"cloudquery","context":"cloudad","path":"/a","cmd":"/a","pid":0})"
        R"(,{"path":"/b","cmd":"/b","pid":0}]})",
        event_message::ProcessCreations({"/a", "/b"}));
    EXPECT_EQ("", event_message::ProcessCreations({}));
}

TEST(EventMessageTest, AnyFileNameComesBackByteForByte) {
    const std::string strPath = "/a \"b\"\\\n\t\x01\xff\xc3/\xe6\x97\xa5";
    Json::Value jsonRoot;

    ASSERT_TRUE(json_reader::Parse(event_message::ProcessCreations({strPath}), jsonRoot));

    EXPECT_EQ(strPath, jsonRoot["param"][0]["path"].asString());
}

TEST(EventMessageTest, ACreationHasItsCommandLineAndItsNumber) {
    EXPECT_EQ(R"({"param":[{"grup":"cloudquery","context":"cloudad","path":"/a","cmd":"a \"b\"",)"
              R"("pid":4711}]})",
              event_message::CreationsOf({{"/a", "a \"b\"", 4711}}));
}

TEST(EventMessageTest, OperationsBecomeOneMessageWithOneTaggedElement) {
    FileOperation operation;
    operation.eAct = FILE_RENAME;
    operation.strPath = "/etc/cron.d/job";
    operation.strProgram = "/bin/mv";
    operation.strFsType = "ext4";
    operation.nInode = 794;
    operation.nPid = 4712;
    operation.tmWhen = 1795266800;
    FileOperation other = operation;
    other.eAct = FILE_REMOVE;
    other.strProgram.clear();
    other.strFsType = "tmpfs";
    other.nInode = 0x80000000;  // more than the module reads

    EXPECT_EQ(
        R"({"param":[{"grup":"cloudquery","context":"cloudfd","path":"/etc/cron.d/job",)"
        R"("optertion":"rename","exe_path":"/bin/mv","exe_pid":4712,"ino":794,)"
        R"("disk_type":"disk","fs_type":"ext4","result":"0","time":1795266800},)"
        R"({"path":"/etc/cron.d/job","optertion":"remove","exe_path":"","exe_pid":4712,"ino":0,)"
        R"("disk_type":"memory","fs_type":"tmpfs","result":"0","time":1795266800}]})",
        event_message::OperationsOf({operation, other}));
    EXPECT_EQ("", event_message::OperationsOf({}));
}
