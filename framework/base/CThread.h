// A thread that can be started, stopped, paused and started again any number of times. A class
// derives from it and supplies the body, run.
//
// The virtual operations stand in the slot order of the interface: destructor, deleting
// destructor, start, stop, pause, recovery, doPauseOrQuit, pausedWaitCallback, run.
//
// Threads: start, stop, pause and recovery may come from any thread, also from several at once
//   and from the thread itself. One mutex and one condition variable on the monotonic clock
//   guard everything. A call in progress may outlive the CThread; none may begin after its
//   destruction has.
// Errors: results only; nothing but the constructor throws, and that std::bad_alloc only. An
//   exception that leaves run ends the thread, nothing else.
// Ownership: a class that overrides run must call stop first thing in its own destructor: when
//   the base destructor stops the thread, the part of the object that run works on is gone.
//   A thread on which its own CThread is destroyed goes on until run returns and then touches
//   nothing of it.
#ifndef FRAMEWORK_BASE_CTHREAD_H
#define FRAMEWORK_BASE_CTHREAD_H

#include <cstdint>
#include <memory>

#include "framework/abi/Export.h"

class HOSTFRAMEWORK_API CThread {
public:
    // Applied as the thread's nice value (19, 10, 0, -5, -10) where the system allows it; a
    // refusal changes nothing and fails nothing.
    enum Priority : int32_t {
        PriorityIdle = 0,
        PriorityLow = 1,
        PriorityNormal = 2,
        PriorityHigh = 3,
        PriorityHighest = 4,
    };

    CThread();
    virtual ~CThread();  // stops the thread, should the derived class have forgotten to

    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    // Creates the thread and returns true; true without doing anything when it runs already,
    // false when the system refuses another thread. A thread that has ended or was asked to end is
    // waited for and followed by a fresh one; false on that thread itself. The thread blocks all
    // signals and has a stack of 8 MiB (address space, not memory).
    virtual bool start(Priority ePriority);

    // Requests the stop, wakes the thread and waits for run to return. True when no thread is
    // left, also when there was none; false when called on the thread itself, which is then only
    // requested to end and must be stopped once more from outside (or destroyed) to be joined.
    virtual bool stop();

    // From pause to recovery the thread holds still at its next doPauseOrQuit. A pause outlasts
    // stop and start.
    virtual void pause();
    virtual void recovery();

    // [the thread] Called by run where it can hold still. Returns true when run should return,
    // at once when stop was requested. While paused it calls pausedWaitCallback(nullptr) once and
    // waits for recovery or stop.
    virtual bool doPauseOrQuit();

    // [the thread] For a derived class that wants to know that its thread holds still.
    virtual void pausedWaitCallback(void* pArg);

protected:
    virtual void run() = 0;  // [the thread] the body

public:
    // [the thread, or any] Waits nMilliseconds, shorter only when a stop is requested; then, and
    // when it was requested before the call, returns at once. Spurious wake-ups do not shorten it.
    void Wait(uint32_t nMilliseconds);

    // How long a Wait of nMilliseconds really lasts, for a host or a test that drives time itself.
    // Null, as at first, waits what was asked for. pfnHook must be callable from any thread.
    using WaitHook = uint32_t (*)(uint32_t nMilliseconds);
    static void SetWaitHook(WaitHook pfnHook);

    // True from the stop request until the next start. A stop that finds no thread requests
    // nothing: before the first start this is false.
    bool isStoped() const;

    // True while there is a thread that has not been joined, ended or not.
    bool isJoinable() const;

    // [the thread] Names the calling thread; the kernel keeps the first 15 bytes.
    static void setCurThreadName(const char* pszName);

private:
    struct State;  // shared with the thread, so that it outlives whichever ends later
    std::shared_ptr<State> m_pState;
};

#endif
