#include "host/verdict/HashListSource.h"

#include <cstdint>
#include <limits>

#include "framework/base/file_utils.h"
#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"
#include "host/base/LineReader.h"
#include "host/verdict/HashListLine.h"
#include "host/verdict/VerdictLevel.h"

namespace {

constexpr size_t EXCERPT_BYTES = 48;
constexpr std::string_view UTF8_MARK = "\xEF\xBB\xBF";  // editors put it before the first line

std::string At(const std::string& strFile, size_t nLine) {
    return text::ForTerminal(strFile) + ":" + std::to_string(nLine) + ": ";
}

std::string Excerpt(std::string_view strLine) {
    const std::string strBegin(strLine.substr(0, EXCERPT_BYTES));
    return " (\"" + text::ForTerminal(strBegin) +
           (strLine.size() > EXCERPT_BYTES ? "...\")" : "\")");
}

}  // namespace

HashListSource::HashListSource(const std::string& strFile, int nLevel)
    : m_strFile(strFile), m_nLevel(nLevel) {}

std::unique_ptr<HashListSource> HashListSource::Load(const std::string& strFile, int nLevel,
                                                     std::string& strError) {
    LineReader reader;
    if (!reader.Open(strFile, false)) {
        strError = "cannot read the list " + text::ForTerminal(strFile) + ": " + reader.Error() +
                   "; give the path of a text file that this user may read";
        return nullptr;
    }
    std::unique_ptr<HashListSource> pSource(new HashListSource(strFile, nLevel));
    std::string_view strLine;
    for (size_t nLine = 1;; ++nLine) {
        switch (reader.Next(strLine)) {
            case LineReader::RESULT_LINE:
                break;
            case LineReader::RESULT_END:
                pSource->m_md5.Seal();
                pSource->m_sha1.Seal();
                pSource->m_strNames.shrink_to_fit();
                return pSource;
            case LineReader::RESULT_TOO_LONG:
                strError = At(strFile, nLine) + "the line is longer than " +
                           text::Bytes(LineReader::MAX_LINE) +
                           "; give a list in one of the formats of sha1sum, md5sum, .hdb or .hsb";
                return nullptr;
            case LineReader::RESULT_FAILED:
                strError = At(strFile, nLine) + "reading ended with: " + reader.Error() +
                           "; copy the list to a place that can be read";
                return nullptr;
        }
        if (nLine == 1 && strLine.substr(0, UTF8_MARK.size()) == UTF8_MARK) {
            strLine.remove_prefix(UTF8_MARK.size());
        }
        std::string strProblem;
        if (!pSource->AddLine(strLine, strProblem)) {
            strError = At(strFile, nLine) + strProblem + Excerpt(strLine);
            return nullptr;
        }
    }
}

bool HashListSource::AddLine(std::string_view strLine, std::string& strError) {
    HashListLine line = ParseHashListLine(strLine);
    if (line.eKind == HashListLine::KIND_BAD) {
        strError = std::move(line.strProblem);
        return false;
    }
    if (line.eKind == HashListLine::KIND_NOTHING) {
        return true;
    }
    if (line.eKind == HashListLine::KIND_UNUSABLE) {
        ++m_nUnusable;
        return true;
    }
    if (m_strNames.size() + line.strName.size() >= std::numeric_limits<uint32_t>::max()) {
        strError = "the names of this list take more than 4 GiB; split the list into several";
        return false;
    }
    const uint32_t nOwner = static_cast<uint32_t>(m_strNames.size());
    m_strNames.append(line.strName).push_back('\0');
    if (line.eKind == HashListLine::KIND_MD5) {
        DigestIndex<16>::Digest digest;
        (void)hex::Decode(line.strDigest, digest);  // the line was found to be 32 digits
        m_md5.Add(digest, nOwner);
    } else {
        DigestIndex<20>::Digest digest;
        (void)hex::Decode(line.strDigest, digest);  // the line was found to be 40 digits
        m_sha1.Add(digest, nOwner);
    }
    return true;
}

std::optional<Verdict> HashListSource::Lookup(const ProgramKey& key) const {
    std::optional<uint32_t> nOwner = m_sha1.Find(key.strSha1);
    if (!nOwner) {
        nOwner = m_md5.Find(key.strMd5);
    }
    if (!nOwner) {
        return std::nullopt;
    }
    const std::string strList = m_nLevel == verdict_level::BAD ? "bad list " : "good list ";
    return Verdict{m_nLevel, strList + file_utils::GetFileName(m_strFile),
                   m_strNames.c_str() + *nOwner};
}

std::string HashListSource::Note() const {
    const std::string strFile = text::ForTerminal(m_strFile);
    if (m_nUnusable > 0) {
        return strFile + ": " + text::Count(m_nUnusable, "SHA-256 digest") +
               " cannot be used, programs are known by SHA-1 and MD5; add those";
    }
    return Count() == 0 ? strFile + ": the list holds no digest" : "";
}
