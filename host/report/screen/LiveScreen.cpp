#include "host/report/screen/LiveScreen.h"

#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <utility>

#include "host/base/HumanText.h"
#include "host/verdict/VerdictLevel.h"

namespace {

constexpr std::chrono::seconds RATE_TIME(3);    // that rates are means of
constexpr std::chrono::seconds WHOLE_TIME(10);  // heals what others wrote on the terminal
constexpr size_t MOST_ERRORS = 30;              // printed once more at the end

bool IsUnicode() {
    for (const char* const pszName : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const pszValue = std::getenv(pszName);
        if (pszValue != nullptr && *pszValue != '\0') {
            const std::string strValue = pszValue;
            for (const char* const pszUtf8 : {"UTF-8", "utf-8", "UTF8", "utf8"}) {
                if (strValue.find(pszUtf8) != std::string::npos) {
                    return true;
                }
            }
            return false;
        }
    }
    return false;
}

// "09:30:00  text": the row has a time of its own.
std::string WithoutTime(const std::string& strLine) {
    const bool bTime = strLine.size() > 10 && strLine[2] == ':' && strLine[5] == ':' &&
                       strLine.compare(8, 2, "  ") == 0;
    return bTime ? strLine.substr(10) : strLine;
}

// A name may hold any byte, so its length stands before it.
std::string FoldKey(const VerdictRow& row) {
    return row.strWhat + "\n" + std::to_string(row.nLevel) + "\n" +
           std::to_string(row.strSubject.size()) + "\n" + row.strSubject + row.strBy;
}

bool IsFoldable(const VerdictRow& row) {
    return row.nLevel != 0 && verdict_level::ClassOf(row.nLevel) != verdict_level::CLASS_BAD;
}

}  // namespace

LiveScreen::LiveScreen(Console& output, MakeNumbers fnNumbers, std::function<void()> fnGone)
    : m_output(output),
      m_fnNumbers(std::move(fnNumbers)),
      m_fnGone(std::move(fnGone)),
      m_bColour(output.HasColour()),
      m_bUnicode(IsUnicode()),
      m_begun(Clock::now()) {}

LiveScreen::~LiveScreen() {
    End();
}

bool LiveScreen::Begin() {
    const int nFd = m_output.TerminalFd();
    if (nFd < 0 || !m_terminal.Open(nFd)) {
        m_terminal.Close();
        return false;
    }
    m_output.SetScreen(this);
    m_thread = std::thread(&LiveScreen::Run, this);
    return true;
}

void LiveScreen::End() {
    if (!m_thread.joinable()) {
        return;
    }
    {
        const MutexLock lock(m_mutex);
        m_bEnd = true;
        m_changed.NotifyAll();
    }
    m_thread.join();
    m_terminal.Close();
    m_output.SetScreen(nullptr);
    std::deque<std::string> errors;
    {
        const MutexLock lock(m_mutex);
        errors.swap(m_errors);
    }
    for (const std::string& strError : errors) {
        m_output.Error(strError);
    }
}

void LiveScreen::Add(VerdictRow row) {
    const MutexLock lock(m_mutex);
    const bool bFoldable = IsFoldable(row);
    const std::string strKey = bFoldable ? FoldKey(row) : "";
    if (bFoldable) {
        const auto found = m_foldable.find(strKey);
        if (found != m_foldable.end()) {
            row.nTimes += found->second->nTimes;
            m_rows.erase(found->second);
            m_foldable.erase(found);
        }
    }
    m_rows.push_back(std::move(row));
    if (bFoldable) {
        m_foldable[strKey] = std::prev(m_rows.end());
    }
    if (m_rows.size() > MOST_ROWS) {
        if (IsFoldable(m_rows.front())) {
            m_foldable.erase(FoldKey(m_rows.front()));
        }
        m_rows.pop_front();
    }
}

void LiveScreen::State(const std::string& strState) {
    const MutexLock lock(m_mutex);
    m_strState = strState;
}

// Several lines become several rows.
void LiveScreen::ScreenLine(const std::string& strLine, bool bError) {
    size_t nBegin = 0;
    while (nBegin <= strLine.size()) {
        const size_t nEnd = std::min(strLine.find('\n', nBegin), strLine.size());
        VerdictRow row;
        row.strTime = text::ClockNow();
        row.strSubject = WithoutTime(strLine.substr(nBegin, nEnd - nBegin));
        nBegin = nEnd + 1;
        Add(std::move(row));
    }
    if (bError) {
        const MutexLock lock(m_mutex);
        m_errors.push_back(strLine);
        if (m_errors.size() > MOST_ERRORS) {
            m_errors.pop_front();
        }
    }
}

std::vector<VerdictRow> LiveScreen::Rows() const {
    const MutexLock lock(m_mutex);
    return {m_rows.begin(), m_rows.end()};
}

void LiveScreen::Run() {
    pthread_setname_np(pthread_self(), "host_screen");
    MutexLock lock(m_mutex);
    while (!m_bEnd) {
        lock.Unlock();
        try {
            DrawNow();
        } catch (const std::exception&) {
            // Out of memory: this screen is left out.
        }
        lock.Lock();
        if (m_terminal.IsGone()) {
            lock.Unlock();
            m_fnGone();
            return;
        }
        const auto due = Clock::now() + BETWEEN_SCREENS;
        while (!m_bEnd && Clock::now() < due) {
            m_changed.WaitUntil(m_mutex, due);
        }
    }
}

void LiveScreen::DrawNow() {
    ScreenFormat screen;
    (void)m_terminal.Size(screen.nColumns, screen.nRows);  // unknown: 80 and 24
    screen.bColour = m_bColour;
    screen.bUnicode = m_bUnicode;
    ScreenNumbers numbers = m_fnNumbers();
    AddRates(numbers);
    numbers.strClock = text::ClockNow();
    const auto up = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - m_begun);
    numbers.nUpSeconds = static_cast<uint64_t>(up.count());
    std::vector<VerdictRow> rows;
    {
        const MutexLock lock(m_mutex);
        numbers.strState = m_strState;
        const auto nShown = static_cast<std::ptrdiff_t>(std::min(m_rows.size(), screen.nRows));
        rows.assign(std::prev(m_rows.end(), nShown), m_rows.end());
    }
    if (Clock::now() >= m_wholeDue) {
        m_terminal.ForgetDrawn();
        m_wholeDue = Clock::now() + WHOLE_TIME;
    }
    m_terminal.Draw(screen_layout::Lines(numbers, rows, screen));
}

void LiveScreen::AddRates(ScreenNumbers& numbers) {
    const auto now = Clock::now();
    m_samples.push_back({now, numbers.nLaunches, numbers.nFiles});
    while (m_samples.size() > 2 && now - m_samples.front().when > RATE_TIME) {
        m_samples.pop_front();
    }
    const Sample& oldest = m_samples.front();
    const double dSeconds = std::chrono::duration<double>(now - oldest.when).count();
    if (dSeconds > 0) {
        numbers.dLaunchRate = static_cast<double>(numbers.nLaunches - oldest.nLaunches) / dSeconds;
        numbers.dFileRate = static_cast<double>(numbers.nFiles - oldest.nFiles) / dSeconds;
    }
}
