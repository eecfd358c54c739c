#include "host/report/text/BalanceText.h"
#include "host/base/HumanText.h"
#include "host/report/text/VerdictRow.h"
#include "host/verdict/VerdictLevel.h"

#include <vector>

#include "framework/base/CStr.h"

namespace balance_text {

namespace {

// "  captured         10 launches": a sum, what is summed up; then what it is made of. strMany is
// the word for any number but one, where it is another.
class Sum {
public:
    Sum(const char* pszLabel, uint64_t nSum, const char* pszOne, const char* pszMany)
        : m_strText(CStr::stdformat("  %-12s%11s %-15s", pszLabel, text::Number(nSum).c_str(),
                                    nSum == 1 ? pszOne : pszMany)) {}

    Sum& Add(uint64_t nNumber, const std::string& strOne, const std::string& strMany = "") {
        m_strText += (m_bFirst ? " = " : " + ") +
                     text::Count(nNumber, strOne, strMany.empty() ? strOne : strMany);
        m_bFirst = false;
        return *this;
    }
    // Left out when it counts nothing.
    Sum& AddSome(uint64_t nNumber, const std::string& strOne, const std::string& strMany = "") {
        return nNumber == 0 ? *this : Add(nNumber, strOne, strMany);
    }
    std::string Text() const { return m_strText + "\n"; }

private:
    std::string m_strText;
    bool m_bFirst = true;
};

std::string CapturedText(const Balance& balance) {
    const LaunchCounters& launches = balance.launches;
    const FileCounters& files = balance.files;
    return Sum("captured", launches.nCaptured, "launch", "launches")
               .Add(launches.nReported, "reported")
               .AddSome(launches.nRepeated, "repeated")
               .Add(launches.nUnresolved, "unresolved")
               .Add(launches.nLost, "lost")
               .AddSome(launches.nOwn, "the host's own")
               .AddSome(launches.nBroken, "broken record", "broken records")
               .AddSome(launches.Waiting(), "not read yet")
               .Text() +
           Sum("", files.nCaptured, "file operation", "file operations")
               .Add(files.nReported, "reported")
               .Add(files.nUnwatched, "in no watched place")
               .Add(files.nUnresolved, "unresolved")
               .AddSome(files.nOwn, "the host's own")
               .AddSome(files.Waiting(), "not read yet")
               .Text();
}

std::string EventsText(const Balance& balance) {
    const LedgerState& events = balance.events;
    const uint64_t nDelivered = balance.Delivered();
    return Sum("reported", balance.Reported(), "event", "events")
               .Add(nDelivered, "delivered")
               .Add(events.nRefused, "refused")
               .AddSome(balance.Batched(), "in a batch")
               .AddSome(balance.nUnsent, "unsent")
               .Text() +
           Sum("delivered", nDelivered, "event", "events")
               .Add(nDelivered - events.nNotStored, "stored")
               .Add(events.nNotStored, "not stored")
               .Text() +
           Sum("stored", nDelivered - events.nNotStored, "event", "events")
               .Add(events.nAnalysed, "analysed")
               .Add(events.nWaiting, "waiting in the queue")
               .Text();
}

std::string ExpectedText(const Balance& balance) {
    const LedgerState& events = balance.events;
    const uint64_t nAnalysed = events.nAnalysed + events.nEarlierAnalysed;
    const std::string strExpected =
        "with " + text::Count(events.nExpected, "expected query", "expected queries");
    std::string strText;
    if (events.nEarlierAnalysed != 0) {
        strText = Sum("analysed", nAnalysed, "event", "events")
                      .Add(events.nAnalysed, "of this run")
                      .Add(events.nEarlierAnalysed, "of earlier runs or once more")
                      .Text();
    }
    const bool bFirst = strText.empty();
    strText +=
        Sum(bFirst ? "analysed" : "", nAnalysed, bFirst ? "event" : "", bFirst ? "events" : "")
            .Add(events.nIgnored, "ignored")
            .Add(nAnalysed - events.nIgnored, strExpected)
            .Text();
    return strText +
           Sum("expected", events.nExpected, "query", "queries")
               .Add(events.nQueried, "queried")
               .Add(events.nCached, "cached")
               .Add(events.nVanished, "vanished")
               .AddSome(events.nUnreadable, "unreadable")
               .AddSome(events.nStatFailed, "stat failed")
               .AddSome(events.nKnownMaker, "pipe of a known program", "pipes of a known program")
               .AddSome(events.nMissing, "missing")
               .Text();
}

std::string QueriesText(const Balance& balance) {
    const RunCounters& module = balance.module;
    std::string strLevels;
    for (const auto& entry : module.answersByLevel) {
        strLevels += (strLevels.empty() ? "" : ", ") + verdict_level::Word(entry.first) + " " +
                     text::Number(entry.second);
    }
    return Sum("queries", module.nQueries, "", "")
        .Add(module.nAnswers, "answered" + (strLevels.empty() ? "" : " (" + strLevels + ")"))
        .AddSome(module.nKnown, "answered before")
        .AddSome(module.nNoKey, "that wants no answer", "that want no answer")
        .AddSome(module.nLost, "lost")
        .Add(balance.Outstanding(), "outstanding")
        .Text();
}

struct Remark {
    uint64_t nNumber;
    const char* pszOne;
    const char* pszMany;
};

// What falsifies nothing and is good to know all the same.
std::vector<Remark> Remarks(const Balance& balance) {
    const LaunchCounters& launches = balance.launches;
    return {
        {balance.files.nOverflows,
         "time the kernel's queue of file operations was full; what it lost is not known",
         "times the kernel's queue of file operations was full; what it lost is not known"},
        {launches.nScripts, "script reported in addition to its interpreter",
         "scripts reported in addition to their interpreters"},
        {launches.nAgain, "launch reported once more, by a link to its file",
         "launches reported once more, by links to their files"},
        {balance.module.nChanged, "launch whose file was another when the module hashed it",
         "launches whose files were others when the module hashed them"},
        {launches.nFresh, "launch of a file perhaps written to since, judged only if it is bad",
         "launches of files perhaps written to since, judged only if they are bad"},
        {launches.nNotHeld, "launch whose file is not held", "launches whose files are not held"},
        {launches.nScriptsUnreported, "script not reported", "scripts not reported"},
        {launches.nArgsCut, "launch with arguments cut", "launches with arguments cut"},
        {launches.nArgsUnreadable, "launch with arguments unreadable",
         "launches with arguments unreadable"},
        {balance.files.nBroken, "record about files that is no event",
         "records about files that are no event"},
        {balance.files.nNoProgram, "file operation without the program that did it",
         "file operations without the program that did them"},
        {balance.files.nFound, "file operation found by comparing the watched places",
         "file operations found by comparing the watched places"},
        {balance.files.nGone, "file made and gone before it was examined, perhaps a pipe",
         "files made and gone before they were examined, perhaps pipes"},
        {launches.nOthersLost, "copy or end of a process lost, so that a starter may be wrong",
         "copies and ends of processes lost, so that a starter may be wrong"},
        {balance.events.nEarlierWaiting, "message of earlier runs waiting in the queue",
         "messages of earlier runs waiting in the queue"},
        {balance.events.nUnmatched,
         "query or log record of the module that matches no expected query",
         "queries and log records of the module that match no expected query"},
        {balance.module.nNotSent, "query that the module could not send",
         "queries that the module could not send"},
        {balance.module.nBadRuns, "bad run: a program with a bad verdict was launched or acted",
         "bad runs: a program with a bad verdict was launched or acted"},
    };
}

std::string RemarksText(const Balance& balance) {
    std::string strText;
    for (const Remark& remark : Remarks(balance)) {
        if (remark.nNumber != 0) {
            strText += CStr::stdformat("  %-12s%11s ", strText.empty() ? "of these" : "",
                                       text::Number(remark.nNumber).c_str()) +
                       (remark.nNumber == 1 ? remark.pszOne : remark.pszMany) + "\n";
        }
    }
    return strText;
}

std::string FilesJson(const FileCounters& files) {
    JsonObject object;
    object.Add("captured", files.nCaptured)
        .Add("reported", files.nReported)
        .Add("unwatched", files.nUnwatched);
    object.Add("unresolved", files.nUnresolved).Add("own", files.nOwn);
    object.Add("unread", files.Waiting()).Add("no_program", files.nNoProgram);
    object.Add("found", files.nFound).Add("gone", files.nGone);
    object.Add("broken", files.nBroken).Add("events", files.nEvents);
    object.Add("capture_us", files.nCaptureMicros);
    return object.Add("overflows", files.nOverflows).Text();
}

void AddCaptured(JsonObject& record, const Balance& balance) {
    const LaunchCounters& launches = balance.launches;
    JsonObject object;
    object.Add("captured", launches.nCaptured).Add("reported", launches.nReported);
    object.Add("repeated", launches.nRepeated);
    object.Add("unresolved", launches.nUnresolved).Add("lost", launches.nLost);
    object.Add("own", launches.nOwn).Add("broken", launches.nBroken);
    object.Add("unread", launches.Waiting()).Add("scripts", launches.nScripts);
    object.Add("scripts_unreported", launches.nScriptsUnreported);
    object.Add("args_cut", launches.nArgsCut).Add("args_unreadable", launches.nArgsUnreadable);
    object.Add("processes_lost", launches.nOthersLost);
    object.Add("again", launches.nAgain).Add("not_held", launches.nNotHeld);
    object.Add("fresh", launches.nFresh);
    record.AddJson("launches", object.Text()).AddJson("files", FilesJson(balance.files));
}

}  // namespace

std::string Text(const Console& output, const Balance& balance) {
    const uint64_t nUnexplained = balance.Unexplained();
    const auto eColour = nUnexplained == 0 ? Console::COLOUR_GREEN : Console::COLOUR_RED;
    return output.Paint(Console::COLOUR_BOLD, "Balance") + "\n" +
           (balance.input ? "" : CapturedText(balance)) + EventsText(balance) +
           ExpectedText(balance) + QueriesText(balance) + RemarksText(balance) +
           output.Paint(eColour, CStr::stdformat("  %-12s%11s", "unexplained",
                                                 text::Number(nUnexplained).c_str()));
}

JsonObject& AddNumbers(JsonObject& record, const Balance& balance) {
    const LedgerState& events = balance.events;
    const RunCounters& module = balance.module;
    if (balance.input) {
        record.Add("input", *balance.input).Add("unsent", balance.nUnsent);
    } else {
        AddCaptured(record, balance);
    }
    record.Add("reported", balance.Reported()).Add("batched", balance.Batched());
    record.Add("delivered", balance.Delivered()).Add("refused", events.nRefused);
    record.Add("not_stored", events.nNotStored).Add("waiting", events.nWaiting);
    record.Add("analysed", events.nAnalysed).Add("analysed_earlier", events.nEarlierAnalysed);
    record.Add("earlier_messages_waiting", events.nEarlierWaiting);
    record.Add("ignored", events.nIgnored).Add("expected", events.nExpected);
    record.Add("queried", events.nQueried)
        .Add("cached", events.nCached)
        .Add("vanished", events.nVanished);
    record.Add("unreadable", events.nUnreadable).Add("stat_failed", events.nStatFailed);
    record.Add("known_maker", events.nKnownMaker).Add("missing", events.nMissing);
    record.Add("unmatched", events.nUnmatched).Add("queries_not_sent", module.nNotSent);
    record.Add("queries", module.nQueries).Add("answers", module.nAnswers);
    record.AddJson("answers_by_level", verdict_row::LevelsJson(module.answersByLevel));
    record.Add("known", module.nKnown)
        .Add("no_key", module.nNoKey)
        .Add("queries_lost", module.nLost);
    record.Add("outstanding", balance.Outstanding());
    if (!balance.input) {
        record.Add("bad_runs", module.nBadRuns).Add("changed", module.nChanged);
    }
    return record.Add("unexplained", balance.Unexplained());
}

}  // namespace balance_text
