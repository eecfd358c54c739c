#include "tevmon/core/CTevModuleReference.h"

#include <dlfcn.h>

#include <atomic>

namespace {

std::atomic<void*> s_pLibrary{nullptr};

}  // namespace

void CTevModuleReference::Take() {
    if (s_pLibrary.load() != nullptr) {
        return;
    }
    Dl_info info = {};
    if (dladdr(&s_pLibrary, &info) == 0 || info.dli_fname == nullptr) {
        return;
    }
    s_pLibrary.store(dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD));
}

void CTevModuleReference::Drop() {
    void* pLibrary = s_pLibrary.exchange(nullptr);
    if (pLibrary != nullptr) {
        (void)dlclose(pLibrary);
    }
}
