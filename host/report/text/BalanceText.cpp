#include "host/report/text/BalanceText.h"
#include "host/base/HumanText.h"
#include "host/report/text/VerdictRow.h"
#include "host/verdict/VerdictLevel.h"

#include <vector>

#include "framework/base/CStr.h"

namespace balance_text {

namespace {

// "  sensed           10 launches": a sum, what is summed up; then what it is made of.
class Sum {
public:
    Sum(const char* pszLabel, uint64_t nSum, const char* pszOf)
        : m_strText(
              CStr::stdformat("  %-12s%11s %-15s", pszLabel, text::Number(nSum).c_str(), pszOf)) {}

    Sum& Add(uint64_t nNumber, const std::string& strWord) {
        m_strText += (m_bFirst ? " = " : " + ") + text::Number(nNumber) + " " + strWord;
        m_bFirst = false;
        return *this;
    }
    // Left out when it counts nothing.
    Sum& AddSome(uint64_t nNumber, const std::string& strWord) {
        return nNumber == 0 ? *this : Add(nNumber, strWord);
    }
    std::string Text() const { return m_strText + "\n"; }

private:
    std::string m_strText;
    bool m_bFirst = true;
};

std::string SensedText(const Balance& balance) {
    const LaunchCounters& launches = balance.launches;
    const FileCounters& files = balance.files;
    return Sum("sensed", launches.nSensed, "launches")
               .Add(launches.nPrograms, "told")
               .Add(launches.nUnresolvable, "unresolvable")
               .Add(launches.nLost, "lost")
               .AddSome(launches.nOwn, "the host's own")
               .AddSome(launches.nBroken, "broken records")
               .AddSome(launches.Waiting(), "not read yet")
               .Text() +
           Sum("", files.nSensed, "file operations")
               .Add(files.nTold, "told")
               .Add(files.nElsewhere, "in no watched place")
               .Add(files.nUnresolvable, "unresolvable")
               .AddSome(files.nOwn, "the host's own")
               .AddSome(files.Waiting(), "not read yet")
               .Text();
}

std::string EventsText(const Balance& balance) {
    const LedgerState& events = balance.events;
    const uint64_t nDelivered = balance.Delivered();
    return Sum("told", balance.Told(), "events")
               .Add(nDelivered, "delivered")
               .Add(events.nRefused, "refused")
               .AddSome(balance.Batched(), "in the making")
               .Text() +
           Sum("delivered", nDelivered, "events")
               .Add(nDelivered - events.nNotStored, "stored")
               .Add(events.nNotStored, "not stored")
               .Text() +
           Sum("stored", nDelivered - events.nNotStored, "events")
               .Add(events.nBegun, "looked at")
               .Add(events.nWaiting, "waiting in the queue")
               .Text();
}

std::string QuestionsText(const Balance& balance) {
    const LedgerState& events = balance.events;
    const uint64_t nLookedAt = events.nBegun + events.nEarlierBegun;
    const std::string strQuestions = "with " + text::Number(events.nQuestions) + " questions";
    std::string strText;
    if (events.nEarlierBegun != 0) {
        strText = Sum("looked at", nLookedAt, "events")
                      .Add(events.nBegun, "of this run")
                      .Add(events.nEarlierBegun, "of earlier runs or once more")
                      .Text();
    }
    const bool bFirst = strText.empty();
    strText += Sum(bFirst ? "looked at" : "", nLookedAt, bFirst ? "events" : "")
                   .Add(events.nNoInterest, "of no interest")
                   .Add(nLookedAt - events.nNoInterest, strQuestions)
                   .Text();
    return strText + Sum("questions", events.nQuestions, "")
                         .Add(events.nQueried, "asked")
                         .Add(events.nCached, "cached")
                         .Add(events.nGone, "gone before that")
                         .AddSome(events.nNoHash, "not readable")
                         .AddSome(events.nNoStat, "gone with a notice")
                         .AddSome(events.nKnownMaker, "pipes of a known program")
                         .AddSome(events.nSilent, "without a sign")
                         .Text();
}

std::string QueriesText(const Balance& balance) {
    const RunCounters& module = balance.module;
    std::string strLevels;
    for (const auto& entry : module.answersByLevel) {
        strLevels += (strLevels.empty() ? "" : ", ") + verdict_level::Word(entry.first) + " " +
                     text::Number(entry.second);
    }
    return Sum("queries", module.nQueries, "")
        .Add(module.nAnswers, "answered" + (strLevels.empty() ? "" : " (" + strLevels + ")"))
        .AddSome(module.nKnown, "answered before")
        .AddSome(module.nNoKey, "that want no answer")
        .AddSome(module.nLost, "lost")
        .Add(balance.Outstanding(), "outstanding")
        .Text();
}

// What falsifies nothing and is good to know all the same.
std::string RemarksText(const Balance& balance) {
    const LaunchCounters& launches = balance.launches;
    const std::vector<std::pair<uint64_t, const char*>> REMARKS = {
        {balance.files.nOverflows,
         "times the kernel's queue of file operations was full; what it "
         "lost is not known"},
        {launches.nScripts, "scripts told beside their interpreters"},
        {launches.nScriptsUntold, "scripts not told"},
        {launches.nArgsCut, "launches with arguments cut"},
        {launches.nArgsUnreadable, "launches with arguments unreadable"},
        {balance.files.nBroken, "pieces of what the kernel told of files that are no event"},
        {balance.files.nNoProgram, "file operations without the program that did them"},
        {launches.nOthersLost, "copies and ends of processes lost, so that a starter may be wrong"},
        {balance.events.nEarlierWaiting, "messages of earlier runs waiting in the queue"},
        {balance.module.nNotSent, "queries that the module could not send"},
    };
    std::string strText;
    for (const auto& remark : REMARKS) {
        if (remark.first != 0) {
            strText += CStr::stdformat("  %-12s%11s ", strText.empty() ? "of these" : "",
                                       text::Number(remark.first).c_str()) +
                       remark.second + "\n";
        }
    }
    return strText;
}

std::string FilesJson(const FileCounters& files) {
    JsonObject object;
    object.Add("sensed", files.nSensed).Add("told", files.nTold).Add("elsewhere", files.nElsewhere);
    object.Add("unresolvable", files.nUnresolvable).Add("own", files.nOwn);
    object.Add("unread", files.Waiting()).Add("no_program", files.nNoProgram);
    object.Add("broken", files.nBroken).Add("events", files.nEvents);
    object.Add("sense_us", files.nSenseMicros);
    return object.Add("overflows", files.nOverflows).Text();
}

void AddSensed(JsonObject& record, const Balance& balance) {
    const LaunchCounters& launches = balance.launches;
    record.Add("sensed", launches.nSensed).Add("delivered", launches.nPrograms);
    record.Add("unresolvable", launches.nUnresolvable).Add("lost", launches.nLost);
    record.Add("own", launches.nOwn).Add("broken", launches.nBroken);
    record.Add("unread", launches.Waiting()).Add("scripts", launches.nScripts);
    record.Add("scripts_untold", launches.nScriptsUntold).Add("args_cut", launches.nArgsCut);
    record.Add("args_unreadable", launches.nArgsUnreadable);
    record.Add("others_lost", launches.nOthersLost).AddJson("files", FilesJson(balance.files));
}

}  // namespace

std::string Text(const Console& output, const Balance& balance) {
    const uint64_t nUnexplained = balance.Unexplained();
    const auto eColour = nUnexplained == 0 ? Console::COLOUR_GREEN : Console::COLOUR_RED;
    return output.Paint(Console::COLOUR_BOLD, "Balance") + "\n" +
           (balance.input ? "" : SensedText(balance)) + EventsText(balance) +
           QuestionsText(balance) + QueriesText(balance) + RemarksText(balance) +
           output.Paint(eColour, CStr::stdformat("  %-12s%11s", "unexplained",
                                                 text::Number(nUnexplained).c_str()));
}

JsonObject& AddNumbers(JsonObject& record, const Balance& balance) {
    const LedgerState& events = balance.events;
    const RunCounters& module = balance.module;
    if (balance.input) {
        record.Add("input", *balance.input);
    } else {
        AddSensed(record, balance);
    }
    record.Add("told", balance.Told()).Add("in_the_making", balance.Batched());
    record.Add("events", events.nSent).Add("refused", events.nRefused);
    record.Add("not_stored", events.nNotStored).Add("waiting", events.nWaiting);
    record.Add("looked_at", events.nBegun).Add("looked_at_earlier", events.nEarlierBegun);
    record.Add("earlier_messages_waiting", events.nEarlierWaiting);
    record.Add("no_interest", events.nNoInterest).Add("questions", events.nQuestions);
    record.Add("asked", events.nQueried).Add("cached", events.nCached).Add("gone", events.nGone);
    record.Add("no_hash", events.nNoHash).Add("no_stat", events.nNoStat);
    record.Add("known_maker", events.nKnownMaker).Add("silent", events.nSilent);
    record.Add("beside", events.nBeside).Add("not_sent", module.nNotSent);
    record.Add("queries", module.nQueries).Add("answers", module.nAnswers);
    record.AddJson("answers_by_level", verdict_row::LevelsJson(module.answersByLevel));
    record.Add("known", module.nKnown).Add("no_key", module.nNoKey).Add("query_lost", module.nLost);
    record.Add("outstanding", balance.Outstanding());
    return record.Add("unexplained", balance.Unexplained());
}

}  // namespace balance_text
