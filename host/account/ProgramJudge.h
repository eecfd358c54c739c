// Which program a query or a skipped event of the module was about, who did it, and the verdict on
// it: what people are shown as one judged program.
//
// Threads: any. Errors: none but std::bad_alloc. Ownership: the service must outlive it.
#ifndef HOST_ACCOUNT_PROGRAMJUDGE_H
#define HOST_ACCOUNT_PROGRAMJUDGE_H

#include <optional>
#include <string>

#include "host/account/EventLedger.h"
#include "host/cloud/CloudQuery.h"
#include "host/kernel/launch/Launch.h"
#include "host/module/ModuleLog.h"
#include "host/verdict/ProgramVerdicts.h"

struct Judgement {
    std::string strWhat;     // "launch", "FileCreate", ...
    std::string strSubject;  // the program started or the file changed
    std::string strProgram;  // that the verdict is on; "" when nobody knows
    std::string strBy;       // the program that did it, "" when nobody knows
    Verdict verdict;
};

class ProgramJudge {
public:
    explicit ProgramJudge(const VerdictService& service) : m_programs(service) {}

    // Of a launch: who started the program last.
    void Note(const Launch& launch);

    // Of a launch with this verdict.
    Judgement Launched(const std::string& strPath, const Verdict& verdict) const;
    // A query was answered with verdict, or needs no answer. outcome is what it ends, expected the
    // expected query among the events that it ended, if there was one.
    Judgement Judge(const CloudQuery& query, QueryFate eFate, const Verdict& verdict,
                    const ModuleOutcome& outcome, const std::optional<ExpectedQuery>& expected);
    // The module skipped an event, because the verdict on its program is known. Costs a look at the
    // program, and its digest where the verdict on it is not known here.
    Judgement Judge(const ModuleRecord& note, const std::optional<ExpectedQuery>& expected);

private:
    ProgramVerdicts m_programs;
};

#endif
