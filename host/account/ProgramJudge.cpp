#include "host/account/ProgramJudge.h"

void ProgramJudge::Note(const Launch& launch) {
    m_programs.SetStarter(launch.creation.strPath, launch.strStarter);
}

Judgement ProgramJudge::Launched(const std::string& strPath, const Verdict& verdict) const {
    return {"launch", strPath, strPath, m_programs.Starter(strPath), verdict};
}

Judgement ProgramJudge::Judge(const CloudQuery& query, QueryFate eFate, const Verdict& verdict,
                              const ModuleOutcome& outcome,
                              const std::optional<ExpectedQuery>& expected) {
    const bool bLaunch = outcome.eKind == EXPECTED_LAUNCH;
    Judgement judgement;
    judgement.strWhat = bLaunch ? "launch" : query.strEvent;
    judgement.strSubject = expected ? expected->strFile : query.strPath;
    judgement.strProgram = bLaunch                 ? judgement.strSubject
                           : expected              ? expected->strProgram
                           : outcome.bNamesProgram ? query.strPath
                                                   : "";
    judgement.verdict = verdict;
    if (!judgement.strProgram.empty() && eFate != QUERY_NO_KEY) {
        m_programs.SetVerdict(judgement.strProgram, verdict);
    } else if (!judgement.strProgram.empty()) {
        judgement.verdict = m_programs.VerdictOf(judgement.strProgram);
    }
    judgement.strBy = bLaunch ? m_programs.Starter(judgement.strSubject) : judgement.strProgram;
    return judgement;
}

Judgement ProgramJudge::Judge(const ModuleRecord& note,
                              const std::optional<ExpectedQuery>& expected) {
    const bool bLaunch = note.eExpected == EXPECTED_LAUNCH;
    Judgement judgement;
    judgement.strWhat = expected_queries::EventOf(note.eExpected, note.strOperation);
    judgement.strSubject = note.strText;
    judgement.strProgram = bLaunch ? note.strText : expected ? expected->strProgram : "";
    judgement.verdict = m_programs.VerdictOf(judgement.strProgram);
    judgement.strBy = bLaunch ? m_programs.Starter(note.strText) : judgement.strProgram;
    return judgement;
}
