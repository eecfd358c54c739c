#include "host/kernel/script/OpenedScript.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace {

constexpr size_t FIRST_LINE = 256;  // as far as the kernel reads it

bool IsSameFile(const FileStatus& left, const FileStatus& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// "#! /bin/sh -e": the kernel takes what stands before the next blank.
std::string InterpreterOf(int nFd) {
    char bytes[FIRST_LINE];
    const ssize_t nRead = pread(nFd, bytes, sizeof(bytes), 0);
    const std::string strHead(bytes, nRead > 0 ? static_cast<size_t>(nRead) : 0);
    if (strHead.compare(0, 2, "#!") != 0) {
        return "";
    }
    const size_t nBegin = strHead.find_first_not_of(" \t", 2);
    if (nBegin == std::string::npos) {
        return "";
    }
    const size_t nEnd = strHead.find_first_of(std::string(" \t\n\0", 4), nBegin);
    return strHead.substr(nBegin, nEnd == std::string::npos ? nEnd : nEnd - nBegin);
}

}  // namespace

OpenedScripts::OpenedScripts(const std::vector<OpenedForStart>& files, LeadsTo fnLeadsTo)
    : m_files(files), m_fnLeadsTo(std::move(fnLeadsTo)) {
    const auto first = std::find_if(files.begin(), files.end(),
                                    [](const OpenedForStart& file) { return file.bInterpreter; });
    m_nInterpreter = static_cast<size_t>(first - files.begin());
    for (const OpenedForStart& file : files) {
        m_interps.push_back(InterpreterOf(file.nFd));
    }
    const auto script =
        std::find_if(m_interps.begin(), m_interps.end(),
                     [](const std::string& strInterp) { return !strInterp.empty(); });
    m_nFirstScript = static_cast<size_t>(script - m_interps.begin());
}

std::vector<OpenedScript> OpenedScripts::Find(const std::string& strInterp,
                                              const std::optional<FileStatus>& named) const {
    std::vector<OpenedScript> several = BeforeInterpreters(strInterp);
    if (several.size() > 1) {
        return several;
    }
    if (named) {
        if (const auto found = FindNamed(strInterp, *named)) {
            return {*found};
        }
    }
    if (m_nInterpreter == 0 || m_nInterpreter >= m_files.size()) {
        return {};
    }
    // What failed before may be a script as well, or the first of several.
    const size_t nLast = m_nInterpreter - 1;
    const bool bOnly = nLast == 0 || !IsScript(nLast - 1);
    return bOnly && m_interps[nLast] == strInterp ? std::vector<OpenedScript>{{nLast, false}}
                                                  : std::vector<OpenedScript>();
}

// The scripts that stand directly before an opening of the interpreter, each file once.
std::vector<OpenedScript> OpenedScripts::BeforeInterpreters(const std::string& strInterp) const {
    std::vector<OpenedScript> scripts;
    for (size_t i = 1; i < m_files.size(); ++i) {
        const auto isThis = [&](const OpenedScript& script) {
            return IsSameFile(m_files[script.nFile].status, m_files[i - 1].status);
        };
        if (m_files[i].bInterpreter && m_interps[i - 1] == strInterp &&
            std::none_of(scripts.begin(), scripts.end(), isThis)) {
            scripts.push_back({i - 1, false});
        }
    }
    return scripts;
}

std::optional<OpenedScript> OpenedScripts::FindNamed(const std::string& strInterp,
                                                     const FileStatus& named) const {
    const size_t nEnd = std::min(m_nInterpreter, m_files.size());
    for (size_t i = 0; i < nEnd; ++i) {
        if (!IsSameFile(m_files[i].status, named)) {
            continue;
        }
        if (m_nInterpreter < m_files.size()) {
            if (LeadsToInterpreter(i)) {
                return OpenedScript{i, i + 1 == m_nInterpreter};
            }
        } else if (m_interps[i] == strInterp && i == m_nFirstScript) {
            // Its interpreter was reported with an earlier start, as one of both.
            return OpenedScript{i, true};
        }
    }
    return std::nullopt;
}

// Directly, or by scripts that each lead to the next.
bool OpenedScripts::LeadsToInterpreter(size_t nFile) const {
    if (m_nInterpreter - nFile > MOST_SCRIPTS) {
        return false;
    }
    for (; nFile + 1 < m_nInterpreter; ++nFile) {
        if (!IsScript(nFile) || !IsScript(nFile + 1) ||
            !m_fnLeadsTo(m_interps[nFile], m_files[nFile + 1].status)) {
            return false;
        }
    }
    return true;
}
