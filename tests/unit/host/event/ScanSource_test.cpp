#include "host/event/ScanSource.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "host/base/JsonReader.h"
#include "tests/support/TestDir.h"

namespace {

class ScanSourceTest : public testing::Test {
protected:
    SourceRemark Remarks() {
        return [this](uint64_t /*nNumber*/, const std::string& strText) {
            m_remarks.push_back(strText);
        };
    }

    std::string Program(const std::string& strName) {
        return m_dir.WriteFile("tree/" + strName, "#!/bin/sh\n", 0755);
    }

    // The programs in the order in which they were reported, one list a batch.
    std::vector<std::vector<std::string>> Scan(const std::vector<std::string>& paths,
                                               size_t nBatch = 100) {
        ScanSource source(paths, nBatch, Remarks());
        std::string strError;
        EXPECT_TRUE(source.Start(strError)) << strError;
        std::vector<std::vector<std::string>> batches;
        EventBatch batch;
        while (source.Next(batch, std::chrono::milliseconds(0)) == SOURCE_BATCH) {
            Json::Value jsonRoot;
            EXPECT_TRUE(json_reader::Parse(batch.strBody, jsonRoot));
            batches.emplace_back();
            for (const Json::Value& jsonElement : jsonRoot["param"]) {
                batches.back().push_back(json_reader::Text(jsonElement, "path"));
            }
            EXPECT_EQ(batches.size(), batch.nNumber);
            EXPECT_EQ(batches.back().size(), batch.nEvents);
        }
        m_counters = source.Counters();
        return batches;
    }
    std::vector<std::string> ScanTree() {
        const auto batches = Scan({m_strTree});
        return batches.empty() ? std::vector<std::string>() : batches.front();
    }

    TestDir m_dir;
    const std::string m_strTree = m_dir.Path() + "/tree";
    std::vector<std::string> m_remarks;
    SourceCounters m_counters;
};

using Paths = std::vector<std::string>;

}  // namespace

TEST_F(ScanSourceTest, ProgramsAreRegularFilesWithAnExecuteBit) {
    const std::string strB = Program("b");
    const std::string strA = Program("sub/deep/a");
    m_dir.WriteFile("tree/text", "no program", 0644);
    m_dir.WriteFile("tree/others", "executable for others only", 0641);
    ASSERT_EQ(0, mkfifo((m_strTree + "/pipe").c_str(), 0755));

    EXPECT_EQ((Paths{strB, m_strTree + "/others", strA}), ScanTree());

    EXPECT_TRUE(m_remarks.empty());
}

TEST_F(ScanSourceTest, BatchesHoldAsManyProgramsAsAskedFor) {
    const Paths all = {Program("a"), Program("b"), Program("c"), Program("d"), Program("e")};

    const auto batches = Scan({m_strTree}, 2);

    ASSERT_EQ(3u, batches.size());
    EXPECT_EQ((Paths{all[0], all[1]}), batches[0]);
    EXPECT_EQ((Paths{all[4]}), batches[2]);
    EXPECT_EQ(3u, m_counters.nBatches);
    EXPECT_EQ(5u, m_counters.nEvents);
}

TEST_F(ScanSourceTest, EveryPathToAProgramCounts) {
    const std::string strProgram = Program("a");
    std::filesystem::create_hard_link(strProgram, m_strTree + "/b");
    std::filesystem::create_symlink("a", m_strTree + "/c");

    EXPECT_EQ((Paths{strProgram, m_strTree + "/b", m_strTree + "/c"}), ScanTree());
}

TEST_F(ScanSourceTest, LinksToDirectoriesAreFollowedOnlyWhereTheyAreNamed) {
    const std::string strProgram = Program("dir/a");
    std::filesystem::create_directory_symlink("dir", m_strTree + "/link");
    std::filesystem::create_directory_symlink("..", m_strTree + "/dir/loop");
    std::filesystem::create_symlink("nowhere", m_strTree + "/broken");

    EXPECT_EQ(Paths{strProgram}, ScanTree());
    EXPECT_EQ(Paths{m_strTree + "/link/a"}, Scan({m_strTree + "/link"}).at(0));
}

TEST_F(ScanSourceTest, ADirectoryIsWalkedOnceHoweverItIsNamed) {
    const std::string strProgram = Program("sub/a");

    EXPECT_EQ(Paths{strProgram}, Scan({m_strTree, m_strTree + "/sub", m_strTree}).at(0));
}

TEST_F(ScanSourceTest, AFileMayBeNamedItself) {
    const std::string strProgram = Program("a");
    const std::string strText = m_dir.WriteFile("tree/text", "", 0644);

    EXPECT_EQ(Paths{strProgram}, Scan({strText, strProgram}).at(0));

    EXPECT_EQ(Paths{strText + " is not a program: no regular file with an execute bit"}, m_remarks);
    EXPECT_EQ(1u, m_counters.nUnusable);
}

TEST_F(ScanSourceTest, NamesOfAnyBytesAreReported) {
    const std::string strOdd = Program("\xff\"odd\n\\name");

    EXPECT_EQ(Paths{strOdd}, ScanTree());
}

TEST_F(ScanSourceTest, NothingFoundIsNoBatch) {
    std::filesystem::create_directory(m_strTree);

    EXPECT_TRUE(Scan({m_strTree}).empty());
}

TEST_F(ScanSourceTest, APlaceThatDoesNotExistIsRefused) {
    std::string strError;

    EXPECT_FALSE(ScanSource({"/no/such"}, 1, Remarks()).Start(strError));

    EXPECT_EQ(
        "cannot look at /no/such: No such file or directory; name directories and programs "
        "that exist",
        strError);
}

TEST_F(ScanSourceTest, StopEndsTheWalk) {
    Program("a");
    ScanSource source({m_strTree}, 1, Remarks());
    std::string strError;
    ASSERT_TRUE(source.Start(strError));

    source.Stop();

    EventBatch batch;
    EXPECT_EQ(SOURCE_END, source.Next(batch, std::chrono::milliseconds(0)));
}
