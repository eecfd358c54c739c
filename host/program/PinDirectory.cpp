#include "host/program/PinDirectory.h"

#include <dirent.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr char PREFIX[] = "pins-";
constexpr size_t MOST_NAME_BYTES = 255;

bool RemoveAll(const std::string& strPath) {
    std::error_code error;
    (void)std::filesystem::remove_all(strPath, error);  // follows no link
    return !error;
}

bool RemoveEarlier(const std::string& strParent, std::string& strError) {
    std::error_code error;
    std::vector<std::string> earlier;
    for (auto entry = std::filesystem::directory_iterator(strParent, error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (entry->path().filename().native().rfind(PREFIX, 0) == 0) {
            earlier.push_back(entry->path().native());
        }
    }
    const bool bGone = !error && std::all_of(earlier.begin(), earlier.end(), RemoveAll);
    if (!bGone) {
        strError = "cannot remove what an earlier run left in " + strParent +
                   "; remove everything there whose name begins with " + PREFIX;
    }
    return bGone;
}

std::string RandomText() {
    unsigned char bytes[8] = {};
    if (getrandom(bytes, sizeof(bytes), 0) != static_cast<ssize_t>(sizeof(bytes))) {
        return "";
    }
    std::string strText;
    for (const unsigned char nByte : bytes) {
        strText += "0123456789abcdef"[nByte >> 4];
        strText += "0123456789abcdef"[nByte & 15];
    }
    return strText;
}

// The names of a path without ".", ".." and what that takes back.
std::vector<std::string> NamesOf(const std::string& strPath) {
    std::vector<std::string> names;
    for (size_t nStart = 0; nStart < strPath.size();) {
        const size_t nEnd = std::min(strPath.find('/', nStart), strPath.size());
        const std::string strName = strPath.substr(nStart, nEnd - nStart);
        if (strName == "..") {
            names.resize(names.empty() ? 0 : names.size() - 1);
        } else if (!strName.empty() && strName != ".") {
            names.push_back(strName);
        }
        nStart = nEnd + 1;
    }
    return names;
}

}  // namespace

PinLink::~PinLink() {
    --*m_pCount;
    (void)unlink(m_strPath.c_str());
    // Each directory holds nothing but the next.
    for (std::string strPath = m_strPath; strPath.size() > m_strRoot.size();) {
        strPath.resize(strPath.rfind('/'));
        if (rmdir(strPath.c_str()) != 0) {
            break;
        }
    }
}

PinDirectory::~PinDirectory() {
    if (!m_strDirectory.empty()) {
        (void)RemoveAll(m_strDirectory);
    }
}

bool PinDirectory::Open(const std::string& strParent, std::string& strError) {
    if (!RemoveEarlier(strParent, strError)) {
        return false;
    }
    const std::string strRandom = RandomText();
    m_strMark = std::string("/") + PREFIX + strRandom + "/";
    const std::string strDirectory = strParent + "/" + PREFIX + strRandom;
    if (strRandom.empty() || mkdir(strDirectory.c_str(), 0700) != 0) {
        strError = "cannot make " + strDirectory + ": " + std::strerror(errno);
        return false;
    }
    m_strDirectory = strDirectory;
    return true;
}

std::unique_ptr<PinLink> PinDirectory::Make(int nFd, const std::string& strName) {
    const std::vector<std::string> names = NamesOf(strName);
    const bool bLong = std::any_of(names.begin(), names.end(), [](const std::string& strPart) {
        return strPart.size() > MOST_NAME_BYTES || strPart.find('\0') != std::string::npos;
    });
    if (m_strDirectory.empty() || strName.empty() || strName.front() != '/' || names.empty() ||
        names.size() > MOST_NAMES || *m_pCount >= MOST_LINKS || strName.size() > MOST_BYTES ||
        bLong) {
        return nullptr;
    }
    const std::string strRoot = m_strDirectory + "/" + std::to_string(++m_nMade);
    std::string strPath = strRoot;
    for (const std::string& strPart : names) {
        if (mkdir(strPath.c_str(), 0700) != 0) {
            (void)RemoveAll(strRoot);
            return nullptr;
        }
        strPath += "/" + strPart;
    }
    if (symlink(("/proc/self/fd/" + std::to_string(nFd)).c_str(), strPath.c_str()) != 0) {
        (void)RemoveAll(strRoot);
        return nullptr;
    }
    ++*m_pCount;
    return std::make_unique<PinLink>(strRoot, strPath, m_pCount);
}

std::string PinDirectory::TrueNames(const std::string& strText) const {
    size_t nMark = m_strDirectory.empty() ? std::string::npos : strText.find(m_strMark);
    if (nMark == std::string::npos) {
        return strText;
    }
    std::string strTrue;
    size_t nDone = 0;
    for (; nMark != std::string::npos; nMark = strText.find(m_strMark, nDone)) {
        // A path begins where the directory's does; one with masked names in it is the whole text.
        const size_t nBefore = m_strDirectory.size() + 1 - m_strMark.size();
        const bool bWhole =
            nMark >= nDone + nBefore &&
            strText.compare(nMark - nBefore, nBefore, m_strDirectory, 0, nBefore) == 0;
        strTrue.append(strText, nDone, bWhole ? nMark - nBefore - nDone : 0);
        const size_t nNumber = nMark + m_strMark.size();
        nDone = std::min(strText.find('/', nNumber), strText.size());
    }
    return strTrue.append(strText, nDone, std::string::npos);
}
