#include "host/account/ProgramJudge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/account/RunJournal.h"
#include "host/event/EventMessage.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/RunHappenings.h"

using testing::ElementsAre;

namespace {

// Each judgement in a line: all that it says.
class JudgementListener : public IRunListener {
public:
    void OnEvent(const RunEvent& event, int64_t /*tmWhen*/) override {
        if (const auto* pJudged = std::get_if<ProgramJudged>(&event)) {
            heard.push_back(pJudged->strWhat + " | " + pJudged->strSubject + " | " +
                            pJudged->strProgram + " | " + pJudged->strBy + " | " +
                            std::to_string(pJudged->verdict.nLevel) + " " +
                            pJudged->verdict.strOwner + (pJudged->bCached ? " cached" : ""));
        }
    }
    std::vector<std::string> heard;
};

class ProgramJudgeTest : public testing::Test {
protected:
    ProgramJudgeTest() { m_journal.AddListener(m_listener); }

    void Analyse(const std::string& strBody) {
        m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, strBody}});
    }
    void Query(const std::string& strEvent, const std::string& strPath, QueryFate eFate,
               const Verdict& verdict) {
        CloudQuery query;
        query.strPath = strPath;
        query.strEvent = strEvent;
        m_journal.Record(QueryReceived{query, eFate, verdict});
    }

    const TestDir m_dir;
    VerdictService m_service;
    RunJournal m_journal{m_service, {}, true};
    JudgementListener m_listener;
};

const Verdict PACKAGED = {10, "packages", "p"};
const Verdict BAD = {70, "bad list", "b"};
constexpr char UNIT[] = "/etc/systemd/system/x.service";

}  // namespace

TEST_F(ProgramJudgeTest, ANewUnitsQueryNamesItsMakerAndTheUnitIsTheSubject) {
    Analyse(FileMessage("create", UNIT, "/bin/maker"));
    Query("AddAutoRuns", "/bin/maker", QUERY_ANSWERED, PACKAGED);

    EXPECT_THAT(
        m_listener.heard,
        ElementsAre(
            "AddAutoRuns | /etc/systemd/system/x.service | /bin/maker | /bin/maker | 10 p"));
}

TEST_F(ProgramJudgeTest, WithoutTheExpectedQueryAUnitAndAPipeStillNameTheirMaker) {
    Query("AddAutoRuns", "/bin/maker", QUERY_KNOWN, PACKAGED);
    Query("ProcessPipe", "/bin/maker", QUERY_ANSWERED, PACKAGED);

    EXPECT_THAT(m_listener.heard,
                ElementsAre("AddAutoRuns | /bin/maker | /bin/maker | /bin/maker | 10 p",
                            "ProcessPipe | /bin/maker | /bin/maker | /bin/maker | 10 p"));
}

TEST_F(ProgramJudgeTest, AVerdictOnNobodyIsNobodyElses) {
    Query("FileModify", "/etc/cron.d/x", QUERY_ANSWERED, BAD);
    m_journal.Record(
        ModuleNoted{ModuleRecord{NOTE_CACHED, "/etc/cron.d/y", EXPECTED_FILE, "write"}});

    EXPECT_THAT(m_listener.heard, ElementsAre("FileModify | /etc/cron.d/x |  |  | 70 b",
                                              "FileModify | /etc/cron.d/y |  |  | 40  cached"));
}

TEST_F(ProgramJudgeTest, AFilesQueryThatNobodyExpectedNamesNoProgram) {
    Query("FileModify", "/etc/cron.d/x", QUERY_NO_KEY, Verdict());

    EXPECT_THAT(m_listener.heard, ElementsAre("FileModify | /etc/cron.d/x |  |  | 40 "));
}

TEST_F(ProgramJudgeTest, AQueryWithoutAKeyIsShownWithTheVerdictOnItsProgram) {
    const std::string strActor = m_dir.WriteFile("actor", "x", 0755);
    Query("CreateProcess", strActor, QUERY_ANSWERED, BAD);
    Analyse(FileMessage("remove", "/etc/cron.d/x", strActor));
    Query("FileDelete", "/etc/cron.d/x", QUERY_NO_KEY, Verdict());

    EXPECT_THAT(
        m_listener.heard,
        ElementsAre("launch | " + strActor + " | " + strActor + " |  | 70 b",
                    "FileDelete | /etc/cron.d/x | " + strActor + " | " + strActor + " | 70 b"));
}

TEST_F(ProgramJudgeTest, ALostQueryJudgesNobody) {
    Query("CreateProcess", "/bin/a", QUERY_UNREADABLE, BAD);
    Query("CreateProcess", "/bin/a", QUERY_NOT_DELIVERED, BAD);

    EXPECT_THAT(m_listener.heard, ElementsAre());
}

TEST_F(ProgramJudgeTest, ASkipIsJudgedOnlyWhereTheVerdictIsKnown) {
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_STAT_FAILED, "/bin/a", EXPECTED_LAUNCH}});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_UNREADABLE, "/bin/a", EXPECTED_LAUNCH}});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_NOT_SENT, "", EXPECTED_NONE}});

    EXPECT_THAT(m_listener.heard, ElementsAre());
}

TEST_F(ProgramJudgeTest, ASkippedUnitIsJudgedByItsMakerAndASkippedLaunchByItself) {
    const std::string strMaker = m_dir.WriteFile("maker", "x", 0755);
    Query("CreateProcess", strMaker, QUERY_ANSWERED, BAD);
    m_journal.Record(LaunchReported{Started(strMaker, "/bin/shell")});
    m_listener.heard.clear();

    Analyse(FileMessage("create", UNIT, strMaker));
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_CACHED, UNIT, EXPECTED_UNIT}});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_CACHED, strMaker, EXPECTED_LAUNCH}});

    EXPECT_THAT(m_listener.heard, ElementsAre(std::string("AddAutoRuns | ") + UNIT + " | " +
                                                  strMaker + " | " + strMaker + " | 70 b cached",
                                              "launch | " + strMaker + " | " + strMaker +
                                                  " | /bin/shell | 70 b cached"));
}

TEST_F(ProgramJudgeTest, ASkippedFileThatNobodyExpectedHasNoProgramAndNoKnownVerdict) {
    m_journal.Record(
        ModuleNoted{ModuleRecord{NOTE_CACHED, "/etc/cron.d/x", EXPECTED_FILE, "rename"}});

    EXPECT_THAT(m_listener.heard, ElementsAre("FileRename | /etc/cron.d/x |  |  | 40  cached"));
}

// The name of the launch in its query has lost a byte that is no UTF-8; the file's own name is the
// one that starters are known by.
TEST_F(ProgramJudgeTest, AProgramsNameIsTheOneThatWasReportedNotTheOneOfTheQuery) {
    const std::string strProgram = m_dir.WriteFile(
        "a\xFF"
        "b",
        "x", 0755);
    m_journal.Record(LaunchReported{Started(strProgram, "/bin/shell")});
    Analyse(event_message::ProcessCreations({strProgram}));
    Query("CreateProcess",
          m_dir.Path() +
              "/a\xEF\xBF\xBD"
              "b",
          QUERY_ANSWERED, PACKAGED);

    EXPECT_THAT(m_listener.heard, ElementsAre("launch | " + strProgram + " | " + strProgram +
                                              " | /bin/shell | 10 p"));
}
