// Catches what the process writes to standard output (file descriptor 1) while it lives.
#ifndef TESTS_SUPPORT_STDOUTCAPTURE_H
#define TESTS_SUPPORT_STDOUTCAPTURE_H

#include <string>
#include <vector>

class StdoutCapture {
public:
    StdoutCapture();
    ~StdoutCapture();  // gives standard output back

    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    std::string Text() const;                // everything so far
    std::vector<std::string> Lines() const;  // the same, without line feeds

private:
    int m_nFile;
    int m_nOldStdout;
};

// The lines that action writes there.
template <class Action>
std::vector<std::string> PrintedBy(Action action) {
    const StdoutCapture capture;
    action();
    return capture.Lines();
}

#endif
