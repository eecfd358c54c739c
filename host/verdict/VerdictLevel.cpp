#include "host/verdict/VerdictLevel.h"

namespace verdict_level {

namespace {

constexpr int LEAST_BAD = 60;

}  // namespace

Class ClassOf(int nLevel) {
    if (nLevel >= LEAST_BAD) {
        return CLASS_BAD;
    }
    return nLevel <= GOOD ? CLASS_GOOD : CLASS_DOUBTFUL;
}

std::string Word(int nLevel) {
    switch (nLevel) {
        case PACKAGED:
            return "packaged";
        case GOOD:
            return "good";
        case UNKNOWN:
            return "unknown";
        case BAD:
            return "bad";
        default:
            return "level " + std::to_string(nLevel);
    }
}

}  // namespace verdict_level
