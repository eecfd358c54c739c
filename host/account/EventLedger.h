// What became of every event of this run, launch or file operation: its message waits in the queue
// or was not stored; the module ignored it; or for each query that the event gives reason for there
// was one, or a record of the module's log that explains why not, or the state of the file does.
// What is left is unexplained.
//
// The module logs which message it begins to analyse, and analyses messages in the order in which
// they came. Which queries to expect is read from the message then.
//
// Threads: any; one mutex, not held while files are examined. Errors: none but std::bad_alloc.
#ifndef HOST_ACCOUNT_EVENTLEDGER_H
#define HOST_ACCOUNT_EVENTLEDGER_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/account/EventExcuse.h"
#include "host/account/ModuleOutcome.h"
#include "host/base/Mutex.h"
#include "host/module/ExpectedQueries.h"
#include "host/program/HeldFile.h"

struct LedgerState {
    uint64_t nSent = 0;             // events in messages that were sent, or refused before that
    uint64_t nRefused = 0;          // of these: by the router, or at the bound on the queue
    uint64_t nWaiting = 0;          // of these: in messages that wait for analysis
    uint64_t nWaitingMessages = 0;  // those messages
    uint64_t nNotStored = 0;        // of these: their message never came into the queue
    uint64_t nAnalysed = 0;         // of these: in messages that the module began to analyse

    uint64_t nEarlierWaiting = 0;   // messages of earlier runs that wait
    uint64_t nEarlierAnalysed = 0;  // events in messages of earlier runs, or analysed once more

    uint64_t nIgnored = 0;   // of both kinds of nAnalysed: the module queries nothing about them
    uint64_t nExpected = 0;  // queries about the others, two for a few of them

    uint64_t nQueried = 0;     // of these: the query came
    uint64_t nCached = 0;      // of these: skipped, the program's verdict is known
    uint64_t nUnreadable = 0;  // of these: skipped, the program cannot be read
    uint64_t nStatFailed = 0;  // of these: skipped, the file's status cannot be had
    uint64_t nVanished = 0;    // of these: no regular file, or no pipe, any more
    uint64_t nKnownMaker = 0;  // of these: a pipe of a program with a good verdict
    uint64_t nMissing = 0;     // of these: nothing explains it, or not yet

    uint64_t nUnmatched = 0;  // queries and log records that no open expectation matches

    // Expected queries whose end is known.
    uint64_t Settled() const {
        return nQueried + nCached + nUnreadable + nStatFailed + nVanished + nKnownMaker;
    }
};

// A launch of the message in hand whose file the module does not find, or not as it was started.
struct StrayLaunch {
    size_t nElement = 0;  // of the message
    std::string strFile;  // its path there
    HeldFileRef pFile;    // null when it is not held any more
};

// A message whose analysis has begun.
struct AnalysedMessage {
    uint64_t nNumber = 0;  // 0: of an earlier run, or once more
    uint64_t nEvents = 0;
    std::vector<StrayLaunch> gone = {};  // those that nothing leads to; held
};

// An expected query that has ended.
struct EndedQuery {
    ExpectedQuery expected;
    HeldFileRef pFile;      // of a launch; null when it is not held
    bool bChanged = false;  // of a launch: what the module hashed is not what was started
};

class EventLedger {
public:
    using Clock = std::chrono::steady_clock;
    using KnownMaker = EventExcuse::KnownMaker;

    // Expected queries held at most, and for how long; beyond it they count as they stand.
    static constexpr size_t MOST_EXPECTED = 100000;
    static constexpr size_t MOST_BYTES = 64 << 20;  // of their texts, without one message's
    static constexpr std::chrono::seconds LONGEST_OPEN{120};

    explicit EventLedger(KnownMaker fnKnownMaker = {}) : m_excuses(std::move(fnKnownMaker)) {}

    // Before the module starts: messages that wait from earlier runs.
    void SetEarlier(uint64_t nMessages);
    // Before message nNumber is given to the router, which will be stored nCopies times with so
    // many events in all.
    void Report(uint64_t nNumber, const std::string& strBody, uint64_t nEvents,
                uint64_t nCopies = 1, const std::vector<HeldFileRef>& files = {});
    void Refuse(uint64_t nNumber);
    // [the module's thread] The module begins to analyse this message now. Which one it is.
    AnalysedMessage Analyse(const std::string& strBody, Clock::time_point now = Clock::now());
    // The expected query that this ends; nothing when none matches.
    std::optional<EndedQuery> Match(const ModuleOutcome& outcome);
    // [the module's thread] The module has hashed strFile for the message in hand. The launch that
    // it did this for, where fnIsSame says that it is not the file that was started.
    using IsSame =
        std::function<bool(const HeldFile* pFile, const std::optional<FileVersion>& version)>;
    std::optional<StrayLaunch> Hashed(const std::string& strFile, const IsSame& fnIsSame);
    // So many messages are in the queue now that the module has stopped: the others that wait
    // were not stored.
    void End(uint64_t nStoredMessages);

    // Without a look at files: what has no outcome is missing, unless the state of its file
    // explained it when its analysis began.
    LedgerState State() const;
    // With one, for the end.
    LedgerState FinalState() const;

private:
    struct Message {
        uint64_t nNumber;
        size_t nHash;  // of its text
        uint64_t nEvents;
        uint64_t nCopy;                  // which one of the message, from 0
        std::vector<HeldFileRef> files;  // of its elements; empty for none
    };
    struct Open;
    using Index = std::multimap<std::string, std::list<Open>::iterator>;
    struct Open {
        uint64_t nNumber = 0;  // in their order, from 1
        ExpectedQuery expected;
        Excuse eExcuse = EXCUSE_NONE;  // why there would be no outcome
        Clock::time_point begun;
        Index::iterator byFile, byProgram;
        HeldFileRef pFile = nullptr;  // of a launch
        uint64_t nMessage = 0;        // in the order of their analysis
        bool bHashed = false;
        bool bChanged = false;
    };

    static HeldFileRef FileOf(const Message& message, const ExpectedQuery& expected);
    std::optional<Message> TakeWaiting(size_t nHash);
    static Index::iterator BestOf(const std::pair<Index::iterator, Index::iterator>& range,
                                  const ModuleOutcome& outcome);
    void Close(std::list<Open>::iterator expected) TEV_REQUIRES(m_mutex);
    static void Count(LedgerState& state, Excuse eExcuse, uint64_t nTimes = 1);
    void Expect(std::optional<Message> message, MessageQueries all,
                const std::vector<Excuse>& excuses, Clock::time_point now);
    void DropOld(Clock::time_point now);

    const EventExcuse m_excuses;
    mutable Mutex m_mutex;
    std::deque<Message> m_waiting TEV_GUARDED_BY(m_mutex);
    // Messages taken from there whose events are not counted as analysed yet.
    uint64_t m_nTaken TEV_GUARDED_BY(m_mutex) = 0;
    // In the order of their analysis.
    std::list<Open> m_open TEV_GUARDED_BY(m_mutex);
    uint64_t m_nOpened TEV_GUARDED_BY(m_mutex) = 0;
    uint64_t m_nMessages TEV_GUARDED_BY(m_mutex) = 0;  // whose analysis has begun
    // The texts of those, which are held twice.
    size_t m_nOpenBytes TEV_GUARDED_BY(m_mutex) = 0;
    // The excuses of those, counted.
    LedgerState m_openState TEV_GUARDED_BY(m_mutex);
    Index m_byFile TEV_GUARDED_BY(m_mutex);
    Index m_byProgram TEV_GUARDED_BY(m_mutex);
    LedgerState m_state TEV_GUARDED_BY(m_mutex);  // without what is open
};

#endif
