// Who is called with what happens: one observer, which may be replaced while calls of it are in
// progress.
//
// Each observer's calls are counted on the side in use while it stood; Set changes the side and
// waits for the other to empty. Calls that keep coming so never hold it up.
//
// Threads: any. Errors: none but what a call throws. Ownership: an observer stays its owner's and
// must live until the Set that replaces it has returned.
#ifndef FRAMEWORK_BASE_OBSERVERSLOT_H
#define FRAMEWORK_BASE_OBSERVERSLOT_H

#include <atomic>
#include <condition_variable>
#include <mutex>

template <class Observer>
class ObserverSlot {
public:
    ObserverSlot() = default;

    ObserverSlot(const ObserverSlot&) = delete;
    ObserverSlot& operator=(const ObserverSlot&) = delete;

    // Who is called from now on; null for nobody. Returns when no call of the one before is in
    // progress, and none can begin any more. Not from a call.
    void Set(Observer* pObserver) {
        const std::lock_guard<std::mutex> setLock(m_setMutex);
        std::unique_lock<std::mutex> lock(m_callMutex);
        m_pObserver = pObserver;
        m_bSet = pObserver != nullptr;
        const int nOldSide = m_nSide;
        m_nSide = 1 - nOldSide;
        m_callReturned.wait(lock, [&] { return m_nCalls[nOldSide] == 0; });
    }

    bool IsSet() const { return m_bSet; }  // without a lock

    // What fnCall returns, called with the observer, null when there is none. No lock is held.
    template <class Call>
    auto With(Call fnCall) {
        const InCall inCall(*this);
        return fnCall(inCall.m_pObserver);
    }

private:
    class InCall {
    public:
        explicit InCall(ObserverSlot& slot) : m_slot(slot) {
            const std::lock_guard<std::mutex> lock(m_slot.m_callMutex);
            m_pObserver = m_slot.m_pObserver;
            m_nSide = m_slot.m_nSide;
            ++m_slot.m_nCalls[m_nSide];
        }
        ~InCall() {
            const std::lock_guard<std::mutex> lock(m_slot.m_callMutex);
            if (--m_slot.m_nCalls[m_nSide] == 0) {
                m_slot.m_callReturned.notify_all();
            }
        }

        InCall(const InCall&) = delete;
        InCall& operator=(const InCall&) = delete;

        Observer* m_pObserver;

    private:
        ObserverSlot& m_slot;
        int m_nSide;
    };

    std::atomic<bool> m_bSet{false};
    std::mutex m_setMutex;   // one Set at a time; taken before m_callMutex
    std::mutex m_callMutex;  // guards what follows; not held during a call
    std::condition_variable m_callReturned;
    Observer* m_pObserver = nullptr;
    int m_nSide = 0;
    int m_nCalls[2] = {0, 0};
};

#endif
