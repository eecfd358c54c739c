#include "host/kernel/file/KnownFiles.h"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

KnownFiles::KnownFiles(FileLook fnLook, NamesIn fnNames,
                       std::function<bool(const std::string& strPath)> fnWanted, size_t nMost)
    : m_fnLook(std::move(fnLook)),
      m_fnNames(std::move(fnNames)),
      m_fnWanted(std::move(fnWanted)),
      m_nMost(nMost) {}

// Nothing when no file to be known has this path.
std::optional<KnownFiles::Known> KnownFiles::Look(const std::string& strPath,
                                                  bool& bDirectory) const {
    FileStatus status;
    const bool bThere = m_fnLook(strPath, status);
    const mode_t nKind = status.st_mode & S_IFMT;
    bDirectory = bThere && S_ISDIR(status.st_mode);
    const bool bKind = nKind == S_IFREG || nKind == S_IFLNK || nKind == S_IFIFO;
    if (!bThere || !bKind || !m_fnWanted(strPath)) {
        return std::nullopt;
    }
    Known known;
    known.nDevice = status.st_dev;
    known.nInode = status.st_ino;
    known.nSize = static_cast<uint64_t>(status.st_size);
    known.nWritten = status.st_mtim.tv_sec * int64_t{1000000000} + status.st_mtim.tv_nsec;
    known.nChanged = status.Changed();
    known.bLinked = nKind == S_IFREG && status.st_nlink > 1;
    return known;
}

std::vector<FoundFile> KnownFiles::Compare(const std::vector<std::string>& directories) {
    m_looked.clear();
    m_bFull = false;
    std::vector<FoundFile> found;
    CompareKnown(found);
    FindNew(directories, found);
    std::sort(found.begin(), found.end(), [](const FoundFile& left, const FoundFile& right) {
        return left.strPath < right.strPath;
    });
    return found;
}

// By their paths: a walk that meets a bound says nothing about what it has not met.
void KnownFiles::CompareKnown(std::vector<FoundFile>& found) {
    for (auto at = m_known.begin(); at != m_known.end();) {
        Known& known = at->second;
        bool bDirectory = false;
        const std::optional<Known> now = Look(at->first, bDirectory);
        if (!now) {
            found.push_back({FILE_REMOVE, at->first, known.nInode});
            at = m_known.erase(at);
            continue;
        }
        if (now->nDevice != known.nDevice || now->nInode != known.nInode) {
            found.push_back({FILE_CREATE, at->first, now->nInode});
        } else if (now->nSize != known.nSize || now->nWritten != known.nWritten ||
                   now->nChanged != known.nChanged) {
            found.push_back({FILE_WRITE, at->first, now->nInode});
        }
        known = *now;
        Note(at->first, known);
        ++at;
    }
}

void KnownFiles::FindNew(std::vector<std::string> directories, std::vector<FoundFile>& found) {
    for (size_t nWalked = 0; !directories.empty() && !m_bFull; ++nWalked) {
        const std::string strDirectory = std::move(directories.back());
        directories.pop_back();
        m_bFull = nWalked >= m_nMost;
        for (const std::string& strName : m_fnNames(strDirectory, m_nMost)) {
            const std::string strPath = strDirectory + "/" + strName;
            bool bDirectory = false;
            const auto now = m_known.count(strPath) != 0 ? std::nullopt : Look(strPath, bDirectory);
            if (bDirectory && directories.size() < m_nMost) {
                directories.push_back(strPath);
            }
            if (now && Add(strPath, *now)) {
                found.push_back({FILE_CREATE, strPath, now->nInode});
            }
        }
    }
}

bool KnownFiles::Add(const std::string& strPath, const Known& known) {
    const bool bRoom = m_known.size() < m_nMost || m_known.count(strPath) != 0;
    if (bRoom) {
        m_known[strPath] = known;
        Note(strPath, known);
    }
    m_bFull = m_bFull || !bRoom;
    return bRoom;
}

void KnownFiles::Note(const std::string& strPath, const Known& known) {
    AddName(known.nInode, strPath);
    if (known.bLinked) {
        m_linked.push_back(strPath);
    }
}

// Names of the past are left out when there are as many of them as files.
void KnownFiles::AddName(uint64_t nInode, const std::string& strPath) {
    if (m_names.size() >= 2 * m_nMost) {
        m_names.clear();
        for (const auto& [strKnown, known] : m_known) {
            m_names[known.nInode] = strKnown;
        }
    }
    m_names[nInode] = strPath;
}

std::string KnownFiles::NameOf(uint64_t nInode) const {
    const auto found = m_names.find(nInode);
    return found == m_names.end() ? "" : found->second;
}

void KnownFiles::Reported(const std::string& strPath, uint64_t nInode) {
    if (m_reported.size() < m_nMost) {
        m_reported.insert(strPath);
    }
    if (nInode != 0) {
        AddName(nInode, strPath);
    }
}

void KnownFiles::Settle() {
    for (const auto& [strPath, known] : m_looked) {
        if (known) {
            (void)Add(strPath, *known);
        } else {
            Forget(strPath);
        }
    }
    m_looked.clear();
    for (const std::string& strPath : std::exchange(m_reported, {})) {
        bool bDirectory = false;
        const std::optional<Known> now = Look(strPath, bDirectory);
        if (!bDirectory) {
            m_looked[strPath] = now;
        }
    }
}

// With what was below it, when it was a directory.
void KnownFiles::Forget(const std::string& strPath) {
    m_known.erase(strPath);
    const std::string strBelow = strPath + "/";
    auto at = m_known.lower_bound(strBelow);
    while (at != m_known.end() && at->first.compare(0, strBelow.size(), strBelow) == 0) {
        at = m_known.erase(at);
    }
}
