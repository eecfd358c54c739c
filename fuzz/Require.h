// What fuzz targets demand: unlike assert, also in builds without asserts.
#ifndef FUZZ_REQUIRE_H
#define FUZZ_REQUIRE_H

#include <cstdlib>

inline void Require(bool bHolds) {
    if (!bHolds) {
        std::abort();
    }
}

#endif
