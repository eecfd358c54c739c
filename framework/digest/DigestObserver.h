// Who is called with each file that was hashed.
//
// Threads: any. Errors: nothing throws. Ownership: an observer stays its owner's and must live
// until the SetDigestObserver that replaces it has returned.
#ifndef FRAMEWORK_DIGEST_DIGESTOBSERVER_H
#define FRAMEWORK_DIGEST_DIGESTOBSERVER_H

#include <sys/stat.h>

#include <string>

#include "framework/abi/Export.h"

class IDigestObserver {
public:
    virtual ~IDigestObserver() = default;
    // [the thread that hashed, several at once] Before getMD5AndSHA1 returns true with these
    // digests of the file at strPath. status: of the descriptor whose bytes were read, taken after
    // reading. Must not call SetDigestObserver. errno is kept.
    virtual void OnDigest(const std::string& strPath, const struct stat& status,
                          const std::string& strMd5, const std::string& strSha1) noexcept = 0;
};

// Who is called from now on; null for nobody. A file that is being hashed is not observed unless
// an observer was set when its hashing began. Returns when no call of the observer that it replaces
// is in progress, however long such a call takes, and none can begin any more.
HOSTFRAMEWORK_API void SetDigestObserver(IDigestObserver* pObserver);

namespace digest_observer {

bool IsSet();  // without a lock: hashing costs no more while nobody observes
void Call(const std::string& strPath, const struct stat& status, const std::string& strMd5,
          const std::string& strSha1);

}  // namespace digest_observer

#endif
