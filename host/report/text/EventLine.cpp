#include "host/report/text/EventLine.h"

#include <cinttypes>

#include "framework/base/CStr.h"
#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"

namespace event_line {

std::string Queue(const Console& output, const QueueLoad& load) {
    static const char* const WORDS[] = {"has room again", "is nearly full", "is full"};
    std::string strLine = text::ClockNow() + "  queue          " + WORDS[load.eState] + ": " +
                          text::Count(load.nRows, "message") + ", " + text::Bytes(load.nBytes);
    if (load.nRefusedMessages > 0) {
        strLine += "; refused so far " + text::Count(load.nRefusedMessages, "message") + " with " +
                   text::Count(load.nRefusedEvents, "event");
    }
    const auto eColour = load.eState == QUEUE_FULL ? Console::COLOUR_RED : Console::COLOUR_YELLOW;
    return output.Paint(load.eState == QUEUE_NORMAL ? Console::COLOUR_NONE : eColour, strLine);
}

std::string Centre(const CentreRecord& record) {
    return text::ClockNow() + "  centre         record of type " + std::to_string(record.nMsgType) +
           ", " + text::Count(record.nBytes, "byte");
}

std::string Input(const InputUnusable& input) {
    const std::string strWhere =
        input.nNumber == 0 ? ""
                           : input.strSource + ", line " + std::to_string(input.nNumber) + ": ";
    return strWhere + input.strReason;
}

std::string ModuleLog(const ModuleLine& line) {
    const std::string strText = text::ClockNow() + CStr::stdformat("  module L%d  ", line.nLevel) +
                                text::ForTerminal(line.strText);
    return line.strFunction.empty() ? strText : strText + "  (" + line.strFunction + ")";
}

VerdictRow Dropped(const EventsDropped& dropped) {
    static const char* const REASONS[] = {"the module's queue is full, or it takes no messages",
                                          "the module could not store them"};
    return verdict_row::Unjudged("dropped", "event", text::Count(dropped.nEvents, "event"),
                                 std::string(REASONS[dropped.eReason]) + "; " +
                                     text::Number(dropped.nTotal) + " since the start");
}

std::string Progress(const std::string& strDoing, const RunCounters& counters) {
    return CStr::stdformat("%s: %" PRIu64 " delivered, %" PRIu64 " analysed, %" PRIu64
                           " queries, %" PRIu64 " cached, %s hashed",
                           strDoing.c_str(), counters.nMessages, counters.nAnalysed,
                           counters.nQueries, counters.nCached,
                           text::Bytes(counters.nHashedBytes).c_str());
}

const char* FateWord(QueryFate eFate) {
    switch (eFate) {
        case QUERY_ANSWERED:
            return "answered";
        case QUERY_KNOWN:
            return "known";
        case QUERY_NO_KEY:
            return "no key";
        case QUERY_UNREADABLE:
            return "malformed";
        case QUERY_NOT_DELIVERED:
            return "unanswered";
    }
    return "";
}

}  // namespace event_line
