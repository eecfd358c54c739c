#include "host/verdict/HashListSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "tests/support/TestDir.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

const std::string MD5_A = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
const std::string MD5_B = "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb";
const std::string SHA1_A = "1111111111111111111111111111111111111111";
const std::string SHA1_B = "2222222222222222222222222222222222222222";
const std::string SHA256_A = "3333333333333333333333333333333333333333333333333333333333333333";

class HashListSourceTest : public testing::Test {
protected:
    std::unique_ptr<HashListSource> Load(const std::string& strContent, int nLevel = 70) {
        return HashListSource::Load(m_dir.WriteFile("bad.txt", strContent), nLevel, m_strError);
    }

    TestDir m_dir;
    std::string m_strError;
};

}  // namespace

TEST_F(HashListSourceTest, EitherDigestDecides) {
    const auto pSource = Load(SHA1_A + "  by sha1\n" + MD5_B + "  by md5\n");
    ASSERT_NE(nullptr, pSource) << m_strError;

    const auto bySha1 = pSource->Lookup({SHA1_A, MD5_A});
    const auto byMd5 = pSource->Lookup({SHA1_B, MD5_B});
    const auto byNone = pSource->Lookup({SHA1_B, MD5_A});

    ASSERT_TRUE(bySha1.has_value());
    EXPECT_EQ(70, bySha1->nLevel);
    EXPECT_EQ("bad list bad.txt", bySha1->strSource);
    EXPECT_EQ("by sha1", bySha1->strOwner);
    ASSERT_TRUE(byMd5.has_value());
    EXPECT_EQ("by md5", byMd5->strOwner);
    EXPECT_FALSE(byNone.has_value());
    EXPECT_EQ(2u, pSource->Count());
}

TEST_F(HashListSourceTest, TheSha1EntryIsNamedWhenBothMatch) {
    const auto pSource = Load(MD5_A + "  by md5\n" + SHA1_A + "  by sha1\n");
    ASSERT_NE(nullptr, pSource);

    const auto verdict = pSource->Lookup({SHA1_A, MD5_A});

    ASSERT_TRUE(verdict.has_value());
    EXPECT_EQ("by sha1", verdict->strOwner);
}

TEST_F(HashListSourceTest, AGoodListGivesItsLevelAndSaysSo) {
    const auto pSource = Load(SHA1_A + "  tool\n", 20);
    ASSERT_NE(nullptr, pSource);

    const auto verdict = pSource->Lookup({SHA1_A, MD5_A});

    ASSERT_TRUE(verdict.has_value());
    EXPECT_EQ(20, verdict->nLevel);
    EXPECT_EQ("good list bad.txt", verdict->strSource);
}

TEST_F(HashListSourceTest, FormatsMayBeMixedInOneFile) {
    const auto pSource =
        Load("# made by hand\r\n\r\n" + SHA1_A + " *one\r\n" + MD5_A +
             ":5:Two\r\nSHA1 (three) = " + SHA1_B + "\r\n\\" + MD5_B + "  fo\\\\ur");
    ASSERT_NE(nullptr, pSource) << m_strError;

    EXPECT_EQ(4u, pSource->Count());
    EXPECT_EQ("fo\\ur", pSource->Lookup({SHA256_A, MD5_B})->strOwner);
    EXPECT_EQ("", pSource->Note());
}

TEST_F(HashListSourceTest, AByteOrderMarkBeforeTheFirstLineIsNoFault) {
    const auto pSource = Load("\xEF\xBB\xBF" + SHA1_A + "  one\n");
    ASSERT_NE(nullptr, pSource) << m_strError;

    EXPECT_EQ(1u, pSource->Count());
}

TEST_F(HashListSourceTest, UpperCaseDigestsMatch) {
    const auto pSource = Load("AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA  upper\n");
    ASSERT_NE(nullptr, pSource) << m_strError;

    EXPECT_TRUE(pSource->Lookup({SHA1_B, MD5_A}).has_value());
}

TEST_F(HashListSourceTest, TheFirstEntryOfADigestNamesIt) {
    const auto pSource = Load(SHA1_A + "  first\n" + SHA1_A + "  second\n");
    ASSERT_NE(nullptr, pSource);

    EXPECT_EQ("first", pSource->Lookup({SHA1_A, MD5_A})->strOwner);
    EXPECT_EQ(1u, pSource->Count());
}

TEST_F(HashListSourceTest, TheSizeOfASignatureIsNotCompared) {
    const auto pSource = Load(MD5_A + ":1:Any.Size-1\n");
    ASSERT_NE(nullptr, pSource);

    EXPECT_EQ("Any.Size-1", pSource->Lookup({SHA1_B, MD5_A})->strOwner);
}

TEST_F(HashListSourceTest, Sha256LinesAreCountedAndSaid) {
    const auto pSource =
        Load(SHA256_A + ":1:Long-1\n" + SHA1_A + ":1:Short-1\n" + SHA256_A + ":2:Long-2\n");
    ASSERT_NE(nullptr, pSource) << m_strError;

    EXPECT_EQ(1u, pSource->Count());
    EXPECT_EQ(2u, pSource->UnusableCount());
    EXPECT_THAT(pSource->Note(), HasSubstr("bad.txt: 2 SHA-256 digests cannot be used"));
    EXPECT_THAT(Load(SHA256_A + ":1:Long-1\n")->Note(),
                HasSubstr("bad.txt: 1 SHA-256 digest cannot be used"));
}

TEST_F(HashListSourceTest, AnEmptyListIsLoadedAndSaid) {
    const auto pSource = Load("# nothing yet\n");
    ASSERT_NE(nullptr, pSource) << m_strError;

    EXPECT_FALSE(pSource->Lookup({SHA1_A, MD5_A}).has_value());
    EXPECT_THAT(pSource->Note(), HasSubstr("bad.txt: the list holds no digest"));
}

TEST_F(HashListSourceTest, OneBadLineRefusesTheFileAndIsNamed) {
    const auto pSource = Load(SHA1_A + "  good\n# comment\nnonsense\n" + SHA1_B + "  good\n");

    EXPECT_EQ(nullptr, pSource);
    EXPECT_THAT(m_strError, StartsWith(m_dir.Path() + "/bad.txt:3: this is no line of"));
    EXPECT_THAT(m_strError, HasSubstr("; correct it, or begin it with #"));
    EXPECT_THAT(m_strError, HasSubstr("(\"nonsense\")"));
}

TEST_F(HashListSourceTest, ABadLineCannotSteerTheTerminal) {
    const auto pSource = Load("\033]0;title\007" + std::string(200, 'x') + "\n");

    EXPECT_EQ(nullptr, pSource);
    EXPECT_THAT(m_strError, Not(HasSubstr("\033")));
    EXPECT_THAT(m_strError, Not(HasSubstr("\007")));
    EXPECT_LT(m_strError.size(), m_dir.Path().size() + 250);
}

TEST_F(HashListSourceTest, ABinaryFileIsRefusedAtItsFirstLine) {
    const auto pSource =
        Load(std::string("\x7F"
                         "ELF\x02\x01\x01\0\0\0\n\n\n",
                         13));

    EXPECT_EQ(nullptr, pSource);
    EXPECT_THAT(m_strError, HasSubstr("bad.txt:1: it holds a NUL byte"));
}

TEST_F(HashListSourceTest, AVeryLongLineIsRefusedByItsNumber) {
    const auto pSource = Load(SHA1_A + "  good\n" + SHA1_B + "  " + std::string(1 << 20, 'n'));

    EXPECT_EQ(nullptr, pSource);
    EXPECT_THAT(m_strError, HasSubstr("bad.txt:2: the line is longer than 64.0 KiB; "));
}

TEST_F(HashListSourceTest, AMissingFileAndADirectoryAreNamedWithTheRemedy) {
    EXPECT_EQ(nullptr, HashListSource::Load(m_dir.Path() + "/none", 70, m_strError));
    EXPECT_EQ("cannot read the list " + m_dir.Path() +
                  "/none: No such file or directory; give the path of a text file that this user "
                  "may read",
              m_strError);

    EXPECT_EQ(nullptr, HashListSource::Load(m_dir.Path(), 70, m_strError));
    EXPECT_THAT(m_strError, HasSubstr("it is a directory"));
}

TEST_F(HashListSourceTest, AListMayComeThroughAPipe) {
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    std::thread writer([&strPipe] { std::ofstream(strPipe) << SHA1_A << "  piped\n"; });

    const auto pSource = HashListSource::Load(strPipe, 70, m_strError);
    writer.join();

    ASSERT_NE(nullptr, pSource) << m_strError;
    EXPECT_EQ(1u, pSource->Count());
}

TEST_F(HashListSourceTest, AHundredThousandSignaturesAreAllFound) {
    std::string strContent;
    char szLine[80];
    for (unsigned i = 0; i < 100000; ++i) {
        snprintf(szLine, sizeof(szLine), "%032x:%u:Name-%u\n", i * 2654435761u, i, i);
        strContent += szLine;
    }

    const auto pSource = Load(strContent);

    ASSERT_NE(nullptr, pSource) << m_strError;
    EXPECT_EQ(100000u, pSource->Count());
    EXPECT_EQ("Name-1", pSource->Lookup({SHA1_A, "0000000000000000000000009e3779b1"})->strOwner);
}
