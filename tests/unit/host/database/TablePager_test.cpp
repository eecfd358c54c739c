#include "host/database/TablePager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/DbFile.h"
#include "tests/support/TestDir.h"

using testing::HasSubstr;

namespace {

constexpr int64_t ALL = INT64_MAX;

class TablePagerTest : public testing::Test {
protected:
    TablePagerTest() : m_file(m_dir.Database("test.db")) {
        m_file.Execute("create table t(name, big)");
    }

    void Fill(int nRows) {
        m_file.Execute("with recursive c(n) as (select 1 union all select n + 1 from c where n < " +
                       std::to_string(nRows) + ") insert into t select n, 'b' from c");
    }
    TablePager Reader() {
        if (!m_db.Open(m_dir.Database("test.db"), "t")) {
            ADD_FAILURE() << m_db.Error();
        }
        return TablePager(m_db, "t", {"name", "big"});
    }

    TestDir m_dir;
    DbFile m_file;
    ReadOnlyDb m_db;
};

}  // namespace

TEST_F(TablePagerTest, PagesGiveEveryRowOnceInOrder) {
    Fill(1003);
    TablePager reader = Reader();

    std::vector<std::string> names;
    std::vector<TableRow> rows;
    while (reader.NextPage(rows, ALL) && !rows.empty()) {
        for (const TableRow& row : rows) {
            names.push_back(row.values.at(0).strText);
        }
    }

    ASSERT_EQ(1003u, names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        ASSERT_EQ(std::to_string(i + 1), names[i]);
    }
    EXPECT_TRUE(reader.NextPage(rows, ALL));
    EXPECT_TRUE(rows.empty());
}

TEST_F(TablePagerTest, APageHoldsAFewRowsOrBytesOnly) {
    Fill(1000);
    m_file.Execute("update t set big = zeroblob(40000) where rowid > 100");
    TablePager reader = Reader();

    std::vector<size_t> sizes;
    std::vector<TableRow> rows;
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(reader.NextPage(rows, ALL));
        sizes.push_back(rows.size());
    }

    EXPECT_EQ((std::vector<size_t>{50, 50, 2, 2}), sizes);
}

TEST_F(TablePagerTest, RowsThatGoAndComeBetweenPagesAreNoHindrance) {
    Fill(200);
    TablePager reader = Reader();
    std::vector<TableRow> rows;
    ASSERT_TRUE(reader.NextPage(rows, ALL));

    EXPECT_EQ(SQLITE_OK, m_file.TryExecute("begin exclusive; delete from t where rowid <= 60; "
                                           "insert into t values('new', 'b'); commit"));

    ASSERT_TRUE(reader.NextPage(rows, ALL));
    EXPECT_EQ("61", rows.front().values.at(0).strText);
}

TEST_F(TablePagerTest, NoMoreRowsThanAskedForAreRead) {
    Fill(100);
    TablePager reader = Reader();
    std::vector<TableRow> rows;

    ASSERT_TRUE(reader.NextPage(rows, 3));
    EXPECT_EQ(3u, rows.size());
    ASSERT_TRUE(reader.NextPage(rows, 0));
    EXPECT_TRUE(rows.empty());
}

TEST_F(TablePagerTest, RowsAtTheEndsOfTheRangeAreRead) {
    m_file.Execute(
        "insert into t(rowid, name) values(-9223372036854775808, 'first'), (-1, 'minus'), "
        "(9223372036854775807, 'last')");
    TablePager reader = Reader();
    std::vector<TableRow> rows;

    ASSERT_TRUE(reader.NextPage(rows, ALL));
    ASSERT_EQ(3u, rows.size());
    EXPECT_EQ("first", rows[0].values.at(0).strText);
    EXPECT_EQ("last", rows[2].values.at(0).strText);
    ASSERT_TRUE(reader.NextPage(rows, ALL));
    EXPECT_TRUE(rows.empty());

    int64_t nCount = 0;
    ASSERT_TRUE(Reader().Count(nCount));
    EXPECT_EQ(3, nCount);
}

TEST_F(TablePagerTest, ATooBigValueIsMarkedAndTheRowsAroundItAreRead) {
    m_file.Execute(
        "insert into t values('before', 'b'), ('huge', zeroblob(67108865)), "
        "('after', 'b')");
    TablePager reader = Reader();

    std::vector<std::string> seen;
    std::vector<TableRow> rows;
    while (reader.NextPage(rows, ALL) && !rows.empty()) {
        for (const TableRow& row : rows) {
            seen.push_back(row.values.at(0).strText + (row.bTooBig ? "!" : ""));
        }
    }

    EXPECT_EQ((std::vector<std::string>{"before", "huge!", "after"}), seen);
}

TEST_F(TablePagerTest, AHugeValueInAnotherColumnIsAnErrorAndNoEndlessWalk) {
    m_file.Execute("insert into t values(zeroblob(67108865), 'b')");
    TablePager reader = Reader();
    std::vector<TableRow> rows;

    EXPECT_FALSE(reader.NextPage(rows, ALL));
    EXPECT_THAT(m_db.Error(), HasSubstr("holds a value of more than 64.0 MiB"));
}

TEST_F(TablePagerTest, FindGivesTheFirstRowOrNothing) {
    Fill(10);
    m_file.Execute("insert into t values('huge', zeroblob(67108865))");
    TablePager reader = Reader();
    std::optional<TableRow> row;

    ASSERT_TRUE(reader.Find("name", int64_t{7}, row));
    ASSERT_TRUE(row.has_value());
    EXPECT_EQ("7", row->values.at(0).strText);
    EXPECT_EQ("b", row->values.at(1).strText);

    ASSERT_TRUE(reader.Find("name", std::string("huge"), row));
    ASSERT_TRUE(row.has_value());
    EXPECT_TRUE(row->bTooBig);

    ASSERT_TRUE(reader.Find("name", std::string("none"), row));
    EXPECT_FALSE(row.has_value());
}

TEST_F(TablePagerTest, CountsInPiecesWhatOneCountWould) {
    for (const int nRows : {0, 1, 199, 200, 201, 1000}) {
        m_file.Execute("delete from t");
        if (nRows > 0) {
            Fill(nRows);
        }
        int64_t nCount = -1;
        EXPECT_TRUE(Reader().Count(nCount));
        EXPECT_EQ(nRows, nCount);
    }
}

TEST_F(TablePagerTest, ATableWithoutRowNumbersHasAnotherShape) {
    m_file.Execute("drop table t; create table t(name primary key, big) without rowid");
    TablePager reader = Reader();
    std::vector<TableRow> rows;

    EXPECT_FALSE(reader.NextPage(rows, ALL));
    EXPECT_THAT(m_db.Error(), HasSubstr("in another shape (no such column: rowid)"));
    int64_t nCount = 0;
    EXPECT_FALSE(Reader().Count(nCount));
}

TEST_F(TablePagerTest, RowsThatLeadBackwardsAreDamageAndEndTheWalk) {
    // Two leaf pages of a tree change places, so the walk comes from high row ids to low ones.
    Fill(500);
    m_file.Execute("update t set big = zeroblob(100)");
    m_file.Execute("pragma writable_schema = on");
    m_file.Close();
    FILE* pFile = fopen(m_dir.Database("test.db").c_str(), "r+b");
    ASSERT_NE(nullptr, pFile);
    // Page 2 is the table's root, an interior page; its cells name the leaves in order.
    unsigned char page[4096];
    ASSERT_EQ(0, fseek(pFile, 4096, SEEK_SET));
    ASSERT_EQ(1u, fread(page, sizeof(page), 1, pFile));
    ASSERT_EQ(5, page[0]);
    const int nFirst = page[12] * 256 + page[13];
    const int nSecond = page[14] * 256 + page[15];
    for (int i = 0; i < 4; ++i) {
        std::swap(page[nFirst + i], page[nSecond + i]);
    }
    ASSERT_EQ(0, fseek(pFile, 4096, SEEK_SET));
    ASSERT_EQ(1u, fwrite(page, sizeof(page), 1, pFile));
    ASSERT_EQ(0, fclose(pFile));

    TablePager reader = Reader();
    std::vector<TableRow> rows;
    bool bGoodPage = true;
    size_t nRows = 0;
    while ((bGoodPage = reader.NextPage(rows, ALL)) && !rows.empty() && nRows <= 500) {
        nRows += rows.size();
    }

    EXPECT_LE(nRows, 500u);
    EXPECT_FALSE(bGoodPage);
    EXPECT_THAT(m_db.Error(), HasSubstr("is damaged ("));
}
