#include "host/account/RunCounters.h"

#include "host/verdict/VerdictLevel.h"

namespace {

template <class Map>
void AddMap(Map& sum, const Map& other) {
    for (const auto& entry : other) {
        sum[entry.first] += entry.second;
    }
}

}  // namespace

void RunCounters::CountDelivery(const EventBatch& batch, bool bDelivered) {
    if (!bDelivered) {
        ++nNotDelivered;
        return;
    }
    ++nMessages;
    nCopies += batch.nCopies;
    nEvents += batch.nEvents;
}

void RunCounters::CountQuery(QueryFate eFate, const Verdict& verdict) {
    ++nQueries;
    nAnswers += eFate == QUERY_ANSWERED ? 1 : 0;
    nKnown += eFate == QUERY_KNOWN ? 1 : 0;
    nNoKey += eFate == QUERY_NO_KEY ? 1 : 0;
    nLost += IsLost(eFate) ? 1 : 0;
    if (eFate == QUERY_ANSWERED) {
        ++answersByLevel[verdict.nLevel];
    }
    if (eFate == QUERY_ANSWERED || eFate == QUERY_KNOWN) {
        ++queriesByLevel[verdict.nLevel];
        if (verdict.nLevel == verdict_level::PACKAGED) {
            ++queriesByPackage[verdict.strOwner];
        }
    }
}

void RunCounters::CountNote(ModuleNote eNote) {
    nAnalysed += eNote == NOTE_ANALYSED ? 1 : 0;
    nCached += eNote == NOTE_CACHED ? 1 : 0;
    nStatFailed += eNote == NOTE_STAT_FAILED ? 1 : 0;
    nUnreadable += eNote == NOTE_UNREADABLE ? 1 : 0;
    nNotSent += eNote == NOTE_NOT_SENT ? 1 : 0;
}

void RunCounters::Add(const RunCounters& other) {
    uint64_t RunCounters::*const NUMBERS[] = {
        &RunCounters::nMessages,     &RunCounters::nCopies,     &RunCounters::nEvents,
        &RunCounters::nNotDelivered, &RunCounters::nUnusable,   &RunCounters::nAnalysed,
        &RunCounters::nQueries,      &RunCounters::nAnswers,    &RunCounters::nKnown,
        &RunCounters::nNoKey,        &RunCounters::nLost,       &RunCounters::nNotSent,
        &RunCounters::nCached,       &RunCounters::nStatFailed, &RunCounters::nUnreadable,
        &RunCounters::nChanged,      &RunCounters::nBadRuns,    &RunCounters::nHashedBytes,
        &RunCounters::nCentre};
    for (uint64_t RunCounters::*const pNumber : NUMBERS) {
        this->*pNumber += other.*pNumber;
    }
    AddMap(queriesByLevel, other.queriesByLevel);
    AddMap(answersByLevel, other.answersByLevel);
    AddMap(queriesByPackage, other.queriesByPackage);
    dWorkBefore += other.WorkSeconds();
}

double RunCounters::WorkSeconds() const {
    return dWorkBefore + (firstWork && lastWork
                              ? std::chrono::duration<double>(*lastWork - *firstWork).count()
                              : 0);
}

double RunCounters::BytesPerSecond() const {
    const double dSeconds = WorkSeconds();
    return dSeconds > 0.001 ? static_cast<double>(nHashedBytes) / dSeconds : 0;
}
