// Standard output and standard error of a command.
//
// Results go to standard output, everything else to standard error. Loaded modules may print on
// file descriptor 1 themselves, so a command that loads one takes standard output away first.
//
// Threads: any; one mutex, lines never mix.
// Errors: nothing throws but std::bad_alloc. Standard output that cannot be written (its reader
//   left, the disk is full) is reported once through IsBroken and gets nothing more. Lines for a
//   standard error that nobody reads are dropped, and their number is printed once it is read
//   again: the module's threads come here and must not stand still.
#ifndef HOST_BASE_CONSOLE_H
#define HOST_BASE_CONSOLE_H

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "host/base/Mutex.h"
#include "host/base/UniqueFd.h"

// What takes the place of lines while it draws the whole terminal.
class IScreen {
public:
    virtual ~IScreen() = default;
    // [any] strLine may hold line feeds.
    virtual void ScreenLine(const std::string& strLine, bool bError) = 0;
};

class Console {
public:
    enum Colour { COLOUR_NONE, COLOUR_BOLD, COLOUR_DIM, COLOUR_GREEN, COLOUR_YELLOW, COLOUR_RED };

    Console();  // standard output is file descriptor 1
    ~Console();

    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // [control, before a module is loaded] Moves standard output to a descriptor of its own; what
    // is printed on file descriptor 1 from now on goes to standard error.
    void TakeStandardOutput();

    void Line(const std::string& strLine);   // on standard output; a line feed is added
    void Error(const std::string& strLine);  // on standard error, likewise
    // Likewise, foreign text made safe and with the program's name before it.
    void Complain(const std::string& strText);

    // Replaces the progress line of standard error, on a terminal only; "" takes it away.
    void Progress(const std::string& strLine);

    // strText in that colour when standard output is a terminal and NO_COLOR is not set.
    std::string Paint(Colour eColour, const std::string& strText) const;

    bool HasProgress() const { return m_bErrorTerminal; }
    bool HasColour() const { return m_bColour; }
    // The descriptor of standard output when that is a terminal that a screen can be drawn on,
    // else -1.
    int TerminalFd() const;

    // Lines go to pScreen from now on, without colours, and errors as well; errors go to standard
    // error in addition when that is no terminal. Null ends it. When it has returned no call into
    // the screen before is running.
    void SetScreen(IScreen* pScreen);
    // Standard output is of no use any more.
    void Break(int nError);

    bool IsBroken() const { return m_bBroken.load(); }
    std::string BrokenReason() const;  // "" when its reader left, which needs no words

private:
    int Out() const TEV_REQUIRES(m_mutex) { return m_ownOut ? m_ownOut.Get() : STDOUT_FILENO; }
    bool WriteError(const std::string& strText) TEV_REQUIRES(m_mutex);
    void HideProgress() TEV_REQUIRES(m_mutex);
    void ShowProgress() TEV_REQUIRES(m_mutex);

    const bool m_bTerminal;
    const bool m_bColour;
    const bool m_bErrorTerminal;
    std::atomic<bool> m_bBroken{false};
    std::atomic<IScreen*> m_pScreen{nullptr};  // written with the mutex held
    mutable Mutex m_mutex;                     // keeps the order of lines, too
    // Standard output, once that was taken away.
    UniqueFd m_ownOut TEV_GUARDED_BY(m_mutex);
    int m_nBrokenError TEV_GUARDED_BY(m_mutex) = 0;
    bool m_bErrorStalled TEV_GUARDED_BY(m_mutex) = false;
    uint64_t m_nDropped TEV_GUARDED_BY(m_mutex) = 0;  // lines of standard error
    std::string m_strProgress TEV_GUARDED_BY(m_mutex);
};

#endif
