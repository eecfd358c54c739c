// A descriptor of the process, standard output as a rule, is a terminal of the test's own while one
// lives. Made before the Console that is to see it. What the test itself prints, its failures, goes
// where it went.
#ifndef TESTS_SUPPORT_HOST_ONTERMINAL_H
#define TESTS_SUPPORT_HOST_ONTERMINAL_H

#include <unistd.h>

#include <cstdio>

#include "tests/support/Pty.h"
#include "tests/support/host/Variable.h"

class OnTerminal {
public:
    explicit OnTerminal(const Pty& pty, int nFd = STDOUT_FILENO, const char* pszNoColour = nullptr)
        : m_term("TERM", "xterm"),
          m_noColour("NO_COLOR", pszNoColour),
          m_nFd(nFd),
          m_nOld(dup(nFd)) {
        fflush(stdout);
        (void)dup2(pty.Terminal(), m_nFd);
        if (m_nFd == STDOUT_FILENO) {
            stdout = fdopen(dup(m_nOld), "w");
        }
    }
    ~OnTerminal() {
        if (stdout != m_pOldStream) {
            fclose(stdout);
            stdout = m_pOldStream;
        }
        (void)dup2(m_nOld, m_nFd);
        close(m_nOld);
    }

    OnTerminal(const OnTerminal&) = delete;
    OnTerminal& operator=(const OnTerminal&) = delete;

private:
    const Variable m_term;
    const Variable m_noColour;
    const int m_nFd;
    const int m_nOld;
    FILE* const m_pOldStream = stdout;
};

#endif
