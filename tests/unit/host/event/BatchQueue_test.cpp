#include "host/event/BatchQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/event/FileOperation.h"

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

class BatchQueueTest : public testing::Test {
protected:
    void Add(const FileOperation& operation, BatchQueue<FileOperation>::Clock::time_point now) {
        m_batches.Add(operation, operation.strPath.size() + operation.strProgram.size(), now);
    }

    const BatchQueue<FileOperation>::Clock::time_point m_begin{milliseconds(1000)};
    BatchQueue<FileOperation> m_batches{{3, 100, milliseconds(200)}};
};

}  // namespace

TEST_F(BatchQueueTest, ABatchThatIsNotFullIsDueItsTimeAfterItsFirstOperation) {
    EXPECT_FALSE(m_batches.IsFilling());
    EXPECT_FALSE(m_batches.HasBatch(m_begin, true));

    Add(At("/a"), m_begin);
    Add(At("/b"), m_begin + milliseconds(150));
    EXPECT_TRUE(m_batches.IsFilling());
    EXPECT_FALSE(m_batches.HasBatch(m_begin + milliseconds(199), false));
    EXPECT_TRUE(m_batches.HasBatch(m_begin + milliseconds(199), true));
    EXPECT_TRUE(m_batches.HasBatch(m_begin + milliseconds(200), false));

    EXPECT_THAT(PathsOf(m_batches.TakeOldest()), ElementsAre("/a", "/b"));
    EXPECT_FALSE(m_batches.IsFilling());
    EXPECT_FALSE(m_batches.HasBatch(m_begin + milliseconds(200), true));
}

TEST_F(BatchQueueTest, AFullBatchIsDueAtOnceAndTheOldestComesFirst) {
    for (const char* const pszPath : {"/a", "/b", "/c", "/d"}) {
        Add(At(pszPath), m_begin);
    }
    EXPECT_TRUE(m_batches.HasBatch(m_begin, false));
    EXPECT_TRUE(m_batches.IsFilling());

    EXPECT_THAT(PathsOf(m_batches.TakeOldest()), ElementsAre("/a", "/b", "/c"));
    EXPECT_FALSE(m_batches.HasBatch(m_begin, false));
    EXPECT_THAT(PathsOf(m_batches.TakeOldest()), ElementsAre("/d"));
}

TEST_F(BatchQueueTest, LongPathsFillABatchProgramsIncluded) {
    Add(At(std::string(40, 'p'), std::string(59, 'x')), m_begin);
    EXPECT_FALSE(m_batches.HasBatch(m_begin, false));
    Add(At("/"), m_begin);
    EXPECT_TRUE(m_batches.HasBatch(m_begin, false));
    EXPECT_EQ(2u, m_batches.TakeOldest().size());

    Add(At(std::string(5000, 'p')), m_begin);
    EXPECT_TRUE(m_batches.HasBatch(m_begin, false));
    EXPECT_EQ(1u, m_batches.TakeOldest().size());
    // The bytes of a batch before are none of the next.
    Add(At("/a"), m_begin);
    EXPECT_FALSE(m_batches.HasBatch(m_begin, false));
}

TEST_F(BatchQueueTest, EachBatchThatIsFilledHasANumberOfItsOwn) {
    const uint64_t nFirst = m_batches.Number();
    Add(At("/a"), m_begin);
    EXPECT_EQ(nFirst, m_batches.Number());
    (void)m_batches.TakeOldest();
    const uint64_t nSecond = m_batches.Number();
    EXPECT_NE(nFirst, nSecond);

    for (const char* const pszPath : {"/a", "/b", "/c"}) {
        Add(At(pszPath), m_begin);
    }
    const uint64_t nThird = m_batches.Number();
    EXPECT_NE(nSecond, nThird);
    (void)m_batches.TakeOldest();  // a full one: the one that is being filled goes on
    EXPECT_EQ(nThird, m_batches.Number());
}
