// The C library's own atexit, which it links into every library: it names the library, so that
// dlclose runs what was registered. The thread sanitizer puts one of its own before it that names
// none; the registered function would run at the process's end, when its code is gone.
extern "C" {
extern void* __dso_handle __attribute__((visibility("hidden")));
int __cxa_atexit(void (*pfnDestroy)(void*), void* pArg, void* pLibrary);

__attribute__((visibility("hidden"))) int atexit(void (*pfnDestroy)()) {
    return __cxa_atexit(reinterpret_cast<void (*)(void*)>(pfnDestroy), nullptr, &__dso_handle);
}
}
