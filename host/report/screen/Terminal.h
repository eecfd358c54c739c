// A terminal whose whole screen is drawn, and that is as it was when the drawing ends: also after
// a crash, for which handlers of the signals that end a process stand while it is open.
//
// Threads: Open and Close on one thread, Draw on one other in between; Restore from any, signal
//   handlers included. One terminal of a process can be open at a time.
// Errors: IsGone reports a terminal that is gone; one that takes nothing (stopped by Ctrl-S, a
//   dead line) misses screens and holds up nobody.
#ifndef HOST_REPORT_SCREEN_TERMINAL_H
#define HOST_REPORT_SCREEN_TERMINAL_H

#include <cstddef>
#include <string>
#include <vector>

#include "host/base/UniqueFd.h"

class Terminal {
public:
    Terminal() = default;
    ~Terminal() { Close(); }

    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // nFd: a terminal, used through a descriptor of its own. False when that cannot be had.
    bool Open(int nFd);
    void Close();

    // False when it is not known.
    bool Size(size_t& nColumns, size_t& nRows) const;

    // Line by line from the top, what changed only; each takes at most the columns there are.
    void Draw(const std::vector<std::string>& lines);
    void ForgetDrawn() { m_drawn.clear(); }  // the next screen is drawn whole

    bool IsGone() const { return m_bGone; }

    // Makes the open terminal sane again, if one is open; before a process ends at once.
    static void Restore();

private:
    bool Write(const std::string& strText);

    UniqueFd m_fd;
    bool m_bGone = false;
    std::vector<std::string> m_drawn;
};

#endif
