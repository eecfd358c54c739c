#include "host/source/StarterTable.h"

#include <unistd.h>

#include <climits>

std::string StarterTable::StarterOf(const LaunchEvent& event) const {
    const auto found = m_programs.find(event.nPpid);
    if (found != m_programs.end()) {
        return found->second;
    }
    char szPath[PATH_MAX] = "";
    const std::string strLink = "/proc/" + std::to_string(event.nPpid) + "/exe";
    const ssize_t nLength = readlink(strLink.c_str(), szPath, sizeof(szPath));
    return std::string(szPath, nLength > 0 ? static_cast<size_t>(nLength) : 0);
}

void StarterTable::Note(const LaunchEvent& event, const std::string& strProgram) {
    switch (event.eKind) {
        case LAUNCH_KIND_EXEC:
            Put(event.nPid, strProgram);
            break;
        case LAUNCH_KIND_FORK: {
            const auto parent = m_programs.find(event.nPpid);
            if (parent != m_programs.end()) {
                Put(event.nPid, std::string(parent->second));
            } else {
                m_programs.erase(event.nPid);  // a number that is used again
            }
            break;
        }
        case LAUNCH_KIND_EXIT:
            m_programs.erase(event.nPid);
            break;
    }
}

// A table that is full, after ends that were lost, begins anew; /proc fills the gaps.
void StarterTable::Put(uint32_t nPid, const std::string& strProgram) {
    if (m_programs.size() >= MOST_PROCESSES && m_programs.count(nPid) == 0) {
        m_programs.clear();
    }
    m_programs[nPid] = strProgram;
}
