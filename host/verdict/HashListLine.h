// One line of a list of digests, in any of the formats that HashListSource reads.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_VERDICT_HASHLISTLINE_H
#define HOST_VERDICT_HASHLISTLINE_H

#include <string>
#include <string_view>

struct HashListLine {
    enum Kind {
        KIND_NOTHING,   // blank or a comment
        KIND_MD5,       // strDigest has 32 digits
        KIND_SHA1,      // strDigest has 40 digits
        KIND_UNUSABLE,  // well formed, but SHA-256, which no program key holds
        KIND_BAD,       // strProblem says what is wrong and what to do
    };

    Kind eKind = KIND_NOTHING;
    std::string strDigest;  // hexadecimal, in either case
    std::string strName;    // what the line says the digest is of, unescaped; never ""
    std::string strProblem;
};

// Reads strLine, given without its line feed; one carriage return at its end is dropped.
HashListLine ParseHashListLine(std::string_view strLine);

#endif
