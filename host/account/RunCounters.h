// What happened in a run, or in one pass of it.
#ifndef HOST_ACCOUNT_RUNCOUNTERS_H
#define HOST_ACCOUNT_RUNCOUNTERS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "host/cloud/CloudQuery.h"
#include "host/event/IEventSource.h"
#include "host/module/ModuleLog.h"
#include "host/verdict/IVerdictSource.h"

struct RunCounters {
    using Clock = std::chrono::steady_clock;

    uint64_t nMessages = 0;      // delivered: the module's callback has returned
    uint64_t nCopies = 0;        // how often they were queued
    uint64_t nEvents = 0;        // events in them
    uint64_t nNotDelivered = 0;  // messages refused, or not sent before the end
    uint64_t nUnusable = 0;      // pieces of input that no message could be made of
    uint64_t nAnalysed = 0;      // messages that the module analysed, older ones included

    uint64_t nQueries = 0;  // every query that came
    uint64_t nAnswers = 0;  // answers sent, at most one a key
    uint64_t nKnown = 0;    // queries for a key that was answered before
    uint64_t nNoKey = 0;    // queries that want no answer
    uint64_t nLost = 0;     // queries that no answer could be sent to, or that were unreadable
    uint64_t nNotSent = 0;  // queries that the module could not send

    uint64_t nCached = 0;       // skip records of its log: verdict in the cache
    uint64_t nStatFailed = 0;   // likewise: file's status cannot be had
    uint64_t nUnreadable = 0;   // likewise: program cannot be read
    uint64_t nHashedBytes = 0;  // sizes of the programs hashed, as far as they are named
    uint64_t nCentre = 0;       // records sent to the centre
    uint64_t nChanged = 0;      // launches whose file was another when the module hashed it
    uint64_t nBadRuns = 0;      // times that a program with a bad verdict was launched or acted

    std::map<int, uint64_t> queriesByLevel;  // queries with a key, by verdict
    std::map<int, uint64_t> answersByLevel;
    std::map<std::string, uint64_t> queriesByPackage;  // of level 10

    std::optional<Clock::time_point> firstWork;  // the module began to look at messages
    std::optional<Clock::time_point> lastWork;   // its last query or log record
    double dWorkBefore = 0;                      // seconds of work that Add brought in

    void CountDelivery(const EventBatch& batch, bool bDelivered);

    void CountQuery(QueryFate eFate, const Verdict& verdict);

    // What the module says of one message, one event or one query.
    void CountNote(ModuleNote eNote);

    // Adds what happened in another pass. Its time of work counts, not the pause before it.
    void Add(const RunCounters& other);

    // From the module's first activity to its last, pauses between included; of each pass by
    // itself.
    double WorkSeconds() const;
    double BytesPerSecond() const;  // of work; 0 when that is too short
};

#endif
