#include "host/base/LineReader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/TestDir.h"

namespace {

class LineReaderTest : public testing::Test {
protected:
    // The lines of a file with that content and how reading it ended.
    std::vector<std::string> ReadAll(const std::string& strContent) {
        LineReader reader;
        std::vector<std::string> lines;
        if (!reader.Open(m_dir.WriteFile("text", strContent), true)) {
            ADD_FAILURE() << reader.Error();
            return lines;
        }
        std::string_view strLine;
        while ((m_eEnd = reader.Next(strLine)) == LineReader::RESULT_LINE) {
            lines.emplace_back(strLine);
        }
        return lines;
    }

    TestDir m_dir;
    LineReader::Result m_eEnd = LineReader::RESULT_FAILED;
};

}  // namespace

TEST_F(LineReaderTest, GivesEachLineWithoutItsLineFeed) {
    EXPECT_EQ((std::vector<std::string>{"a", "", "b\r", "last"}), ReadAll("a\n\nb\r\nlast"));
    EXPECT_EQ(LineReader::RESULT_END, m_eEnd);
}

TEST_F(LineReaderTest, AnEmptyFileHasNoLine) {
    EXPECT_TRUE(ReadAll("").empty());
    EXPECT_EQ(LineReader::RESULT_END, m_eEnd);
}

TEST_F(LineReaderTest, AFinalLineFeedBeginsNoFurtherLine) {
    EXPECT_EQ((std::vector<std::string>{"a"}), ReadAll("a\n"));
}

TEST_F(LineReaderTest, NulBytesAreContent) {
    EXPECT_EQ((std::vector<std::string>{std::string("a\0b", 3)}),
              ReadAll(std::string("a\0b\n", 4)));
}

TEST_F(LineReaderTest, LinesAcrossBufferBordersComeWhole) {
    std::string strContent;
    for (int i = 0; i < 5000; ++i) {
        strContent += std::string(97, static_cast<char>('a' + i % 26)) + "\n";
    }

    const std::vector<std::string> lines = ReadAll(strContent);

    ASSERT_EQ(5000u, lines.size());
    EXPECT_EQ(std::string(97, 'a'), lines[0]);
    EXPECT_EQ(std::string(97, 'h'), lines[4999]);
}

TEST_F(LineReaderTest, TheLongestLineIsReadAndOneByteMoreEndsReading) {
    EXPECT_EQ(1u, ReadAll(std::string(65536, 'x') + "\n").size());
    EXPECT_EQ(LineReader::RESULT_END, m_eEnd);

    EXPECT_EQ(1u, ReadAll("ok\n" + std::string(65537, 'x') + "\n").size());
    EXPECT_EQ(LineReader::RESULT_TOO_LONG, m_eEnd);

    EXPECT_TRUE(ReadAll(std::string(65537, 'x')).empty());
    EXPECT_EQ(LineReader::RESULT_TOO_LONG, m_eEnd);

    EXPECT_TRUE(ReadAll(std::string(1 << 20, 'x')).empty());
    EXPECT_EQ(LineReader::RESULT_TOO_LONG, m_eEnd);
}

TEST_F(LineReaderTest, SaysWhyAFileCannotBeOpened) {
    LineReader missing;
    EXPECT_FALSE(missing.Open(m_dir.Path() + "/missing", false));
    EXPECT_EQ("No such file or directory", missing.Error());

    LineReader directory;
    EXPECT_FALSE(directory.Open(m_dir.Path(), false));
    EXPECT_EQ("it is a directory", directory.Error());
}

TEST_F(LineReaderTest, APipeIsRefusedWithoutWaitingForItsOtherEnd) {
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));

    LineReader reader;
    const bool bOpened = reader.Open(strPipe, true);

    EXPECT_FALSE(bOpened);
    EXPECT_EQ("it is not a regular file", reader.Error());
}

TEST_F(LineReaderTest, WhatFollowsALineThatIsTooLongCanBeRead) {
    for (const size_t nLength : {size_t{11}, size_t{1} << 20}) {
        LineReader reader(10);
        ASSERT_TRUE(reader.Open(
            m_dir.WriteFile("text", "before\n" + std::string(nLength, 'x') + "\nafter"), true));
        std::string_view strLine;
        EXPECT_EQ(LineReader::RESULT_LINE, reader.Next(strLine));
        EXPECT_EQ(LineReader::RESULT_TOO_LONG, reader.Next(strLine));
        EXPECT_EQ(LineReader::RESULT_LINE, reader.Next(strLine));
        EXPECT_EQ("after", strLine);
        EXPECT_EQ(LineReader::RESULT_END, reader.Next(strLine));
    }
}

namespace {

// Lines from a pipe that does not block.
class LineReaderPipeTest : public testing::Test {
protected:
    void SetUp() override {
        int fds[2] = {};
        ASSERT_EQ(0, pipe2(fds, O_NONBLOCK | O_CLOEXEC));
        m_reader.Use(UniqueFd(fds[0]));
        m_write.Reset(fds[1]);
    }
    void Write(const std::string& strText) {
        ASSERT_EQ(static_cast<ssize_t>(strText.size()),
                  write(m_write.Get(), strText.data(), strText.size()));
        ASSERT_TRUE(m_reader.Read());
    }
    // The next line that was read; its kind in brackets when there is none.
    std::string Take() {
        static const char* const KINDS[] = {"", "[end]", "[too long]", "[failed]"};
        std::string_view strLine;
        const std::optional<LineReader::Result> result = m_reader.Take(strLine);
        if (!result) {
            return "[not yet]";
        }
        return *result == LineReader::RESULT_LINE ? std::string(strLine) : KINDS[*result];
    }

    LineReader m_reader{20};
    UniqueFd m_write;
};

}  // namespace

TEST_F(LineReaderPipeTest, ALineIsTakenOnceItsLineFeedIsThere) {
    EXPECT_EQ("[not yet]", Take());
    Write("first\nsec");
    EXPECT_EQ("first", Take());
    EXPECT_EQ("[not yet]", Take());
    EXPECT_TRUE(m_reader.Read());  // nothing waits: no effect
    EXPECT_EQ("[not yet]", Take());
    Write("ond\n");
    EXPECT_EQ("second", Take());
    Write("last");
    m_write.Reset();
    EXPECT_EQ("[not yet]", Take());
    EXPECT_TRUE(m_reader.Read());
    EXPECT_EQ("last", Take());
    EXPECT_EQ("[end]", Take());
}

TEST_F(LineReaderPipeTest, ALineThatIsTooLongIsNamedOnceAtItsFirstByteTooMany) {
    Write(std::string(20, 'x'));
    EXPECT_EQ("[not yet]", Take());
    Write("x");
    EXPECT_EQ("[too long]", Take());
    EXPECT_EQ("[not yet]", Take());
    Write(std::string(100, 'y'));
    EXPECT_EQ("[not yet]", Take());
    Write("z\n" + std::string(20, 'a') + "\n");
    EXPECT_EQ(std::string(20, 'a'), Take());
    Write(std::string(21, 'b'));
    m_write.Reset();
    EXPECT_TRUE(m_reader.Read());
    EXPECT_EQ("[too long]", Take());
    EXPECT_EQ("[end]", Take());
}

TEST_F(LineReaderPipeTest, AReadThatFailsSaysWhy) {
    m_reader.Use(UniqueFd(open("/", O_RDONLY | O_CLOEXEC)));
    EXPECT_FALSE(m_reader.Read());
    EXPECT_EQ("Is a directory", m_reader.Error());
}
