#include "tests/support/StdoutCapture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

StdoutCapture::StdoutCapture() : m_nFile(memfd_create("stdout", 0)), m_nOldStdout(dup(1)) {
    fflush(stdout);
    dup2(m_nFile, 1);
}

StdoutCapture::~StdoutCapture() {
    fflush(stdout);
    dup2(m_nOldStdout, 1);
    close(m_nOldStdout);
    close(m_nFile);
}

std::string StdoutCapture::Text() const {
    fflush(stdout);
    std::string strText;
    char buffer[4096];
    ssize_t nRead = 0;
    while ((nRead = pread(m_nFile, buffer, sizeof(buffer), static_cast<off_t>(strText.size()))) >
           0) {
        strText.append(buffer, static_cast<size_t>(nRead));
    }
    return strText;
}

std::vector<std::string> StdoutCapture::Lines() const {
    std::vector<std::string> lines;
    std::istringstream stream(Text());
    for (std::string strLine; std::getline(stream, strLine);) {
        lines.push_back(strLine);
    }
    return lines;
}
