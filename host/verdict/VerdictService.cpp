#include "host/verdict/VerdictService.h"

#include <utility>

#include "host/verdict/HexText.h"
#include "host/verdict/VerdictLevel.h"

namespace {

constexpr size_t SHA1_DIGITS = 40;
constexpr size_t MD5_DIGITS = 32;

}  // namespace

void VerdictService::AddSource(std::unique_ptr<IVerdictSource> pSource) {
    if (pSource) {
        m_sources.push_back(std::move(pSource));
    }
}

Verdict VerdictService::Decide(const std::string& strKey) const {
    if (const std::optional<ProgramKey> key = ParseKey(strKey)) {
        for (const auto& pSource : m_sources) {
            if (std::optional<Verdict> verdict = pSource->Lookup(*key)) {
                return *std::move(verdict);
            }
        }
    }
    return {verdict_level::UNKNOWN, "none", ""};
}

std::optional<ProgramKey> VerdictService::ParseKey(const std::string& strKey) {
    if (strKey.size() != SHA1_DIGITS + MD5_DIGITS || hex::CountDigits(strKey) != strKey.size()) {
        return std::nullopt;
    }
    const std::string strLower = hex::ToLower(strKey);
    return ProgramKey{strLower.substr(0, SHA1_DIGITS), strLower.substr(SHA1_DIGITS)};
}
