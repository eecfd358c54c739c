#include "host/report/WatchLines.h"

#include <cerrno>
#include <string>
#include <utility>

#include "host/base/HumanText.h"
#include "host/report/text/EventLine.h"
#include "host/verdict/VerdictLevel.h"

void WatchLines::OnEvent(const RunEvent& event, int64_t tmWhen) {
    if (!std::visit([this](const auto& happened) { return Take(happened); }, event)) {
        m_common.OnEvent(event, tmWhen);
    }
}

bool WatchLines::Take(const RunBegun&) {
    if (!m_bPlain) {
        auto pScreen = std::make_unique<LiveScreen>(
            m_output, [this] { return HeadNumbers(); }, [this] { m_output.Break(EIO); });
        if (pScreen->Begin()) {
            m_pScreen = std::move(pScreen);
        }
    }
    return true;
}

bool WatchLines::Take(const PassBegun&) {
    if (m_pScreen == nullptr) {
        return false;
    }
    m_pScreen->State("watching");
    return true;
}

bool WatchLines::Take(const RunProgressed& event) {
    if (m_pScreen == nullptr) {
        return false;
    }
    m_pScreen->State(event.strDoing == "delivering" ? "watching" : "ending: " + event.strDoing);
    return true;
}

bool WatchLines::Take(const RunEnding&) {
    if (m_pScreen != nullptr) {
        m_pScreen->End();
    }
    return true;
}

bool WatchLines::Take(const LaunchUnresolved& event) {
    Show(verdict_row::Unjudged("unresolved", "launch", event.event.PathOrName(),
                               event.pFile != nullptr
                                   ? "no name leads to its file any more; judged only if it is bad"
                                   : "no path names its file, so it is not judged"));
    return true;
}

bool WatchLines::Take(const LaunchesLost& event) {
    Show(verdict_row::Unjudged(
        "lost", "launch", text::Count(event.nLaunches, "launch", "launches"),
        "there is no record of them; " + text::Number(event.nTotal) + " since the start"));
    return true;
}

bool WatchLines::Take(const FileQueueOverflowed& event) {
    m_output.Line(text::ClockNow() +
                  "  overflow       the kernel's queue of file operations was full; " +
                  text::Count(event.nTotal, "time") + " since the start");
    return true;
}

bool WatchLines::Take(const SensorNotice& event) {
    m_output.Complain(event.strText);
    return true;
}

bool WatchLines::Take(const EventsDropped& event) {
    if (m_journal.HasEnded()) {
        return false;  // the screen is gone
    }
    Show(event_line::Dropped(event));
    return true;
}

// What has a verdict has the line of its judgement.
bool WatchLines::Take(const QueryReceived& event) {
    return !IsLost(event.eFate);
}

bool WatchLines::Take(const ModuleNoted&) {
    return true;
}

bool WatchLines::Take(const ProgramJudged& event) {
    const bool bBad = verdict_level::ClassOf(event.verdict.nLevel) == verdict_level::CLASS_BAD;
    if (bBad || !event.bCached || m_options.bVerbose || m_pScreen != nullptr) {
        Show(verdict_row::Judged(event.strWhat, event.strSubject, event.strBy, event.verdict,
                                 event.bCached));
    }
    return true;
}

bool WatchLines::Take(const LaunchChanged& event) {
    Show(verdict_row::Unjudged("changed", "launch", event.strFile,
                               event.bAgain ? "it was another file when it was analysed; its "
                                              "own is reported again"
                                            : "it was another file when it was analysed, so it "
                                              "is not judged"));
    return true;
}

void WatchLines::Show(const VerdictRow& row) {
    if (m_pScreen != nullptr) {
        m_pScreen->Add(row);
    } else {
        m_output.Line(verdict_row::Text(m_output, row));
    }
}

ScreenNumbers WatchLines::HeadNumbers() const {
    const Balance balance = m_journal.CurrentBalance(false);
    const auto answers = [&balance](int nLevel) {
        const auto found = balance.module.answersByLevel.find(nLevel);
        return found == balance.module.answersByLevel.end() ? 0 : found->second;
    };
    ScreenNumbers numbers;
    numbers.nLaunches = balance.launches.nCaptured;
    numbers.nFiles = balance.files.nCaptured;
    numbers.nWaitingEvents = balance.events.nWaiting;
    numbers.nWaitingMessages = balance.events.nWaitingMessages + balance.events.nEarlierWaiting;
    numbers.nQueries = balance.module.nQueries;
    numbers.nQueried = balance.events.nQueried;
    numbers.nCached = balance.events.nCached;
    numbers.nPackaged = answers(verdict_level::PACKAGED);
    numbers.nGoodAnswers = answers(verdict_level::GOOD);
    numbers.nUnknown = answers(verdict_level::UNKNOWN);
    numbers.nBadAnswers = answers(verdict_level::BAD);
    numbers.nBadRuns = balance.module.nBadRuns;
    numbers.nDropped = balance.events.nRefused + balance.events.nNotStored;
    numbers.nLost = balance.launches.nLost;
    numbers.nOverflows = balance.files.nOverflows;
    numbers.nUnexplained = balance.Unexplained();
    return numbers;
}
