#include "host/module/ModuleLog.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "framework/log/CLog.h"

namespace {

class ModuleLogTest : public testing::Test, public IModuleLogObserver {
protected:
    void OnModuleNote(const ModuleRecord& note) override {
        m_notes.emplace_back(note.eNote, note.strText, note.eExpected, note.strOperation,
                             note.bNamesProgram);
    }
    void OnModuleLine(const ModuleLine& line) override {
        m_lines.emplace_back(line.nLevel, line.strText, line.strFunction);
    }

    static void Log(int nLevel, const char* pszFormat, ...) __attribute__((format(printf, 2, 3))) {
        va_list args;
        va_start(args, pszFormat);
        LogFrom("Run", nLevel, pszFormat, args);
        va_end(args);
    }
    static void LogModify(const char* pszFormat, ...) __attribute__((format(printf, 1, 2))) {
        va_list args;
        va_start(args, pszFormat);
        LogFrom("FileModifyHandler", 4, pszFormat, args);
        va_end(args);
    }
    static void LogFrom(const char* pszFunction, int nLevel, const char* pszFormat, va_list args)
        __attribute__((format(printf, 3, 0))) {
        if (CLogDebug::Instance()->CheckLogLevel(nLevel, 1)) {
            CLogDebug::Instance()->LogPrintV(nLevel, "tevmon/core/CTevPsMonitor", pszFunction, 1,
                                             pszFormat, args);
        }
    }

    using Notes = std::vector<std::tuple<ModuleNote, std::string, ExpectedKind, std::string, bool>>;
    using Lines = std::vector<std::tuple<int, std::string, std::string>>;
    Notes m_notes;
    Lines m_lines;
};

}  // namespace

TEST_F(ModuleLogTest, RecordsAreKnownByTheirFormat) {
    const ModuleLog log(*this, 9);

    Log(2, "handler===> %s\n", "{}");
    Log(1, "[CTevPsMonitor] %s in cacho, skip [lanuch]", "/a");
    Log(4, "[CTevPsMonitor] stat faid [%s]", "/b");
    Log(4, "[CTevPsMonitor] calc md5 faid! [%s][lanuch]", "/c");
    Log(1, "[CTevFsMonitor] %s in cacho, skip [%s]", "/d", "create");
    Log(4, "[CTevFsMonitor] stat faid [%s]", "/e");
    Log(4, "[CTevFsMonitor] calc exepath md5 faid! [%s][%s]", "/f", "write");
    Log(4, "[CTevFsMonitor] calc md5 faid! [%s]", "/g");
    Log(1, "[AddAutoRunsHandler] %s in cacho, skip [%s]", "/h", "create");
    Log(4, "[AddAutoRunsHandler] calc md5 faid! [%s]", "/i");
    Log(4, "[CTevCloudInterface] : ipc fail.\n");
    Log(4, "something else about %s", "/j");

    EXPECT_EQ((Notes{{NOTE_ANALYSED, "{}", EXPECTED_NONE, "", false},
                     {NOTE_CACHED, "/a", EXPECTED_LAUNCH, "", false},
                     {NOTE_STAT_FAILED, "/b", EXPECTED_LAUNCH, "", false},
                     {NOTE_UNREADABLE, "/c", EXPECTED_LAUNCH, "", false},
                     {NOTE_CACHED, "/d", EXPECTED_FILE, "create", false},
                     {NOTE_STAT_FAILED, "/e", EXPECTED_PIPE, "", false},
                     {NOTE_UNREADABLE, "/f", EXPECTED_FILE, "write", true},
                     {NOTE_UNREADABLE, "/g", EXPECTED_PIPE, "", false},
                     {NOTE_CACHED, "/h", EXPECTED_UNIT, "", false},
                     {NOTE_UNREADABLE, "/i", EXPECTED_UNIT, "", true},
                     {NOTE_NOT_SENT, "", EXPECTED_NONE, "", false}}),
              m_notes);
}

TEST_F(ModuleLogTest, AWrittenFileThatIsGoneIsDistinguishedFromAPipeByTheFunction) {
    const ModuleLog log(*this, 9);

    LogModify("[CTevFsMonitor] stat faid [%s]", "/e");

    EXPECT_EQ((Notes{{NOTE_STAT_FAILED, "/e", EXPECTED_FILE, "write", false}}), m_notes);
}

TEST_F(ModuleLogTest, ARecordThatOnlyReadsLikeOneIsNotTaken) {
    const ModuleLog log(*this, 9);

    Log(2, "rvce <<< %s\n", "[CTevPsMonitor] %s in cacho, skip [lanuch]");

    EXPECT_TRUE(m_notes.empty());
}

TEST_F(ModuleLogTest, RecordsOfTheLevelAreLinesAsTheModuleWroteThem) {
    const ModuleLog log(*this, 4);

    Log(4, "[CTevPsMonitor] stat faid [%s]\n", "/a\nforged\033[2J");
    Log(2, "traffic %d\n", 1);

    EXPECT_EQ((Lines{{4, "[CTevPsMonitor] stat faid [/a\nforged\033[2J]", "Run"}}), m_lines);
}

TEST_F(ModuleLogTest, TheLogIsGivenBack) {
    auto pLog = std::make_unique<ModuleLog>(*this, 4);
    EXPECT_TRUE(CLogDebug::Instance()->CheckLogLevel(1, 1));

    pLog.reset();

    EXPECT_FALSE(CLogDebug::Instance()->CheckLogLevel(1, 1));
    testing::internal::CaptureStderr();
    Log(4, "[CTevPsMonitor] stat faid [%s]", "/a");
    EXPECT_NE("", testing::internal::GetCapturedStderr());
    EXPECT_TRUE(m_notes.empty());
}
