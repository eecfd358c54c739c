#include "host/WatchBlock.h"

#include <cinttypes>

#include "framework/base/CStr.h"
#include "host/WatchReport.h"

namespace watch_block {

namespace {

std::string Line(const char* pszLabel, uint64_t nSum) {
    return CStr::stdformat("  %-12s%" PRIu64, pszLabel, nSum);
}

// " = 3 told + 0 lost": what a sum is made of.
class Parts {
public:
    Parts& Add(uint64_t nNumber, const char* pszWord) {
        m_strText += (m_strText.empty() ? " = " : " + ") + std::to_string(nNumber) + " " + pszWord;
        return *this;
    }
    // Left out when it counts nothing.
    Parts& AddSome(uint64_t nNumber, const char* pszWord) {
        return nNumber == 0 ? *this : Add(nNumber, pszWord);
    }
    std::string Text() const { return m_strText + "\n"; }

private:
    std::string m_strText;
};

uint64_t Judged(const RunCounters& module) {
    return module.nQueries + module.nCached;
}

}  // namespace

std::string Text(const Output& output, const WatchBalance& balance) {
    const LaunchCounters& launches = balance.launches;
    const LedgerState& events = balance.events;
    const RunCounters& module = balance.module;
    std::string strText = output.Paint(Output::COLOUR_BOLD, "Balance") + "\n";
    strText += Line("sensed", launches.nSensed) + " launches" +
               Parts()
                   .Add(launches.nPrograms, "delivered")
                   .Add(launches.nUnresolvable, "unresolvable")
                   .Add(launches.nLost, "lost")
                   .AddSome(launches.nOwn, "the host's own")
                   .AddSome(launches.nBroken, "broken records")
                   .AddSome(launches.Waiting(), "not read yet")
                   .Text();
    strText += Line("events", launches.nPrograms + launches.nScripts) +
               Parts().Add(launches.nPrograms, "programs").Add(launches.nScripts, "scripts").Text();
    strText += Line("", events.nSent) + " handed over" +
               Parts()
                   .Add(events.nHeard, "looked at")
                   .Add(events.nGone, "gone before that")
                   .Add(events.nWaiting, "waiting in the queue")
                   .AddSome(events.nRefused, "refused")
                   .AddSome(events.nSilent, "without a sign")
                   .Text();
    strText += Line("looked at", Judged(module) + module.nNoHash + module.nNoStat) +
               Parts()
                   .Add(module.nQueries, "queries")
                   .Add(module.nCached, "from the cache")
                   .AddSome(module.nNoHash, "that cannot be read")
                   .AddSome(module.nNoStat, "that cannot be looked at")
                   .Text();
    strText += Line("queries", module.nQueries) +
               Parts()
                   .Add(module.nAnswers, "answered")
                   .AddSome(module.nKnown, "for a program already answered")
                   .AddSome(module.nNoKey, "that want no answer")
                   .AddSome(module.nLost, "lost")
                   .Text();
    strText += CStr::stdformat("  %-12s%" PRIu64 " with arguments cut, %" PRIu64
                               " with arguments unreadable, %" PRIu64 " scripts not told\n",
                               "of these", launches.nArgsCut, launches.nArgsUnreadable,
                               launches.nScriptsUntold);
    const auto eColour = balance.Unexplained() == 0 ? Output::COLOUR_GREEN : Output::COLOUR_RED;
    return strText + output.Paint(eColour, Line("unexplained", balance.Unexplained()));
}

JsonObject& AddNumbers(JsonObject& record, const WatchBalance& balance) {
    const LaunchCounters& launches = balance.launches;
    const LedgerState& events = balance.events;
    record.Add("sensed", launches.nSensed).Add("delivered", launches.nPrograms);
    record.Add("unresolvable", launches.nUnresolvable).Add("lost", launches.nLost);
    record.Add("own", launches.nOwn).Add("broken", launches.nBroken);
    record.Add("unread", launches.Waiting()).Add("scripts", launches.nScripts);
    record.Add("scripts_untold", launches.nScriptsUntold).Add("args_cut", launches.nArgsCut);
    record.Add("args_unreadable", launches.nArgsUnreadable);
    record.Add("others_lost", launches.nOthersLost).Add("events", events.nSent);
    record.Add("looked_at", events.nHeard).Add("gone", events.nGone);
    record.Add("waiting", events.nWaiting).Add("refused", events.nRefused);
    record.Add("silent", events.nSilent).Add("queries", balance.module.nQueries);
    record.Add("cached", balance.module.nCached).Add("answers", balance.module.nAnswers);
    return record.Add("unexplained", balance.Unexplained());
}

}  // namespace watch_block
