// Where behaviour events come from: a recording, a walk over files, or sensors of the kernel.
//
// A source gives batches, each the body of one message for the module.
//
// Threads: Start, Next and Counters on the thread that runs the source; Stop from any thread.
// Errors: Start's text names the input and what to do. What goes wrong later is a remark and the
//   source goes on.
#ifndef HOST_EVENT_IEVENTSOURCE_H
#define HOST_EVENT_IEVENTSOURCE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class HeldFile;

struct EventBatch {
    std::string strBody;   // the whole message
    uint64_t nNumber = 0;  // counts from 1: the line of a recording, the batch of a walk
    uint64_t nCopies = 1;  // how often the module queues it
    uint64_t nEvents = 0;  // events that the module will look at because of it
    // Of each element the file of its program, null where none is held; empty for none at all.
    std::vector<std::shared_ptr<const HeldFile>> files = {};
    // The message for others, with names where strBody has links; "": it has none.
    std::string strTrueBody = {};
};

struct SourceCounters {
    uint64_t nBatches = 0;
    uint64_t nEvents = 0;
    uint64_t nUnusable = 0;  // pieces of input that no batch could be made of
};

enum SourceResult {
    SOURCE_BATCH,        // a batch was filled in
    SOURCE_NOTHING_YET,  // the wait is over, more may come
    SOURCE_END,          // no more will come
};

// A remark for the user about the input: where it is (0 when it has no number) and what.
using SourceRemark = std::function<void(uint64_t nNumber, const std::string& strText)>;

class IEventSource {
public:
    virtual ~IEventSource() = default;

    virtual bool Start(std::string& strError) = 0;
    // The next batch, waiting for it at most that long.
    virtual SourceResult Next(EventBatch& batch, std::chrono::milliseconds wait) = 0;
    // Makes Next answer SOURCE_END from its next call on; a live source first gives what it had
    // captured until then, without waiting.
    virtual void Stop() = 0;
    virtual SourceCounters Counters() const = 0;
    virtual std::string Name() const = 0;  // for people
};

#endif
