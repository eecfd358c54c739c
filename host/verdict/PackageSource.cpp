#include "host/verdict/PackageSource.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"
#include "host/base/LineReader.h"
#include "host/verdict/VerdictLevel.h"

namespace {

constexpr std::string_view SUFFIX = ".md5sums";
constexpr size_t MD5_DIGITS = 32;
constexpr std::string_view MD5_OF_NOTHING = "d41d8cd98f00b204e9800998ecf8427e";

constexpr std::string_view DATA_FOLDERS[] = {"usr/share/doc/",  "usr/share/man/",
                                             "usr/share/info/", "usr/share/locale/",
                                             "usr/include/",    "usr/src/"};
constexpr std::string_view PROGRAM_FOLDERS[] = {"bin",   "sbin",   "lib",     "lib32",
                                                "lib64", "libx32", "libexec", "games"};

bool BeginsWith(std::string_view strText, std::string_view strBegin) {
    return strText.substr(0, strBegin.size()) == strBegin;
}

// The names of the md5sums files in alphabetical order, so that the first owner of a digest does
// not depend on the file system.
std::vector<std::string> FindFiles(const std::string& strInfoDir, std::string& strError) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator it(strInfoDir, error);
    for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        std::string strName = it->path().filename().string();
        if (strName.size() > SUFFIX.size() &&
            std::string_view(strName).substr(strName.size() - SUFFIX.size()) == SUFFIX) {
            names.push_back(std::move(strName));
        }
    }
    if (error) {
        strError = error.message();
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

std::unique_ptr<PackageSource> PackageSource::Load(const std::string& strInfoDir) {
    std::unique_ptr<PackageSource> pSource(new PackageSource);
    std::string strError;
    for (const std::string& strName : FindFiles(strInfoDir, strError)) {
        const std::string strPackage = strName.substr(0, strName.size() - SUFFIX.size());
        const uint32_t nPackage = static_cast<uint32_t>(pSource->m_packages.size());
        pSource->m_packages.push_back(strPackage.substr(0, strPackage.find(':')));
        pSource->AddFile(strInfoDir + "/" + strName, nPackage);
    }
    pSource->m_md5.Seal();

    const std::string strDir = text::ForTerminal(strInfoDir);
    if (!strError.empty()) {
        pSource->m_strNote = "the package database " + strDir + " cannot be read: " + strError +
                             "; programs it lists count as unknown";
    } else if (pSource->m_packages.empty()) {
        pSource->m_strNote = "the package database " + strDir +
                             " lists no package; programs of packages count as unknown";
    } else if (pSource->m_nPassedOver > 0) {
        pSource->m_strNote = "the package database " + strDir + ": " +
                             text::Count(pSource->m_nPassedOver, "unreadable line or file",
                                         "unreadable lines or files") +
                             " passed over, the first in " +
                             text::ForTerminal(pSource->m_strPassedOver) +
                             "; installing that package again restores them";
    }
    return pSource;
}

void PackageSource::AddFile(const std::string& strFile, uint32_t nPackage) {
    const size_t nBefore = m_nPassedOver;
    LineReader reader;
    LineReader::Result eResult = LineReader::RESULT_FAILED;
    if (reader.Open(strFile, true)) {
        std::string_view strLine;
        while ((eResult = reader.Next(strLine)) == LineReader::RESULT_LINE) {
            m_nPassedOver += AddLine(strLine, nPackage) ? 0 : 1;
        }
    }
    m_nPassedOver += eResult == LineReader::RESULT_END ? 0 : 1;
    if (nBefore == 0 && m_nPassedOver > 0) {
        m_strPassedOver = strFile;
    }
}

bool PackageSource::AddLine(std::string_view strLine, uint32_t nPackage) {
    // A name with a backslash in it: the escapes do not matter here, the folders are plain.
    if (BeginsWith(strLine, "\\")) {
        strLine.remove_prefix(1);
    }
    if (strLine.empty()) {
        return true;
    }
    const std::string_view strDigest = strLine.substr(0, MD5_DIGITS);
    DigestIndex<16>::Digest digest;
    if (!hex::Decode(strDigest, digest) || strLine.size() < MD5_DIGITS + 3 ||
        strLine[MD5_DIGITS] != ' ') {
        return false;
    }
    if (IsProgramPath(strLine.substr(MD5_DIGITS + 2)) && strDigest != MD5_OF_NOTHING) {
        m_md5.Add(digest, nPackage);
    }
    return true;
}

std::optional<Verdict> PackageSource::Lookup(const ProgramKey& key) const {
    const std::optional<uint32_t> nPackage = m_md5.Find(key.strMd5);
    if (!nPackage) {
        return std::nullopt;
    }
    return Verdict{verdict_level::PACKAGED, "packages", m_packages[*nPackage]};
}

bool PackageSource::IsProgramPath(std::string_view strPath) {
    for (const std::string_view strFolder : DATA_FOLDERS) {
        if (BeginsWith(strPath, strFolder)) {
            return false;
        }
    }
    if (BeginsWith(strPath, "opt/")) {
        return true;
    }
    for (size_t nEnd = strPath.find('/'); nEnd != std::string_view::npos;
         nEnd = strPath.find('/')) {
        const std::string_view strFolder = strPath.substr(0, nEnd);
        if (std::find(std::begin(PROGRAM_FOLDERS), std::end(PROGRAM_FOLDERS), strFolder) !=
            std::end(PROGRAM_FOLDERS)) {
            return true;
        }
        strPath.remove_prefix(nEnd + 1);
    }
    return false;
}
