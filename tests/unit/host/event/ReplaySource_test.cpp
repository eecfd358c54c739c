#include "host/event/ReplaySource.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>
#include <utility>
#include <vector>

#include "tests/support/TestDir.h"

using std::chrono::milliseconds;
using std::chrono::minutes;

namespace {

constexpr char EVENT[] = R"({"param":[{"grup":"cloudquery","context":"cloudad"}]})";

class ReplaySourceTest : public testing::Test {
protected:
    SourceRemark Remarks() {
        return [this](uint64_t nNumber, const std::string& strText) {
            m_remarks.emplace_back(nNumber, strText);
        };
    }

    // The lines that became batches.
    std::vector<std::pair<uint64_t, std::string>> ReadAll(const std::string& strContent) {
        ReplaySource source(m_dir.WriteFile("events", strContent), Remarks());
        std::string strError;
        EXPECT_TRUE(source.Start(strError)) << strError;
        std::vector<std::pair<uint64_t, std::string>> batches;
        EventBatch batch;
        while (source.Next(batch, minutes(1)) == SOURCE_BATCH) {
            batches.emplace_back(batch.nNumber, batch.strBody);
        }
        m_counters = source.Counters();
        return batches;
    }

    TestDir m_dir;
    std::vector<std::pair<uint64_t, std::string>> m_remarks;
    SourceCounters m_counters;
};

using Batches = std::vector<std::pair<uint64_t, std::string>>;

}  // namespace

TEST_F(ReplaySourceTest, EveryLineIsAMessageWithItsNumber) {
    const std::string strEvent = EVENT;

    EXPECT_EQ((Batches{{1, strEvent}, {2, strEvent}}), ReadAll(strEvent + "\n" + strEvent + "\n"));

    EXPECT_EQ(2u, m_counters.nBatches);
    EXPECT_EQ(2u, m_counters.nEvents);
    EXPECT_TRUE(m_remarks.empty());
}

TEST_F(ReplaySourceTest, TheLastLineNeedsNoLineFeed) {
    EXPECT_EQ((Batches{{1, EVENT}}), ReadAll(EVENT));
}

TEST_F(ReplaySourceTest, AnEmptyFileHasNoLines) {
    EXPECT_EQ(Batches(), ReadAll(""));
    EXPECT_TRUE(m_remarks.empty());
}

TEST_F(ReplaySourceTest, UnusableLinesAreRemarkedAndCounted) {
    EXPECT_EQ((Batches{{4, EVENT}}), ReadAll("\nnonsense\n[]\n" + std::string(EVENT) + "\n{}"));

    EXPECT_EQ((Batches{{1, "an empty line"},
                       {2, "not a JSON text"},
                       {3, "not a JSON object"},
                       {5, "no array \"param\""}}),
              m_remarks);
    EXPECT_EQ(4u, m_counters.nUnusable);
}

TEST_F(ReplaySourceTest, ALineOfManyReadsIsWhole) {
    const std::string strLong = R"({"param":[{"grup":"cloudquery","context":"cloudad","cmd":")" +
                                std::string(1000000, 'x') + "\"}]}";

    EXPECT_EQ((Batches{{1, strLong}, {2, EVENT}}), ReadAll(strLong + "\n" + EVENT + "\n"));
}

TEST_F(ReplaySourceTest, ALineThatIsTooLongIsPassedOver) {
    const std::string strHuge(ReplaySource::LONGEST_LINE + 1, ' ');

    EXPECT_EQ((Batches{{2, EVENT}}), ReadAll(strHuge + "\n" + EVENT + "\n" + strHuge));

    EXPECT_EQ((Batches{{1, "longer than 16777216 bytes"}, {3, "longer than 16777216 bytes"}}),
              m_remarks);
}

TEST_F(ReplaySourceTest, BytesOfEveryKindAreNoDanger) {
    std::string strAll;
    for (int i = 0; i < 256; ++i) {
        strAll += static_cast<char>(i);
    }

    EXPECT_EQ((Batches{{3, EVENT}}), ReadAll(strAll + "\n" + EVENT + "\n"));

    EXPECT_EQ(2u, m_counters.nUnusable);  // the line feed among them makes two lines
}

TEST_F(ReplaySourceTest, APipeThatIsStillOpenHasNothingYet) {
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    const int nWriter = open(strPipe.c_str(), O_RDWR | O_CLOEXEC);
    ReplaySource source(strPipe, Remarks());
    std::string strError;
    ASSERT_TRUE(source.Start(strError)) << strError;
    EventBatch batch;

    EXPECT_EQ(SOURCE_NOTHING_YET, source.Next(batch, milliseconds(1)));
    const std::string strHalf(EVENT, 10);
    ASSERT_EQ(10, write(nWriter, strHalf.data(), strHalf.size()));
    EXPECT_EQ(SOURCE_NOTHING_YET, source.Next(batch, milliseconds(1)));
    const std::string strRest = std::string(EVENT).substr(10) + "\n";
    ASSERT_EQ(static_cast<ssize_t>(strRest.size()), write(nWriter, strRest.data(), strRest.size()));

    EXPECT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));
    EXPECT_EQ(EVENT, batch.strBody);
    close(nWriter);
}

TEST_F(ReplaySourceTest, StopEndsAWait) {
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    const int nWriter = open(strPipe.c_str(), O_RDWR | O_CLOEXEC);
    ReplaySource source(strPipe, Remarks());
    std::string strError;
    ASSERT_TRUE(source.Start(strError));
    std::thread stopper([&source] { source.Stop(); });
    EventBatch batch;

    EXPECT_EQ(SOURCE_END, source.Next(batch, minutes(10)));

    stopper.join();
    close(nWriter);
}

TEST_F(ReplaySourceTest, AFileThatCannotBeOpenedIsNamedWithTheRemedy) {
    std::string strError;

    EXPECT_FALSE(ReplaySource("/no/such", Remarks()).Start(strError));
    EXPECT_EQ(
        "cannot open /no/such: No such file or directory; name a file of JSON lines, or - "
        "for standard input",
        strError);
    EXPECT_FALSE(ReplaySource(m_dir.Path(), Remarks()).Start(strError));
    EXPECT_EQ(m_dir.Path() + " is a directory; name a file of JSON lines", strError);
}
