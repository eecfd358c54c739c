// A periodic scheduler: a thread that holds named tasks, wakes at a fixed interval and runs each
// task that says it is due.
//
// Threads: the control thread adds tasks, starts and stops; any thread may call SetTaskParam; the
//   timer thread calls IsDue and Execute with m_mutex held, so a task must not call its timer.
// Errors: results only; nothing throws. What a task throws ends that call of it, nothing else.
// Ownership: the timer owns the tasks it took over. A task that is gone (its Init failed, or the
//   timer was stopped) leaves its name in the map with a null pointer, and the name stays taken.
#ifndef PUBLIC_PLUGINHELPER_CTASKTIMER_H
#define PUBLIC_PLUGINHELPER_CTASKTIMER_H

#include <map>
#include <memory>
#include <string>

#include "framework/base/CMutex.h"
#include "framework/base/CThread.h"

// The slot order is the interface.
class ITimerTask {
public:
    virtual ~ITimerTask() = default;       // slots 0 and 1
    virtual int Reserved() = 0;            // slot 2; the timer never calls it
    virtual bool Init(int nArg) = 0;       // slot 3; [control] false: the task is deleted
    virtual void Uninit() = 0;             // slot 4; [control] then the task is deleted
    virtual bool IsDue(int nSeconds) = 0;  // slot 5; [timer] nSeconds passed since the last call
    virtual void Execute() = 0;            // slot 6; [timer]
    virtual int SetParam(int nA, int nB) = 0;  // slot 7; [any] meaning and result are the task's
};

class CTaskTimer : public CThread {
public:
    // SetTaskParam's answer for a task that is not there.
    static constexpr int NO_SUCH_TASK = 5;

    CTaskTimer() = default;
    ~CTaskTimer() override;  // ends the thread and deletes the tasks

    // [control] Initialises the tasks, then starts the thread. False when it could not be started.
    bool Start(Priority ePriority);
    // [control] Ends the thread, then Uninit and deletion of every task.
    void Stop();

    // [control, before Start] Hands pTask over; the timer deletes it. Returns whether it was taken:
    // under a name already in the map nothing is added and pTask stays the caller's. Takes no lock.
    bool AddTask(const std::string& strName, ITimerTask* pTask) TEV_NO_THREAD_SAFETY_ANALYSIS;
    // [any] What the task's SetParam(nA, nB) returns, or NO_SUCH_TASK. Waits for a tick in
    // progress, so a task must not call it from Execute.
    int SetTaskParam(const std::string& strName, int nA, int nB);

protected:
    void run() override;
    virtual const char* GetTimerName() const;  // the thread's name
    virtual int GetInterval() const;           // milliseconds between two ticks

private:
    bool InitTasks();
    void StopTasks();
    void RunDueTasks();

    CMutex m_mutex;
    std::map<std::string, std::unique_ptr<ITimerTask>> m_tasks TEV_GUARDED_BY(m_mutex);
};

#endif
