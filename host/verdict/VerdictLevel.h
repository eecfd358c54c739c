// The levels of a verdict and what follows from one. No other file of the host knows their numbers,
// but for ModuleFacts: how long the module keeps a verdict of each.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_VERDICT_VERDICTLEVEL_H
#define HOST_VERDICT_VERDICTLEVEL_H

#include <array>
#include <string>

namespace verdict_level {

constexpr int PACKAGED = 10;  // a package of this machine brought the program
constexpr int GOOD = 20;      // a list of the operator names it as good
constexpr int UNKNOWN = 40;   // nobody knows it
constexpr int BAD = 70;       // a list of the operator names it as bad

// Those that this host gives, in order. The module takes others as well.
constexpr std::array<int, 4> GIVEN = {PACKAGED, GOOD, UNKNOWN, BAD};

enum Class {
    CLASS_GOOD,      // up to 20: the module does not ask about such a program's pipes
    CLASS_DOUBTFUL,  // neither
    CLASS_BAD,       // from 60: shown every time, also when the module skips the program
};

Class ClassOf(int nLevel);

// "packaged", "good", "unknown", "bad", else "level N".
std::string Word(int nLevel);

}  // namespace verdict_level

#endif
