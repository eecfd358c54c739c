// A source of verdicts that knows one program, by its MD5 digest.
#ifndef TESTS_SUPPORT_HOST_ONEDIGESTSOURCE_H
#define TESTS_SUPPORT_HOST_ONEDIGESTSOURCE_H

#include <optional>
#include <string>
#include <utility>

#include "host/verdict/IVerdictSource.h"

class OneDigestSource : public IVerdictSource {
public:
    // pLookups: counts the lookups where it is not null; the caller's, which outlives the source.
    OneDigestSource(std::string strMd5, Verdict verdict, int* pLookups = nullptr)
        : m_strMd5(std::move(strMd5)), m_verdict(std::move(verdict)), m_pLookups(pLookups) {}

    std::optional<Verdict> Lookup(const ProgramKey& key) const override {
        if (m_pLookups != nullptr) {
            ++*m_pLookups;
        }
        return key.strMd5 == m_strMd5 ? std::optional<Verdict>(m_verdict) : std::nullopt;
    }

private:
    const std::string m_strMd5;
    const Verdict m_verdict;
    int* const m_pLookups;
};

#endif
