#include "host/run/RunControl.h"

#include "host/report/screen/Terminal.h"

using std::chrono::steady_clock;

void RunControl::Begin() {
    m_stop.Begin(Terminal::Restore);
}

void RunControl::EndAfter(double dSeconds) {
    m_due = steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                      std::chrono::duration<double>(dSeconds));
}

bool RunControl::MustEnd() const {
    return m_stop.IsRequested() || m_output.IsBroken() || (m_due && steady_clock::now() >= *m_due);
}
