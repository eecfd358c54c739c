// Answers queries: asks its sources in the order in which they were added, the first that knows
// the program decides.
//
// Threads: AddSource before the first Decide; then Decide from any thread.
// Errors: none but std::bad_alloc. Ownership: owns its sources.
#ifndef HOST_VERDICT_VERDICTSERVICE_H
#define HOST_VERDICT_VERDICTSERVICE_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/verdict/IVerdictSource.h"

class VerdictService {
public:
    void AddSource(std::unique_ptr<IVerdictSource> pSource);

    // The verdict on the program whose SHA-1 and MD5 stand in strKey one after the other. Level
    // 40 from source "none" when no source knows it, and for a text that is no such key.
    Verdict Decide(const std::string& strKey) const;

    // strKey taken apart, in lower case. Nothing unless it is exactly 72 hexadecimal digits.
    static std::optional<ProgramKey> ParseKey(const std::string& strKey);

private:
    std::vector<std::unique_ptr<IVerdictSource>> m_sources;
};

#endif
