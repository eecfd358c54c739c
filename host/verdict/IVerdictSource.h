// What knows verdicts: one list, one database. VerdictService asks several of them in turn.
//
// Threads: a source is filled by one thread and never changes afterwards; Lookup may then be
//   called from any number of threads at once.
#ifndef HOST_VERDICT_IVERDICTSOURCE_H
#define HOST_VERDICT_IVERDICTSOURCE_H

#include <optional>
#include <string>

#include "host/verdict/VerdictLevel.h"

// The two digests of one program file, lower-case hexadecimal.
struct ProgramKey {
    std::string strSha1;  // 40 digits
    std::string strMd5;   // 32 digits
};

struct Verdict {
    int nLevel = verdict_level::UNKNOWN;
    std::string strSource;  // who says so, for people: "packages", "bad list bad.hdb", "none"
    std::string strOwner;   // the package or the list entry that matched; foreign text, may be ""
};

class IVerdictSource {
public:
    virtual ~IVerdictSource() = default;

    // The verdict on key, nothing when this source does not know it. The answer depends on the
    // key alone and is the same every time.
    virtual std::optional<Verdict> Lookup(const ProgramKey& key) const = 0;
};

#endif
