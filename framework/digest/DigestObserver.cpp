#include "framework/digest/DigestObserver.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <new>

namespace {

// Each observer's calls are counted on the side in use while it stood; SetDigestObserver changes
// the side and waits for the other to empty. Calls that keep coming so never hold it up.
struct Observation {
    std::mutex setMutex;   // one SetDigestObserver at a time; taken before callMutex
    std::mutex callMutex;  // guards what follows; not held during a call
    std::condition_variable callReturned;
    IDigestObserver* pObserver = nullptr;
    int nSide = 0;
    int nCalls[2] = {0, 0};
};

// Lives until the process ends: threads may hash until then.
Observation& TheObservation() {
    alignas(Observation) static unsigned char s_place[sizeof(Observation)];
    static Observation* const s_pObservation = new (s_place) Observation;
    return *s_pObservation;
}

std::atomic<bool> g_bSet{false};  // so that hashing takes no lock while nobody observes

}  // namespace

void SetDigestObserver(IDigestObserver* pObserver) {
    Observation& observation = TheObservation();
    const std::lock_guard<std::mutex> setLock(observation.setMutex);
    std::unique_lock<std::mutex> lock(observation.callMutex);
    observation.pObserver = pObserver;
    g_bSet = pObserver != nullptr;
    const int nOldSide = observation.nSide;
    observation.nSide = 1 - nOldSide;
    observation.callReturned.wait(lock, [&] { return observation.nCalls[nOldSide] == 0; });
}

bool digest_observer::IsSet() {
    return g_bSet;
}

void digest_observer::Call(const std::string& strPath, const struct stat& status,
                           const std::string& strMd5, const std::string& strSha1) {
    Observation& observation = TheObservation();
    std::unique_lock<std::mutex> lock(observation.callMutex);
    IDigestObserver* const pObserver = observation.pObserver;
    if (pObserver == nullptr) {
        return;
    }
    const int nSide = observation.nSide;
    ++observation.nCalls[nSide];
    lock.unlock();

    const int nOldErrno = errno;
    pObserver->OnDigest(strPath, status, strMd5, strSha1);
    errno = nOldErrno;

    lock.lock();
    if (--observation.nCalls[nSide] == 0) {
        observation.callReturned.notify_all();
    }
}
