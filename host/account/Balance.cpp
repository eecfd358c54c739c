#include "host/account/Balance.h"

#include <algorithm>

namespace {

uint64_t Difference(uint64_t nLeft, uint64_t nRight) {
    return nLeft > nRight ? nLeft - nRight : nRight - nLeft;
}

}  // namespace

uint64_t Balance::Outstanding() const {
    const uint64_t nEnds = module.nAnswers + module.nKnown + module.nNoKey + module.nLost;
    return module.nQueries - std::min(module.nQueries, nEnds);
}

uint64_t Balance::Unexplained() const {
    const uint64_t nLaunches = launches.nPrograms + launches.nUnresolvable + launches.nLost +
                               launches.nOwn + launches.nBroken;
    const uint64_t nFiles = files.nOwn + files.nElsewhere + files.nUnresolvable + files.nTold;
    const uint64_t nTooMany = nLaunches - std::min(launches.nSensed, nLaunches) +
                              (nFiles - std::min(files.nSensed, nFiles));
    // A query that could not be sent names nothing: its question is among the silent ones.
    const uint64_t nSilent = events.nSilent - std::min(events.nSilent, module.nNotSent);
    const uint64_t nEnds = events.nRefused + events.nNotStored + events.nWaiting + events.nBegun;
    const uint64_t nAtTheEnd =
        launches.Waiting() + files.Waiting() + nSilent + Outstanding() + Batched();
    return nTooMany + (bFinal ? nAtTheEnd : 0) + Difference(events.nSent + Batched(), Told()) +
           Difference(events.nSent, nEnds) +
           Difference(events.nQuestions, events.Settled() + events.nSilent);
}
