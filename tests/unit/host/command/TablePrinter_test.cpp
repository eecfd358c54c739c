#include "host/command/TablePrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/DbFile.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/TimeZone.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct Printed {
    ExitCode eCode;
    std::vector<std::string> lines;
    std::string strError;
};

// A table of names and a big column, and what the commands print of it.
class TablePrinterRowsTest : public testing::Test {
protected:
    TablePrinterRowsTest() : m_file(m_dir.Database("test.db")) {
        m_file.Execute("create table t(name, big)");
    }
    void Fill(int nRows) {
        m_file.Execute("with recursive c(n) as (select 1 union all select n + 1 from c where n < " +
                       std::to_string(nRows) + ") insert into t select n, 'b' from c");
    }
    Printed List(int64_t nLimit, const std::string& strHeader) const {
        return PrintedOf([&] {
            return table_printer::List(m_table, nLimit, strHeader, "no rows here", ToLine);
        });
    }
    Printed Count(bool bJson) const {
        HostOptions options;
        options.bJson = bJson;
        return PrintedOf([&] { return table_printer::Count(m_table, options); });
    }
    Printed Show(int64_t nName) const {
        return PrintedOf(
            [&] { return table_printer::Show(m_table, "name", nName, "no such row", ToLine); });
    }

    TestDir m_dir;
    DbFile m_file;
    table_printer::Table m_table{m_dir.Database("test.db"), "t", {"name", "big"}};

private:
    static std::string ToLine(const TableRow& row) { return "row " + row.values.at(0).strText; }
    template <class Action>
    static Printed PrintedOf(Action action) {
        Printed printed;
        testing::internal::CaptureStderr();
        printed.lines = PrintedBy([&] { printed.eCode = action(); });
        printed.strError = testing::internal::GetCapturedStderr();
        return printed;
    }
};

}  // namespace

TEST(TablePrinterTest, PadFillsAndNeverCuts) {
    EXPECT_EQ("ab  ", table_printer::Pad("ab", 4));
    EXPECT_EQ("abcde", table_printer::Pad("abcde", 4));
}

TEST(TablePrinterTest, PreviewCutsBetweenCharacters) {
    EXPECT_EQ("", table_printer::Preview("", 4));
    EXPECT_EQ("abcd", table_printer::Preview("abcd", 4));
    EXPECT_EQ("abcd...", table_printer::Preview("abcde", 4));
    EXPECT_EQ("abc\u00E4...", table_printer::Preview("abc\u00E4x", 4));
    EXPECT_EQ("\\xFF\\x0A...", table_printer::Preview("\xFF\nx", 2));
}

TEST(TablePrinterTest, NumbersThatAreNoneShowAsDashAndNull) {
    JsonObject json;
    table_printer::AddNumber(json, "number", std::nullopt);
    table_printer::AddTime(json, "time", std::nullopt);

    EXPECT_EQ("{\"number\":null,\"time\":null}", json.Text());
    EXPECT_EQ("-", table_printer::TimeText(std::nullopt));
    EXPECT_EQ("-", table_printer::LevelWord({std::nullopt, "x"}));
    EXPECT_EQ("-", table_printer::AnalyserWord({std::nullopt, "x"}));
}

TEST(TablePrinterTest, LevelsBeyondAnIntAreShownAsTheyAre) {
    EXPECT_EQ("bad", table_printer::LevelWord({70, "70"}));
    EXPECT_EQ("level -1", table_printer::LevelWord({-1, "-1"}));
    EXPECT_EQ("level 4294967366", table_printer::LevelWord({4294967366, "4294967366"}));
}

TEST(TablePrinterTest, LevelsAndAnalysersAreNamed) {
    EXPECT_EQ("process creations", table_printer::AnalyserWord({5, "5"}));
    EXPECT_EQ("file operations", table_printer::AnalyserWord({6, "6"}));
    EXPECT_EQ("analyser 7", table_printer::AnalyserWord({7, "7"}));
    EXPECT_EQ("analyser -5", table_printer::AnalyserWord({-5, "-5"}));
    EXPECT_EQ("level 2147483648", table_printer::LevelWord({2147483648, "2147483648"}));
    EXPECT_EQ("level -2147483649", table_printer::LevelWord({-2147483649, "-2147483649"}));
    EXPECT_EQ("level 2147483647", table_printer::LevelWord({2147483647, "2147483647"}));
}

TEST(TablePrinterTest, NumbersAndTimesThatThereAreStandInTheJson) {
    const TimeZone zone("UTC0");
    JsonObject json;
    table_printer::AddNumber(json, "number", -3);
    table_printer::AddTime(json, "time", 1);

    EXPECT_EQ(R"({"number":-3,"time":"1970-01-01 00:00:01"})", json.Text());
    EXPECT_EQ("1970-01-01 00:00:01", table_printer::TimeText(1));
}

TEST_F(TablePrinterRowsTest, EveryRowIsALineUnderTheHeader) {
    Fill(1500);

    const Printed printed = List(100000, "NAME");

    EXPECT_EQ(EXIT_CODE_SUCCESS, printed.eCode);
    ASSERT_EQ(1501u, printed.lines.size());
    EXPECT_EQ("NAME", printed.lines[0]);
    EXPECT_EQ("row 1", printed.lines[1]);
    EXPECT_EQ("row 1500", printed.lines[1500]);
    EXPECT_EQ("", printed.strError);
}

TEST_F(TablePrinterRowsTest, NoMoreRowsThanAskedForArePrinted) {
    Fill(1500);

    EXPECT_THAT(List(2, "").lines, ElementsAre("row 1", "row 2"));
    EXPECT_EQ(1200u, List(1200, "").lines.size());
    EXPECT_THAT(List(0, "NAME").lines, IsEmpty());
}

TEST_F(TablePrinterRowsTest, ATableWithoutRowsHasNoHeaderAndSaysThatItIsEmpty) {
    const Printed printed = List(10, "NAME");

    EXPECT_EQ(EXIT_CODE_SUCCESS, printed.eCode);
    EXPECT_THAT(printed.lines, IsEmpty());
    EXPECT_EQ("tevmon-host: no rows here\n", printed.strError);
}

TEST_F(TablePrinterRowsTest, RowsAreCountedAsANumberOrAsJson) {
    Fill(1500);

    EXPECT_THAT(Count(false).lines, ElementsAre("1500"));
    EXPECT_THAT(Count(true).lines, ElementsAre(R"({"count":1500})"));
}

TEST_F(TablePrinterRowsTest, TheFirstRowWithTheValueIsShown) {
    Fill(3);
    m_file.Execute("insert into t values(2, 'second')");

    const Printed printed = Show(2);

    EXPECT_EQ(EXIT_CODE_SUCCESS, printed.eCode);
    EXPECT_THAT(printed.lines, ElementsAre("row 2"));
}

TEST_F(TablePrinterRowsTest, ARowThatIsNotThereIsAnExitCodeOfItsOwn) {
    Fill(3);

    const Printed printed = Show(4);

    EXPECT_EQ(EXIT_CODE_NOT_FOUND, printed.eCode);
    EXPECT_THAT(printed.lines, IsEmpty());
    EXPECT_EQ("tevmon-host: no such row\n", printed.strError);
}

TEST_F(TablePrinterRowsTest, WhereThereIsNoDatabaseEachOfThemSaysSo) {
    m_table.strFile = m_dir.Database("missing.db");

    for (const Printed& printed : {List(10, "NAME"), Count(false), Show(1)}) {
        EXPECT_EQ(EXIT_CODE_DATABASE, printed.eCode);
        EXPECT_THAT(printed.lines, IsEmpty());
        EXPECT_THAT(printed.strError, HasSubstr("missing.db"));
    }
}

TEST_F(TablePrinterRowsTest, ATableWithoutTheColumnsIsAFaultOfTheDatabase) {
    Fill(3);
    m_table.columns = {"name", "missing"};

    for (const Printed& printed : {List(10, "NAME"), Show(1)}) {
        EXPECT_EQ(EXIT_CODE_DATABASE, printed.eCode);
        EXPECT_THAT(printed.lines, IsEmpty());
        EXPECT_THAT(printed.strError, HasSubstr("missing"));
    }
}
