// What became of every event of this run, launch or file operation: its message waits in the queue
// or was not stored; the module had no interest in it; or for each question that the module had to
// ask something was heard, or the state of the file explains why nothing was. What is left is
// unexplained.
//
// The module says with which message it begins, and looks at messages in the order in which they
// came. What it will ask is read from that message then.
//
// Threads: any; one mutex, not held while files are looked at. Errors: none but std::bad_alloc.
#ifndef HOST_ACCOUNT_EVENTLEDGER_H
#define HOST_ACCOUNT_EVENTLEDGER_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>

#include "host/base/Mutex.h"
#include "host/module/ExpectedQueries.h"

struct LedgerState {
    uint64_t nSent = 0;             // events handed to the router
    uint64_t nRefused = 0;          // of these: the router did not take their message
    uint64_t nWaiting = 0;          // of these: in messages that the module has not begun with
    uint64_t nWaitingMessages = 0;  // those messages
    uint64_t nNotStored = 0;        // of these: their message never came into the queue
    uint64_t nBegun = 0;            // of these: in messages that the module has begun with

    uint64_t nEarlierWaiting = 0;  // messages of earlier runs that wait
    uint64_t nEarlierBegun = 0;    // events in messages of earlier runs, or looked at once more

    uint64_t nNoInterest = 0;  // of both kinds of nBegun: the module has no question
    uint64_t nQuestions = 0;   // about the others, two for a few of them

    uint64_t nQueried = 0;     // of these: a query came
    uint64_t nCached = 0;      // of these: skipped, the program's verdict is known
    uint64_t nNoHash = 0;      // of these: skipped, the program cannot be read
    uint64_t nNoStat = 0;      // of these: skipped, the file cannot be looked at
    uint64_t nGone = 0;        // of these: no regular file, or no pipe, any more
    uint64_t nKnownMaker = 0;  // of these: a pipe of a program with a good verdict
    uint64_t nSilent = 0;      // of these: nothing explains it, or not yet

    uint64_t nBeside = 0;  // heard, and no question was open

    // Questions that something is known of.
    uint64_t Settled() const {
        return nQueried + nCached + nNoHash + nNoStat + nGone + nKnownMaker;
    }
};

enum SignEnd { SIGN_QUERIED, SIGN_CACHED, SIGN_NO_HASH, SIGN_NO_STAT };

// Something heard of the module: how it ended a question.
struct ModuleSign {
    SignEnd eEnd = SIGN_QUERIED;
    QuestionKind eKind = QUESTION_NONE;
    std::string strName;       // the file of the question, or its program
    std::string strOperation;  // of QUESTION_FILE
    bool bNamesProgram = false;
};

class EventLedger {
public:
    using Clock = std::chrono::steady_clock;
    // Whether a pipe of this program is skipped without a sign. Called without any lock.
    using KnownMaker = std::function<bool(const std::string& strProgram)>;

    // Open questions held at most, and for how long; beyond it they count as they stand.
    static constexpr size_t MOST_QUESTIONS = 100000;
    static constexpr size_t MOST_BYTES = 64 << 20;  // of their texts, beside one message's
    static constexpr std::chrono::seconds LONGEST_OPEN{120};

    explicit EventLedger(KnownMaker fnKnownMaker = {}) : m_fnKnownMaker(std::move(fnKnownMaker)) {}

    // Before the module starts: messages that wait from earlier runs.
    void SetEarlier(uint64_t nMessages);
    // Before message nNumber is handed to the router, which will be stored nCopies times with so
    // many events in all.
    void Send(uint64_t nNumber, const std::string& strBody, uint64_t nEvents, uint64_t nCopies = 1);
    void Refuse(uint64_t nNumber);
    // [the module's thread] The module begins with this message now.
    void Begin(const std::string& strBody, Clock::time_point now = Clock::now());
    // The question that this ends; nothing when none is open.
    std::optional<ModuleQuestion> Hear(const ModuleSign& sign);
    // So many messages are in the queue now that the module has stopped: the others that wait
    // were not stored.
    void End(uint64_t nStoredMessages);

    // Without a look at files: what has no sign is silent, unless it was explained when the module
    // began with it.
    LedgerState State() const;
    // With one, for the end.
    LedgerState FinalState() const;

private:
    enum Excuse { EXCUSE_NONE, EXCUSE_GONE, EXCUSE_KNOWN_MAKER };
    struct Message {
        uint64_t nNumber;
        size_t nHash;  // of its text
        uint64_t nEvents;
    };
    struct Open;
    using Index = std::multimap<std::string, std::list<Open>::iterator>;
    struct Open {
        ModuleQuestion question;
        Excuse eExcuse = EXCUSE_NONE;  // why nothing would be heard
        Clock::time_point begun;
        Index::iterator byFile, byProgram;
    };

    Excuse ExcuseOf(const ModuleQuestion& question) const;
    bool TakeWaiting(size_t nHash) TEV_REQUIRES(m_mutex);
    void Close(std::list<Open>::iterator question) TEV_REQUIRES(m_mutex);
    static void Count(LedgerState& state, Excuse eExcuse, uint64_t nTimes = 1);
    void DropOld(Clock::time_point now) TEV_REQUIRES(m_mutex);

    const KnownMaker m_fnKnownMaker;
    mutable Mutex m_mutex;
    std::deque<Message> m_waiting TEV_GUARDED_BY(m_mutex);
    // In the order in which they were begun with.
    std::list<Open> m_open TEV_GUARDED_BY(m_mutex);
    // The texts of those, which are held twice.
    size_t m_nOpenBytes TEV_GUARDED_BY(m_mutex) = 0;
    // The excuses of those, counted.
    LedgerState m_openState TEV_GUARDED_BY(m_mutex);
    Index m_byFile TEV_GUARDED_BY(m_mutex);
    Index m_byProgram TEV_GUARDED_BY(m_mutex);
    LedgerState m_state TEV_GUARDED_BY(m_mutex);  // without what is open
};

#endif
