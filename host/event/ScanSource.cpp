#include "host/event/ScanSource.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/event/EventMessage.h"

ScanSource::ScanSource(std::vector<std::string> paths, size_t nBatch, SourceRemark fnRemark)
    : m_paths(std::move(paths)),
      m_nBatch(std::max<size_t>(1, nBatch)),
      m_fnRemark(std::move(fnRemark)) {}

std::string ScanSource::Name() const {
    std::string strName;
    for (const std::string& strGiven : m_paths) {
        strName += (strName.empty() ? "" : ", ") + strGiven;
    }
    return strName;
}

bool ScanSource::Start(std::string& strError) {
    for (const std::string& strGiven : m_paths) {
        struct stat status = {};
        if (stat(strGiven.c_str(), &status) != 0) {
            strError = "cannot look at " + strGiven + ": " + std::strerror(errno) +
                       "; name directories and programs that exist";
            return false;
        }
        m_open.emplace_back(strGiven, true);
    }
    std::reverse(m_open.begin(), m_open.end());
    return true;
}

SourceResult ScanSource::Next(EventBatch& batch, std::chrono::milliseconds /*wait*/) {
    while (!m_bStopped && !m_open.empty() && m_found.size() < m_nBatch) {
        const std::pair<std::string, bool> next = std::move(m_open.back());
        m_open.pop_back();
        Visit(next.first, next.second);
    }
    if (m_bStopped || m_found.empty()) {
        return SOURCE_END;
    }
    batch.strBody = event_message::ProcessCreations(m_found);
    batch.nEvents = m_found.size();
    batch.nNumber = ++m_counters.nBatches;
    m_counters.nEvents += m_found.size();
    m_found.clear();
    return SOURCE_BATCH;
}

void ScanSource::Visit(const std::string& strPath, bool bNamed) {
    struct stat status = {};
    const bool bThere = lstat(strPath.c_str(), &status) == 0;
    const bool bLink = bThere && S_ISLNK(status.st_mode);
    if (!bThere || (bLink && stat(strPath.c_str(), &status) != 0)) {
        return;  // gone since the directory was read, or a link to nothing
    }
    if (S_ISDIR(status.st_mode)) {
        if (!bLink || bNamed) {
            OpenDirectory(strPath, status);
        }
    } else if (S_ISREG(status.st_mode) && (status.st_mode & 0111) != 0) {
        m_found.push_back(strPath);
    } else if (bNamed) {
        ++m_counters.nUnusable;
        m_fnRemark(0, strPath + " is not a program: no regular file with an execute bit");
    }
}

void ScanSource::OpenDirectory(const std::string& strPath, const struct stat& status) {
    if (!m_walked.emplace(status.st_dev, status.st_ino).second) {
        return;
    }
    DIR* const pDirectory = opendir(strPath.c_str());
    if (pDirectory == nullptr) {
        ++m_counters.nUnusable;
        m_fnRemark(0, "cannot read the directory " + strPath + ": " + std::strerror(errno));
        return;
    }
    std::vector<std::string> names;
    while (const dirent* pEntry = readdir(pDirectory)) {
        const std::string strName = pEntry->d_name;
        // Files without a chance to be a program are most of a tree; a link may lead to one.
        const bool bWanted = pEntry->d_type == DT_REG || pEntry->d_type == DT_DIR ||
                             pEntry->d_type == DT_LNK || pEntry->d_type == DT_UNKNOWN;
        if (bWanted && strName != "." && strName != "..") {
            names.push_back(strName);
        }
    }
    closedir(pDirectory);
    std::sort(names.rbegin(), names.rend());  // the next one last
    const std::string strPrefix = strPath.back() == '/' ? strPath : strPath + "/";
    for (const std::string& strName : names) {
        m_open.emplace_back(strPrefix + strName, false);
    }
}
