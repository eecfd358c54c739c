#include "host/kernel/file/FileBatches.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using std::chrono::milliseconds;
using testing::ElementsAre;

namespace {

FileOperation At(const std::string& strPath, const std::string& strProgram = "") {
    FileOperation operation;
    operation.strPath = strPath;
    operation.strProgram = strProgram;
    return operation;
}

std::vector<std::string> PathsOf(const std::vector<FileOperation>& operations) {
    std::vector<std::string> paths;
    for (const FileOperation& operation : operations) {
        paths.push_back(operation.strPath);
    }
    return paths;
}

class FileBatchesTest : public testing::Test {
protected:
    const FileBatches::Clock::time_point m_begin{milliseconds(1000)};
    FileBatches m_batches{{3, 100, milliseconds(200)}};
};

}  // namespace

TEST_F(FileBatchesTest, ABatchThatIsNotFullIsDueItsTimeAfterItsFirstOperation) {
    EXPECT_FALSE(m_batches.IsFilling());
    EXPECT_FALSE(m_batches.HasBatch(m_begin, true));

    m_batches.Add(At("/a"), m_begin);
    m_batches.Add(At("/b"), m_begin + milliseconds(150));
    EXPECT_TRUE(m_batches.IsFilling());
    EXPECT_FALSE(m_batches.HasBatch(m_begin + milliseconds(199), false));
    EXPECT_TRUE(m_batches.HasBatch(m_begin + milliseconds(199), true));
    EXPECT_TRUE(m_batches.HasBatch(m_begin + milliseconds(200), false));

    EXPECT_THAT(PathsOf(m_batches.TakeOldest()), ElementsAre("/a", "/b"));
    EXPECT_FALSE(m_batches.IsFilling());
    EXPECT_FALSE(m_batches.HasBatch(m_begin + milliseconds(200), true));
}

TEST_F(FileBatchesTest, AFullBatchIsDueAtOnceAndTheOldestComesFirst) {
    for (const char* const pszPath : {"/a", "/b", "/c", "/d"}) {
        m_batches.Add(At(pszPath), m_begin);
    }
    EXPECT_TRUE(m_batches.HasBatch(m_begin, false));
    EXPECT_TRUE(m_batches.IsFilling());

    EXPECT_THAT(PathsOf(m_batches.TakeOldest()), ElementsAre("/a", "/b", "/c"));
    EXPECT_FALSE(m_batches.HasBatch(m_begin, false));
    EXPECT_THAT(PathsOf(m_batches.TakeOldest()), ElementsAre("/d"));
}

TEST_F(FileBatchesTest, LongPathsFillABatchProgramsIncluded) {
    m_batches.Add(At(std::string(40, 'p'), std::string(59, 'x')), m_begin);
    EXPECT_FALSE(m_batches.HasBatch(m_begin, false));
    m_batches.Add(At("/"), m_begin);
    EXPECT_TRUE(m_batches.HasBatch(m_begin, false));
    EXPECT_EQ(2u, m_batches.TakeOldest().size());

    m_batches.Add(At(std::string(5000, 'p')), m_begin);
    EXPECT_TRUE(m_batches.HasBatch(m_begin, false));
    EXPECT_EQ(1u, m_batches.TakeOldest().size());
    // The bytes of a batch before are none of the next.
    m_batches.Add(At("/a"), m_begin);
    EXPECT_FALSE(m_batches.HasBatch(m_begin, false));
}

TEST_F(FileBatchesTest, AWriteIsTheFirstOfItsProcessAndFileOncePerBatch) {
    EXPECT_TRUE(m_batches.IsFirstWrite(1, "/a"));
    EXPECT_FALSE(m_batches.IsFirstWrite(1, "/a"));
    EXPECT_TRUE(m_batches.IsFirstWrite(2, "/a"));
    EXPECT_TRUE(m_batches.IsFirstWrite(1, "/b"));

    m_batches.Add(At("/a"), m_begin);
    EXPECT_FALSE(m_batches.IsFirstWrite(1, "/a"));
    (void)m_batches.TakeOldest();
    EXPECT_TRUE(m_batches.IsFirstWrite(1, "/a"));

    for (const char* const pszPath : {"/a", "/b", "/c"}) {
        m_batches.Add(At(pszPath), m_begin);
    }
    EXPECT_TRUE(m_batches.IsFirstWrite(1, "/a"));
    (void)m_batches.TakeOldest();  // a full one: the one that is being filled goes on
    EXPECT_FALSE(m_batches.IsFirstWrite(1, "/a"));
}
