// The one pattern by which process-wide objects come to be: created on first use under a mutex of
// their own with a double test, destroyed when the library that uses them is unloaded.
//
// The state of a singleton lives in the library that names it, one per library.
//
// Threads: any.
// Errors: Instance answers null when memory ran out, when the constructor threw, and from the
//   moment destruction began. Callers take null as failure of what they wanted to do.
// Ownership: the object belongs to the pattern. T must befriend utils::SingletonAbstract<T> when
//   its constructor or destructor is not public.
#ifndef FRAMEWORK_BASE_SINGLETONABSTRACT_H
#define FRAMEWORK_BASE_SINGLETONABSTRACT_H

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>

namespace utils {

// Runs before the first singleton of this library is destroyed: whoever runs threads that use
// singletons puts here what ends them. It returns false when something still runs; then no
// singleton is destroyed and all of them stay as they are until the process ends.
class SingletonTeardown {
public:
    using Hook = bool (*)();

    // [control] Replaces the hook; null for none.
    static void SetHook(Hook pfnHook) { s_pfnHook.store(pfnHook, std::memory_order_release); }

    // [exit] True when singletons may be destroyed. Runs the hook the first time only.
    static bool MayDestroy() {
        const std::lock_guard<std::mutex> lock(s_mutex);
        if (!s_bAsked) {
            const Hook pfnHook = s_pfnHook.load(std::memory_order_acquire);
            s_bMayDestroy = pfnHook == nullptr || pfnHook();
            s_bAsked = true;
        }
        return s_bMayDestroy;
    }

private:
    static inline std::mutex s_mutex;  // constant-initialised, trivially destroyed
    static inline std::atomic<Hook> s_pfnHook{nullptr};
    static inline bool s_bAsked = false;
    static inline bool s_bMayDestroy = false;
};

template <class T>
class SingletonAbstract {
public:
    static T* Instance() {
        T* pObject = s_pObject.load(std::memory_order_acquire);
        return pObject != nullptr ? pObject : Create();
    }

    SingletonAbstract(const SingletonAbstract&) = delete;
    SingletonAbstract& operator=(const SingletonAbstract&) = delete;

protected:
    SingletonAbstract() = default;
    ~SingletonAbstract() = default;

private:
    static T* Create() {
        const std::lock_guard<std::mutex> lock(s_mutex);
        T* pObject = s_pObject.load(std::memory_order_acquire);
        if (pObject != nullptr || s_bDestroyed) {
            return pObject;
        }
        try {
            pObject = new (std::nothrow) T;
        } catch (...) {
            return nullptr;  // the next caller tries again
        }
        if (pObject != nullptr) {
            s_pObject.store(pObject, std::memory_order_release);
            (void)std::atexit(&Destroy);  // a refusal costs only the destruction
        }
        return pObject;
    }

    static void Destroy() {
        if (!SingletonTeardown::MayDestroy()) {
            return;
        }
        T* pObject = nullptr;
        {
            const std::lock_guard<std::mutex> lock(s_mutex);
            s_bDestroyed = true;
            pObject = s_pObject.exchange(nullptr, std::memory_order_acq_rel);
        }
        // Without the lock: the destructor, or a thread that it waits for, may ask for Instance.
        delete pObject;
    }

    static inline std::atomic<T*> s_pObject{nullptr};
    static inline std::mutex s_mutex;  // constant-initialised, trivially destroyed
    static inline bool s_bDestroyed = false;
};

}  // namespace utils

#endif
