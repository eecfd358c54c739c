// The steady screen of a watch on a terminal: it takes what happens and draws it a few times a
// second.
//
// What the module skips because it knows the verdict is folded into the line that the same program
// has already, with a count. A bad program has a line of its own every time.
//
// Threads: Begin and End on one thread; Add, State and ScreenLine from any. A thread of its own
//   draws. One mutex, not held while numbers are made or something is drawn.
// Errors: nothing throws but std::bad_alloc. fnGone is called once when the terminal is gone.
// Ownership: the output must outlive it.
#ifndef HOST_REPORT_SCREEN_LIVESCREEN_H
#define HOST_REPORT_SCREEN_LIVESCREEN_H

#include <chrono>
#include <deque>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "host/base/Console.h"
#include "host/base/MonotonicCondition.h"
#include "host/base/Mutex.h"
#include "host/report/screen/ScreenLayout.h"
#include "host/report/screen/Terminal.h"

class LiveScreen : public IScreen {
public:
    using Clock = MonotonicCondition::Clock;
    // All but the rates, the state and the clock.
    using MakeNumbers = std::function<ScreenNumbers()>;

    static constexpr size_t MOST_ROWS = 300;
    static constexpr std::chrono::milliseconds BETWEEN_SCREENS{200};

    LiveScreen(Console& output, MakeNumbers fnNumbers, std::function<void()> fnGone);
    ~LiveScreen() override;

    LiveScreen(const LiveScreen&) = delete;
    LiveScreen& operator=(const LiveScreen&) = delete;

    // Takes standard output's terminal; from now on lines of the output are lines of the screen.
    // False when there is none, and then nothing has changed.
    bool Begin();
    // Gives the terminal back as it was, and prints once more there what went wrong meanwhile.
    void End();

    void Add(VerdictRow row);
    void State(const std::string& strState);
    void ScreenLine(const std::string& strLine, bool bError) override;

    // The newest last.
    std::vector<VerdictRow> Rows() const;

private:
    struct Sample {
        Clock::time_point when;
        uint64_t nLaunches;
        uint64_t nFiles;
    };

    void Run();
    void DrawNow();
    void AddRates(ScreenNumbers& numbers);

    Console& m_output;
    const MakeNumbers m_fnNumbers;
    const std::function<void()> m_fnGone;
    const bool m_bColour;
    const bool m_bUnicode;
    const Clock::time_point m_begun;
    Terminal m_terminal;
    std::deque<Sample> m_samples;  // [the drawing thread]
    Clock::time_point m_wholeDue;  // [the drawing thread]
    mutable Mutex m_mutex;
    MonotonicCondition m_changed;
    bool m_bEnd TEV_GUARDED_BY(m_mutex) = false;
    std::string m_strState TEV_GUARDED_BY(m_mutex);
    std::list<VerdictRow> m_rows TEV_GUARDED_BY(m_mutex);
    std::unordered_map<std::string, std::list<VerdictRow>::iterator> m_foldable
        TEV_GUARDED_BY(m_mutex);
    std::deque<std::string> m_errors TEV_GUARDED_BY(m_mutex);
    std::thread m_thread;
};

#endif
