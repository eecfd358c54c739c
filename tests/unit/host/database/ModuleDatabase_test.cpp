#include "host/database/ModuleDatabase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>

#include "tests/support/DbFile.h"
#include "tests/support/TestDir.h"

using testing::HasSubstr;

namespace {

unsigned Mode(const std::string& strFile) {
    struct stat status = {};
    return stat(strFile.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

class ModuleDatabaseTest : public testing::Test {
protected:
    bool Prepare() { return ModuleDatabase(m_strFile).Prepare(m_strError); }
    bool TidyUp() { return ModuleDatabase(m_strFile).TidyUp(m_strError); }
    bool Exists(const char* pszEnd) const { return std::filesystem::exists(m_strFile + pszEnd); }
    // 200 rows of 8,000 bytes, of which the first nKept stay.
    void FillAndEmpty(DbFile& db, int nKept = 1) {
        db.Execute(CHANNEL_TABLE);
        db.Execute(
            "with recursive n(i) as (select 1 union all select i + 1 from n where i < 200) "
            "insert into msgchennal(detail) select hex(zeroblob(4000)) from n");
        db.Execute("delete from msgchennal where id > " + std::to_string(nKept));
    }

    // The file's size after a module left it so, and after it was tidied up.
    std::pair<uintmax_t, uintmax_t> SizesWith(int nKept) {
        EXPECT_TRUE(Prepare()) << m_strError;
        {
            DbFile module(m_strFile);
            FillAndEmpty(module, nKept);
        }
        const uintmax_t nBefore = std::filesystem::file_size(m_strFile);
        EXPECT_TRUE(TidyUp()) << m_strError;
        return {nBefore, std::filesystem::file_size(m_strFile)};
    }

    TestDir m_dir;
    const std::string m_strFile = m_dir.Database("tevchennaldb.db");
    std::string m_strError;
};

}  // namespace

TEST_F(ModuleDatabaseTest, AMissingFileIsMadePrivateWhateverTheUmask) {
    const mode_t nOld = umask(0);

    const bool bReady = Prepare();

    umask(nOld);
    ASSERT_TRUE(bReady) << m_strError;
    EXPECT_EQ(0600u, Mode(m_strFile));
}

TEST_F(ModuleDatabaseTest, AReaderInTheMiddleOfAReadDoesNotMakeAWriterBusy) {
    ASSERT_TRUE(Prepare()) << m_strError;
    DbFile writer(m_strFile);
    writer.Execute(CHANNEL_TABLE);
    DbFile reader(m_strFile);
    reader.Execute("begin; select count(*) from msgchennal;");

    EXPECT_EQ(SQLITE_OK, writer.TryExecute("insert into msgchennal(detail) values('a')"));
}

TEST_F(ModuleDatabaseTest, ADatabaseInAnotherModeIsChangedOverWithItsRows) {
    {
        DbFile old(m_strFile);
        old.Execute(CHANNEL_TABLE);
        old.Execute("insert into msgchennal(detail) values('kept')");
    }
    ASSERT_EQ(0, chmod(m_strFile.c_str(), 0644));

    ASSERT_TRUE(Prepare()) << m_strError;

    EXPECT_EQ(0600u, Mode(m_strFile));
    DbFile writer(m_strFile);
    writer.Execute("insert into msgchennal(detail) values('more')");
    EXPECT_TRUE(Exists("-wal"));
    EXPECT_EQ(SQLITE_CONSTRAINT, writer.TryExecute("insert into msgchennal(id) values(1)"));
}

TEST_F(ModuleDatabaseTest, TidyUpGivesSpaceBackAndLeavesOneFile) {
    ASSERT_TRUE(Prepare()) << m_strError;
    {
        DbFile module(m_strFile);
        FillAndEmpty(module);
        EXPECT_TRUE(Exists("-wal"));
    }
    ASSERT_LT(1000000u, std::filesystem::file_size(m_strFile));

    ASSERT_TRUE(TidyUp()) << m_strError;

    EXPECT_GT(40000u, std::filesystem::file_size(m_strFile));
    EXPECT_FALSE(Exists("-wal"));
    EXPECT_FALSE(Exists("-shm"));
    EXPECT_EQ(SQLITE_CONSTRAINT,
              DbFile(m_strFile).TryExecute("insert into msgchennal(id) values(1)"));
}

TEST_F(ModuleDatabaseTest, AReaderDoesNotKeepTidyUpFromEmptyingTheLog) {
    ASSERT_TRUE(Prepare()) << m_strError;
    DbFile other(m_strFile);
    other.Execute(CHANNEL_TABLE);

    EXPECT_FALSE(TidyUp());

    EXPECT_THAT(m_strError, HasSubstr(m_strFile));
    EXPECT_EQ(0u, std::filesystem::file_size(m_strFile + "-wal"));
}

TEST_F(ModuleDatabaseTest, WhatAKilledWriterLeftIsComplete) {
    ASSERT_TRUE(Prepare()) << m_strError;
    DbFile writer(m_strFile);
    writer.Execute(CHANNEL_TABLE);
    writer.Execute("insert into msgchennal(detail) values('kept')");
    const std::string strCopy = m_dir.Database("copy.db");
    std::filesystem::copy_file(m_strFile, strCopy);
    std::filesystem::copy_file(m_strFile + "-wal", strCopy + "-wal");

    ASSERT_TRUE(ModuleDatabase(strCopy).Prepare(m_strError)) << m_strError;

    EXPECT_EQ(SQLITE_CONSTRAINT,
              DbFile(strCopy).TryExecute("insert into msgchennal(id) values(1)"));
}

TEST_F(ModuleDatabaseTest, ADamagedFileIsNamedWithTheRemedy) {
    m_dir.WriteFile("data/db/tevchennaldb.db", "no database, and longer than none at all");
    EXPECT_FALSE(Prepare());
    EXPECT_THAT(m_strError, HasSubstr(m_strFile + ": file is not a database"));
    EXPECT_THAT(m_strError, HasSubstr("move it away"));
}

TEST_F(ModuleDatabaseTest, ATornPageIsFound) {
    {
        DbFile old(m_strFile);
        FillAndEmpty(old);
    }
    std::FILE* const pFile = std::fopen(m_strFile.c_str(), "r+");
    ASSERT_NE(nullptr, pFile);
    std::fseek(pFile, 4096, SEEK_SET);
    std::fputs("this is no page of a table", pFile);
    std::fclose(pFile);

    EXPECT_FALSE(Prepare());

    EXPECT_THAT(m_strError, HasSubstr("damaged"));
}

TEST_F(ModuleDatabaseTest, ALinkOrAFileWithASecondNameIsRefused) {
    m_dir.WriteFile("elsewhere", "");
    std::filesystem::create_symlink(m_dir.Path() + "/elsewhere", m_strFile);
    EXPECT_FALSE(Prepare());

    std::filesystem::remove(m_strFile);
    std::filesystem::create_hard_link(m_dir.Path() + "/elsewhere", m_strFile);
    EXPECT_FALSE(Prepare());
    EXPECT_THAT(m_strError, HasSubstr("move it away"));
}

TEST_F(ModuleDatabaseTest, UsedBytesLeaveOutWhatIsFree) {
    ASSERT_TRUE(Prepare()) << m_strError;
    {
        DbFile module(m_strFile);
        FillAndEmpty(module);
    }

    const uint64_t nUsed = ModuleDatabase(m_strFile).UsedBytes();

    EXPECT_LT(4096u, nUsed);
    EXPECT_GT(60000u, nUsed);
}

TEST_F(ModuleDatabaseTest, WhatIsNoRegularFileIsRefusedAndNeverWaitedFor) {
    const std::string strRefused =
        "the database " + m_strFile +
        " is no regular file of its own that belongs to the user who runs the host; move it away";
    ASSERT_EQ(0, mkfifo(m_strFile.c_str(), 0600));
    EXPECT_FALSE(Prepare());
    EXPECT_EQ(strRefused, m_strError);

    std::filesystem::remove(m_strFile);
    std::filesystem::create_directory(m_strFile);
    EXPECT_FALSE(Prepare());
    EXPECT_EQ("cannot open the database " + m_strFile +
                  ": Is a directory; it must be a regular file of the user who runs the host",
              m_strError);

    std::filesystem::remove(m_strFile);
    std::filesystem::create_symlink("nowhere", m_strFile);
    EXPECT_FALSE(Prepare());
    EXPECT_EQ("cannot open the database " + m_strFile +
                  ": Too many levels of symbolic links; it must be a regular file of the user who "
                  "runs the host",
              m_strError);
    EXPECT_FALSE(std::filesystem::exists(m_dir.Database("nowhere")));
}

TEST_F(ModuleDatabaseTest, AFileThatOthersHaveUnderASecondNameKeepsItsMode) {
    const std::string strOther = m_dir.WriteFile("other", "", 0644);
    std::filesystem::create_hard_link(strOther, m_strFile);

    EXPECT_FALSE(Prepare());

    EXPECT_EQ(0644u, Mode(strOther));
}

TEST_F(ModuleDatabaseTest, AFileOfAnotherUserIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make a file of another user";
    }
    m_dir.WriteFile("data/db/tevchennaldb.db", "");
    if (chown(m_strFile.c_str(), 65533, 65533) != 0) {
        GTEST_SKIP() << "this root may not make a file of another user";
    }

    EXPECT_FALSE(Prepare());

    EXPECT_THAT(m_strError, HasSubstr("belongs to the user who runs the host; move it away"));
}

TEST_F(ModuleDatabaseTest, EveryRightBeyondTheOwnersIsTakenAway) {
    for (const mode_t nMode : {0601, 0640, 04600, 0700}) {
        m_dir.WriteFile("data/db/tevchennaldb.db", "");
        ASSERT_EQ(0, chmod(m_strFile.c_str(), nMode));

        EXPECT_TRUE(Prepare()) << m_strError;

        EXPECT_EQ(0600u, Mode(m_strFile)) << nMode;
    }
}

TEST_F(ModuleDatabaseTest, LittleFreeSpaceIsNotWorthTheWriting) {
    const auto [nBefore, nAfter] = SizesWith(160);  // a fifth is free

    EXPECT_EQ(nBefore, nAfter);
    EXPECT_FALSE(Exists("-wal"));
}

TEST_F(ModuleDatabaseTest, AQuarterOfFreeSpaceIsGivenBack) {
    const auto [nBefore, nAfter] = SizesWith(140);  // three tenths are free

    EXPECT_GT(nBefore * 3 / 4, nAfter);
}

TEST_F(ModuleDatabaseTest, OfASmallFileNothingIsGivenBackHoweverEmptyItIs) {
    ASSERT_TRUE(Prepare()) << m_strError;
    {
        DbFile module(m_strFile);
        module.Execute(CHANNEL_TABLE);
        module.Execute("insert into msgchennal(detail) values(hex(zeroblob(28000)))");
        module.Execute("delete from msgchennal");
    }
    const auto nBefore = std::filesystem::file_size(m_strFile);
    ASSERT_LT(50000u, nBefore);

    ASSERT_TRUE(TidyUp()) << m_strError;

    EXPECT_EQ(nBefore, std::filesystem::file_size(m_strFile));
}

TEST_F(ModuleDatabaseTest, TidyingUpWhatIsNotThereMakesNothing) {
    EXPECT_FALSE(TidyUp());

    EXPECT_EQ("cannot open the database " + m_strFile +
                  ": unable to open database file; look at its rights and its disk, or choose "
                  "another --state-dir",
              m_strError);
    EXPECT_FALSE(Exists(""));
    EXPECT_EQ(0u, ModuleDatabase(m_strFile).UsedBytes());
    EXPECT_FALSE(Exists(""));
}

TEST_F(ModuleDatabaseTest, ADatabaseThatAnotherProgramKeepsBusyIsNamedWithTheRemedy) {
    ASSERT_TRUE(Prepare()) << m_strError;
    DbFile other(m_strFile);
    other.Execute("pragma locking_mode = exclusive");
    other.Execute(CHANNEL_TABLE);

    EXPECT_FALSE(TidyUp());

    EXPECT_EQ("cannot put the write-ahead log into " + m_strFile +
                  ": database is locked; another program has it open, end that one",
              m_strError);
}

TEST_F(ModuleDatabaseTest, OfADamagedFileNothingIsCounted) {
    m_dir.WriteFile("data/db/tevchennaldb.db", "no database, and longer than none at all");

    EXPECT_EQ(0u, ModuleDatabase(m_strFile).UsedBytes());
    EXPECT_FALSE(TidyUp());
    EXPECT_EQ("cannot put the write-ahead log into " + m_strFile +
                  ": file is not a database; it is damaged: move it away, the module makes a new "
                  "one",
              m_strError);
}

TEST_F(ModuleDatabaseTest, AMadeFileHoldsNothingAndATableAPageOfItsOwn) {
    ASSERT_TRUE(Prepare()) << m_strError;
    EXPECT_EQ(0u, DbFile(m_strFile).TryExecute("select 1"));
    const uint64_t nEmpty = ModuleDatabase(m_strFile).UsedBytes();

    DbFile(m_strFile).Execute("create table t(a)");

    EXPECT_EQ(nEmpty + 4096, ModuleDatabase(m_strFile).UsedBytes());
}
