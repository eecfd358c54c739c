// A queue of jobs with one thread that runs them in order. It is bounded: whoever pushes into a
// full one waits.
//
// Threads: any. A job runs on the executor's thread without its lock.
// Errors: nothing throws but std::bad_alloc.
#ifndef HOST_TRANSPORT_SERIALEXECUTOR_H
#define HOST_TRANSPORT_SERIALEXECUTOR_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

class SerialExecutor {
public:
    struct Limits {
        size_t nJobs = 1024;
        size_t nBytes = 8 * 1024 * 1024;  // one job of any size always finds room when empty
    };
    // Called exactly once: with true to run, with false when the executor stopped before it could.
    using Job = std::function<void(bool bRun)>;

    SerialExecutor(const std::string& strThreadName, const Limits& limits);
    ~SerialExecutor();  // Stop

    SerialExecutor(const SerialExecutor&) = delete;
    SerialExecutor& operator=(const SerialExecutor&) = delete;

    // Appends the job, waiting for room. False, and the job is not called, when the executor has
    // stopped or, after EndWaiting, had no room. A push from its own thread never waits.
    bool Push(size_t nBytes, Job job);

    // From now on nobody waits for room.
    void EndWaiting();

    // Ends the thread. When it has returned no job is running and the waiting ones were called
    // with false. Called on its own thread it returns at once and the thread ends with the job in
    // hand.
    void Stop();

private:
    struct State;
    static void Run(const std::shared_ptr<State>& pState);

    std::shared_ptr<State> m_pState;  // shared with the thread, which may outlive a Stop on itself
};

#endif
