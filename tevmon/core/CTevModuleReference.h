// The module's reference on its own library: while it is held, dlclose by the host leaves the code
// where it is, so that a host which unloads without stopping leaks the library instead of pulling
// the code from under running threads.
//
// Threads: [control]. Errors: none; a reference that cannot be had is not held.
#ifndef TEVMON_CORE_CTEVMODULEREFERENCE_H
#define TEVMON_CORE_CTEVMODULEREFERENCE_H

class CTevModuleReference {
public:
    static void Take();  // a second call holds no more than the first
    static void Drop();
};

#endif
