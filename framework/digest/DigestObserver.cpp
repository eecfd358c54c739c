#include "framework/digest/DigestObserver.h"

#include <cerrno>
#include <new>

#include "framework/base/ObserverSlot.h"

namespace {

using Slot = ObserverSlot<IDigestObserver>;

// Lives until the process ends: threads may hash until then.
Slot& TheSlot() {
    alignas(Slot) static unsigned char s_place[sizeof(Slot)];
    static Slot* const s_pSlot = new (s_place) Slot;
    return *s_pSlot;
}

}  // namespace

void SetDigestObserver(IDigestObserver* pObserver) {
    TheSlot().Set(pObserver);
}

bool digest_observer::IsSet() {
    return TheSlot().IsSet();
}

void digest_observer::Call(const std::string& strPath, const struct stat& status,
                           const std::string& strMd5, const std::string& strSha1) {
    const int nOldErrno = errno;
    TheSlot().With([&](IDigestObserver* pObserver) {
        if (pObserver != nullptr) {
            pObserver->OnDigest(strPath, status, strMd5, strSha1);
        }
    });
    errno = nOldErrno;
}
