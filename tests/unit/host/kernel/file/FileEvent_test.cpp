#include "host/kernel/file/FileEvent.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/unit/host/kernel/file/FileEventBytes.h"

using namespace file_event_bytes;

namespace {

// Reads all of it, looking at every byte that an event points to; the number of events.
size_t ReadAll(const std::string& strBytes, uint64_t* pBroken = nullptr) {
    // On the heap with no room behind, so that a sanitizer sees a byte too many.
    const std::vector<char> copy(strBytes.begin(), strBytes.end());
    FileEventReader reader(copy.data(), copy.size());
    FileEvent event;
    size_t nEvents = 0;
    std::string strSeen;
    while (reader.Next(event)) {
        ++nEvents;
        for (const FileSpot* pSpot : {&event.spot, &event.from, &event.to}) {
            strSeen.append(pSpot->strDirectory).append(pSpot->strName);
        }
        strSeen.append(event.strTarget);
        EXPECT_LE(file_handle_key::FileSystem(event.strTarget).size(), 8u);
        (void)file_handle_key::Inode(event.strTarget);
    }
    EXPECT_LE(strSeen.size(), strBytes.size());
    if (pBroken != nullptr) {
        *pBroken = reader.Broken();
    }
    return nEvents;
}

}  // namespace

TEST(FileEventTest, AnEventNamesItsDirectoryItsNameAndItsTarget) {
    const std::string strBytes = At(FAN_CREATE, 4711, 12, "job", 34);
    FileEventReader reader(strBytes.data(), strBytes.size());

    FileEvent event;
    ASSERT_TRUE(reader.Next(event));

    EXPECT_EQ(uint64_t{FAN_CREATE}, event.nMask);
    EXPECT_EQ(4711u, event.nPid);
    EXPECT_EQ(Handle(12), event.spot.strDirectory);
    EXPECT_EQ("job", event.spot.strName);
    EXPECT_EQ(Handle(34), event.strTarget);
    EXPECT_FALSE(reader.Next(event));
    EXPECT_EQ(0u, reader.Broken());
}

TEST(FileEventTest, ARenameNamesBothPlaces) {
    const std::string strBytes = Rename(0, 1, 12, "old", 13, "new", 34);
    FileEventReader reader(strBytes.data(), strBytes.size());

    FileEvent event;
    ASSERT_TRUE(reader.Next(event));

    EXPECT_EQ(Handle(12), event.from.strDirectory);
    EXPECT_EQ("old", event.from.strName);
    EXPECT_EQ(Handle(13), event.to.strDirectory);
    EXPECT_EQ("new", event.to.strName);
    EXPECT_TRUE(event.spot.strDirectory.empty());
}

TEST(FileEventTest, AnEventWithoutProcessOrInformationIsOne) {
    const std::string strBytes = Event(FAN_Q_OVERFLOW, -1, "");
    FileEventReader reader(strBytes.data(), strBytes.size());

    FileEvent event;
    ASSERT_TRUE(reader.Next(event));

    EXPECT_EQ(0u, event.nPid);
    EXPECT_TRUE(event.strTarget.empty());
}

TEST(FileEventTest, InformationOfAnotherKindIsLeftOut) {
    const std::string strBytes = Event(FAN_CREATE, 1, Info(200, "whatever") + Info(2, Handle(12)));
    FileEventReader reader(strBytes.data(), strBytes.size());

    FileEvent event;
    ASSERT_TRUE(reader.Next(event));

    EXPECT_EQ(Handle(12), event.spot.strDirectory);
}

TEST(FileEventTest, AnEventWithBrokenInformationCostsOnlyItself) {
    std::string strBroken = At(FAN_CREATE, 1, 12, "a");
    strBroken[24 + 4 + 8] = '\xff';  // more bytes of handle than there are
    uint64_t nBroken = 0;

    EXPECT_EQ(
        2u, ReadAll(At(FAN_CREATE, 1, 12, "x") + strBroken + At(FAN_DELETE, 1, 12, "y"), &nBroken));
    EXPECT_EQ(1u, nBroken);
}

TEST(FileEventTest, ANameWithASlashIsBroken) {
    uint64_t nBroken = 0;

    EXPECT_EQ(0u, ReadAll(At(FAN_CREATE, 1, 12, "../../etc/passwd"), &nBroken));
    EXPECT_EQ(1u, nBroken);
}

TEST(FileEventTest, CutBytesAreNeverReadBeyondTheirEnd) {
    const std::string strBytes = At(FAN_CREATE, 1, 12, "a") + Rename(0, 1, 12, "a", 13, "b");
    EXPECT_EQ(2u, ReadAll(strBytes));

    for (size_t nSize = 0; nSize < strBytes.size(); ++nSize) {
        EXPECT_LE(ReadAll(strBytes.substr(0, nSize)), 1u) << nSize;
    }
}

TEST(FileEventTest, EveryByteMayBeAnything) {
    const std::string strBytes = At(FAN_CREATE, 1, 12, "a") + Rename(0, 1, 12, "a", 13, "b");
    for (size_t nAt = 0; nAt < strBytes.size(); ++nAt) {
        for (const char cByte : {'\x00', '\x01', '\x7f', '\x80', '\xff'}) {
            std::string strHostile = strBytes;
            strHostile[nAt] = cByte;
            EXPECT_LE(ReadAll(strHostile), 2u);
        }
    }
    std::mt19937 random(1);
    for (int i = 0; i < 20000; ++i) {
        std::string strHostile = strBytes;
        for (int n = 0; n < 4; ++n) {
            strHostile[random() % strHostile.size()] = static_cast<char>(random());
        }
        EXPECT_LE(ReadAll(strHostile), 4u);
    }
}

TEST(FileEventTest, TheInodeStandsInHandlesOfKnownLayouts) {
    const std::string strFsid = "12345678";
    const std::string strWide = Bytes<uint64_t>(0x123456789a);

    EXPECT_EQ(34u, file_handle_key::Inode(Handle(34)));
    EXPECT_EQ(0x123456789au, file_handle_key::Inode(strFsid + Bytes<uint32_t>(12) +
                                                    Bytes<uint32_t>(0x81) + strWide + "gene"));
    EXPECT_EQ(0x123456789au,  // tmpfs: the generation first
              file_handle_key::Inode(strFsid + Bytes<uint32_t>(12) + Bytes<uint32_t>(1) + "gene" +
                                     strWide));
    EXPECT_EQ(
        0u, file_handle_key::Inode(strFsid + Bytes<uint32_t>(8) + Bytes<uint32_t>(0x55) + strWide));
    EXPECT_EQ(0u, file_handle_key::Inode("short"));
}

TEST(FileEventTest, AHandleOfOverlayfsIsKnownByItsType) {
    const std::string strFsid = "12345678";

    EXPECT_TRUE(
        file_handle_key::IsOverlay(strFsid + Bytes<uint32_t>(4) + Bytes<uint32_t>(0xf8) + "fake"));
    EXPECT_FALSE(file_handle_key::IsOverlay(Handle(34)));
    EXPECT_FALSE(file_handle_key::IsOverlay("short"));
    EXPECT_FALSE(file_handle_key::IsOverlay(""));
}
