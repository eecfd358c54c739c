// What became of every event of this run: its message waits in the queue, the module was heard of
// it, or its file was gone when the module looked. What is left is unexplained.
//
// The module says when it begins with a message, and looks at messages in the order in which they
// came. Of an event whose path is no regular file it says nothing.
//
// Threads: any; one mutex. Errors: none but std::bad_alloc.
#ifndef HOST_LAUNCHLEDGER_H
#define HOST_LAUNCHLEDGER_H

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

struct LedgerState {
    uint64_t nSent = 0;             // events handed to the router
    uint64_t nRefused = 0;          // of these: the router did not take their message
    uint64_t nWaiting = 0;          // of these: in messages that the module has not begun with
    uint64_t nWaitingMessages = 0;  // those messages
    uint64_t nHeard = 0;            // of these: a query or a notice came
    uint64_t nGone = 0;             // of these: no regular file any more
    uint64_t nSilent = 0;           // of these: nothing explains it, or not yet
};

class LaunchLedger {
public:
    // Paths held at most; beyond it the oldest messages count as silent.
    static constexpr size_t MOST_PATHS = 200000;

    // Before the module starts: messages that wait from earlier runs.
    void SetEarlier(uint64_t nMessages);
    // Before message nNumber is handed to the router.
    void Send(uint64_t nNumber, std::vector<std::string> paths);
    void Refuse(uint64_t nNumber);
    // The module begins with its next message.
    void Begin();
    // A query about strPath or a notice that names it.
    void Hear(const std::string& strPath);
    // nMessages of those that wait were not stored: nothing explains it.
    void Miss(uint64_t nMessages);

    LedgerState State() const;

private:
    struct Message {
        uint64_t nNumber;
        std::vector<std::string> keys;
    };

    void Open(std::vector<std::string> keys);
    void Settle();

    mutable std::mutex m_mutex;  // guards what follows
    uint64_t m_nEarlier = 0;
    std::deque<Message> m_waiting;
    std::unordered_map<std::string, uint64_t> m_open;  // events begun with and not heard of
    size_t m_nOpen = 0;                                // their sum
    LedgerState m_state;
};

#endif
