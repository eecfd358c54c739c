// Which of the files that a process opened to execute them is the script of one start. The kernel
// opens the script, perhaps further ones, then their interpreter and its loader; starts that failed
// stand before, and a file may be missing: one that the kernel did not report, or an interpreter
// that it reported once for two starts.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_SCRIPT_OPENEDSCRIPT_H
#define HOST_KERNEL_SCRIPT_OPENEDSCRIPT_H

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/program/FileLook.h"

// One of them; its descriptor is somebody else's.
struct OpenedForStart {
    int nFd = -1;
    FileStatus status;
    bool bInterpreter = false;  // it is the program that runs
};

struct OpenedScript {
    size_t nFile = 0;     // which of the files
    bool bNamed = false;  // the name of the start leads to it
};

class OpenedScripts {
public:
    // Whether a path of a first line leads to the file with this status.
    using LeadsTo = std::function<bool(const std::string& strPath, const FileStatus& status)>;

    // files: of the process, oldest first, without those of its earlier starts. Reads the first
    // line of each.
    OpenedScripts(const std::vector<OpenedForStart>& files, LeadsTo fnLeadsTo);

    // strInterp: as the last script names it. named: what the name of the start leads to. None when
    // it is not known which. Without a name only one directly before its interpreter, with no
    // other script before it. Several when the interpreter was opened several times: a start may
    // have failed after that, and nobody says which. The name decides nothing then, nor where one
    // script leads to another.
    std::vector<OpenedScript> Find(const std::string& strInterp,
                                   const std::optional<FileStatus>& named) const;
    // Whether the kernel reported of this start: then a file that it did not report is not it.
    bool Reported() const { return std::min(m_nInterpreter, m_nFirstScript) < m_files.size(); }

private:
    // The kernel follows no more.
    static constexpr size_t MOST_SCRIPTS = 6;

    std::vector<OpenedScript> BeforeInterpreters(const std::string& strInterp) const;
    bool LeadsToInterpreter(size_t nFile) const;
    bool IsScript(size_t nFile) const { return !m_interps[nFile].empty(); }
    std::optional<OpenedScript> FindNamed(const std::string& strInterp,
                                          const FileStatus& named) const;

    const std::vector<OpenedForStart>& m_files;
    const LeadsTo m_fnLeadsTo;
    std::vector<std::string> m_interps;  // of their first lines; "" for what is no script
    size_t m_nInterpreter;               // the first that runs; behind the last: none
    size_t m_nFirstScript;
};

#endif
