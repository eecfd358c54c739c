#include "host/report/text/RunText.h"
#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"
#include "host/base/ModuleFacts.h"
#include "host/report/text/VerdictRow.h"
#include "host/verdict/VerdictLevel.h"

#include <algorithm>
#include <cinttypes>
#include <utility>
#include <vector>

#include "framework/base/CStr.h"

namespace run_text {

namespace {

constexpr size_t PACKAGES_NAMED = 5;

using text::Count;
using text::Number;

std::string Label(const std::string& strLabel) {
    return CStr::stdformat("  %-12s", strLabel.c_str());
}

// Pieces that count something, in one line; those that count nothing are left out.
class Pieces {
public:
    void Add(uint64_t nNumber, const std::string& strText) {
        if (nNumber != 0) {
            m_strText += (m_strText.empty() ? "" : ", ") + Number(nNumber) + " " + strText;
        }
    }
    std::string Text(const std::string& strElse) const {
        return m_strText.empty() ? strElse : m_strText;
    }

private:
    std::string m_strText;
};

std::string EventsLine(const RunCounters& counters) {
    std::string strLine = Label("events") + Count(counters.nEvents, "event") + " in " +
                          Count(counters.nMessages, "message");
    Pieces more;
    more.Add(counters.nUnusable, "unusable in the input");
    more.Add(counters.nNotDelivered, "not delivered");
    const bool bOlder = counters.nAnalysed > counters.nCopies;
    more.Add(bOlder ? counters.nAnalysed - counters.nCopies : 0, "more that waited in the queue");
    const std::string strMore = more.Text("");
    return strLine + (strMore.empty() ? "" : "; " + strMore);
}

std::string QueriesLine(const RunCounters& counters) {
    Pieces pieces;
    pieces.Add(counters.nAnswers, "answered");
    pieces.Add(counters.nKnown, "answered before");
    pieces.Add(counters.nNoKey,
               counters.nNoKey == 1 ? "that wants no answer" : "that want no answer");
    pieces.Add(counters.nLost, "lost");
    pieces.Add(counters.nNotSent, "more that the module could not send");
    const std::string strPieces = pieces.Text("");
    return Label("queries") + Number(counters.nQueries) +
           (strPieces.empty() ? "" : ": " + strPieces);
}

std::string VerdictsLine(const Console& output, const RunCounters& counters) {
    std::map<int, uint64_t> byLevel = counters.queriesByLevel;
    for (const int nLevel : verdict_level::GIVEN) {
        byLevel[nLevel] += 0;
    }
    std::string strLine;
    for (const auto& entry : byLevel) {
        const std::string strPiece = verdict_level::Word(entry.first) + " " + Number(entry.second);
        const auto eColour =
            entry.second == 0 ? Console::COLOUR_DIM : verdict_row::LevelColour(entry.first);
        strLine += (strLine.empty() ? "" : ", ") + output.Paint(eColour, strPiece);
    }
    return Label("by verdict") + strLine + " queries";
}

std::string PackagesLine(const RunCounters& counters) {
    std::vector<std::pair<uint64_t, std::string>> packages;
    for (const auto& entry : counters.queriesByPackage) {
        packages.emplace_back(entry.second, entry.first);
    }
    std::stable_sort(packages.begin(), packages.end(),
                     [](const auto& left, const auto& right) { return left.first > right.first; });
    std::string strLine = Label("packages");
    for (size_t i = 0; i < packages.size() && i < PACKAGES_NAMED; ++i) {
        strLine += (i == 0 ? "" : ", ") + text::ForTerminal(packages[i].second) + " " +
                   Number(packages[i].first);
    }
    if (packages.size() > PACKAGES_NAMED) {
        strLine += " and " + Count(packages.size() - PACKAGES_NAMED, "more package");
    }
    return strLine;
}

std::string SkipsLine(const RunCounters& counters) {
    Pieces pieces;
    pieces.Add(counters.nCached, "with a live verdict in the cache");
    pieces.Add(counters.nUnreadable, "that cannot be read");
    pieces.Add(counters.nStatFailed, "whose status cannot be had");
    return Label("skips") + pieces.Text("none");
}

std::string HashedLine(const RunCounters& counters) {
    std::string strLine = Label("hashed") + text::Bytes(counters.nHashedBytes);
    if (counters.BytesPerSecond() > 0) {
        strLine += " at " + text::Bytes(static_cast<uint64_t>(counters.BytesPerSecond())) + "/s";
    }
    return strLine;
}

std::string TimeLine(const RunCounters& counters, double dSeconds) {
    const double dWork = counters.WorkSeconds();
    std::string strLine = Label("time") + CStr::stdformat("%.1f s", dSeconds);
    if (counters.nAnalysed > 0) {
        strLine += CStr::stdformat(
            ", %.1f s from the module's first activity to its last (it looks at its queue every %d "
            "s)",
            dWork, module_facts::QUEUE_LOOK_MS / 1000);
    }
    return strLine;
}

// One row of the table of passes: what counts it in each of them.
template <class Cell>
std::string TableRow(const std::string& strLabel, const std::vector<PassResult>& passes,
                     const Cell& cell) {
    std::string strRow = Label(strLabel);
    for (const PassResult& pass : passes) {
        strRow += CStr::stdformat("%12s", cell(pass).c_str());
    }
    return strRow + "\n";
}

}  // namespace

std::string Heading(const Console& output, const PassInfo& pass) {
    const std::string strPass =
        pass.nPasses > 1 ? CStr::stdformat("Pass %d of %d", pass.nPass, pass.nPasses) : "Events";
    return output.Paint(Console::COLOUR_BOLD, strPass) + "  from " +
           text::ForTerminal(pass.strName);
}

std::string SummaryHeading(const Console& output, const RunEnd& end) {
    std::string strEnd;
    if (end.nSignal != 0) {
        strEnd = "  stopped by a signal";
    } else if (!end.bDrained) {
        strEnd = "  stopped before everything was analysed";
    }
    return output.Paint(Console::COLOUR_BOLD, "Summary") + strEnd;
}

std::string QueueLine(const RunEnd& end) {
    if (!end.queueDepth) {
        return Label("queue") + "cannot be read";
    }
    return Label("queue") + (*end.queueDepth == 0
                                 ? "empty"
                                 : Count(*end.queueDepth, "message") + " kept for the next run");
}

std::string VerdictLine(const Console& output, const CloudQuery& query, const Verdict& verdict) {
    const std::string strWord =
        CStr::stdformat("%-9s %3d", verdict_level::Word(verdict.nLevel).c_str(), verdict.nLevel);
    std::string strWhy = verdict.strSource == "none" ? "" : verdict.strSource;
    if (!verdict.strOwner.empty()) {
        strWhy = verdict.strOwner + (strWhy.empty() ? "" : " (" + strWhy + ")");
    }
    std::string strLine = text::ClockNow() + "  " +
                          output.Paint(verdict_row::LevelColour(verdict.nLevel), strWord) + "  " +
                          verdict_row::Name(query.strPath);
    if (!strWhy.empty()) {
        strLine += "  " + output.Paint(Console::COLOUR_DIM, text::ForTerminal(strWhy));
    }
    return strLine;
}

std::string QueryLine(const Console& output, const CloudQuery& query, const std::string& strFate) {
    const std::string strWhat = query.strEvent.empty() ? "query" : query.strEvent;
    return text::ClockNow() + "  " +
           output.Paint(Console::COLOUR_DIM, CStr::stdformat("%-13s", strFate.c_str())) + "  " +
           verdict_row::Name(query.strPath) + "  " + verdict_row::Name(strWhat);
}

std::string SkipLine(const Console& output, const std::string& strPath) {
    return text::ClockNow() + "  " + output.Paint(Console::COLOUR_DIM, "cached       ") + "  " +
           verdict_row::Name(strPath);
}

std::string Text(const Console& output, const RunCounters& counters, double dSeconds) {
    std::string strText = EventsLine(counters) + "\n" + QueriesLine(counters) + "\n";
    if (!counters.queriesByLevel.empty()) {
        strText += VerdictsLine(output, counters) + "\n";
    }
    if (!counters.queriesByPackage.empty()) {
        strText += PackagesLine(counters) + "\n";
    }
    strText += SkipsLine(counters) + "\n" + HashedLine(counters) + "\n";
    if (counters.nCentre != 0) {
        strText += Label("centre") + Count(counters.nCentre, "record") + "\n";
    }
    return strText + TimeLine(counters, dSeconds);
}

std::string PassTable(const Console& output, const std::vector<PassResult>& passes) {
    int nPass = 0;
    const std::string strHeading = TableRow(
        "", passes, [&nPass](const PassResult&) { return "pass " + std::to_string(++nPass); });
    const auto queries = [](const PassResult& pass) { return Number(pass.counters.nQueries); };
    const auto cached = [](const PassResult& pass) { return Number(pass.counters.nCached); };
    std::string strTable = output.Paint(Console::COLOUR_DIM, strHeading);
    strTable += TableRow("events", passes,
                         [](const PassResult& pass) { return Number(pass.counters.nEvents); });
    strTable += TableRow("queries", passes, queries) + TableRow("cached", passes, cached);
    strTable += TableRow("hashed", passes, [](const PassResult& pass) {
        return text::Bytes(pass.counters.nHashedBytes);
    });
    strTable += TableRow("per second", passes, [](const PassResult& pass) {
        return text::Bytes(static_cast<uint64_t>(pass.counters.BytesPerSecond()));
    });
    strTable += TableRow("time", passes, [](const PassResult& pass) {
        return CStr::stdformat("%.1f s", pass.dSeconds);
    });
    strTable.pop_back();
    return strTable;
}

JsonObject& AddCounters(JsonObject& record, const RunCounters& counters, double dSeconds) {
    record.Add("messages", counters.nMessages).Add("events", counters.nEvents);
    record.Add("unusable", counters.nUnusable).Add("not_delivered", counters.nNotDelivered);
    record.Add("messages_analysed", counters.nAnalysed).Add("queries", counters.nQueries);
    record.Add("answers", counters.nAnswers).Add("known", counters.nKnown);
    record.Add("no_key", counters.nNoKey).Add("queries_lost", counters.nLost);
    record.Add("queries_not_sent", counters.nNotSent);
    record.AddJson("answers_by_level", verdict_row::LevelsJson(counters.answersByLevel));
    record.AddJson("queries_by_level", verdict_row::LevelsJson(counters.queriesByLevel));
    JsonObject skips;
    skips.Add("cached", counters.nCached).Add("unreadable", counters.nUnreadable);
    skips.Add("stat_failed", counters.nStatFailed);
    record.AddJson("skips", skips.Text()).Add("hashed_bytes", counters.nHashedBytes);
    record.Add("centre", counters.nCentre).Add("seconds", dSeconds);
    return record.Add("work_seconds", counters.WorkSeconds());
}

}  // namespace run_text
