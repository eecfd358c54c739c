// What a plug-in library hands out: four functions with unmangled names and a table of eight
// function pointers, taken from CreateObject. The order of the table is the interface.
//
// Threads: the host's control thread, one call at a time: no lock guards them.
// Errors: none is reported: what fails stands in the log. Nothing throws.
// Ownership: the table is the library's, in static memory, and good until dlclose. The host unloads
//   no library whose threads it has not stopped.
#ifndef FRAMEWORK_ABI_PLUGINOPERATIONTABLE_H
#define FRAMEWORK_ABI_PLUGINOPERATIONTABLE_H

#include <cstddef>
#include <cstdint>

// Call order: init, setopt, start, (getstatus at any time), stop, uninit. No entry checks it: one
// that is repeated or out of order does its steps again. The results of init, start and stop are 0
// whatever happens inside, and so is every result while the plug-in object finds no memory.
struct PluginOperationTable {
    // Index 0. Notes that it ran; the argument is not looked at.
    int32_t (*pfnInit)(void* pHostArgument);
    // Index 1. Unregisters what setopt registered and closes the router. Returns when no callback
    // is running any more, as far as the router keeps its word.
    void (*pfnUninit)();
    // Index 2. Starts the plug-in's threads. Its files are reached by paths relative to the current
    // directory, which the host has set before and leaves alone.
    int32_t (*pfnStart)();
    // Index 3. Ends the threads; waits for the work in hand to end.
    int32_t (*pfnStop)();
    // Index 4. A PluginStatus.
    int32_t (*pfnGetStatus)();
    // Index 5. Free for extensions; 0.
    int32_t (*pfnExt6)(void* pArg);
    // Index 6. pRouter is an IMsgRouter*: it is kept, named the plug-in's identity and given its
    // receivers. It must live until the library is unloaded, uninit or not. Null does nothing.
    void (*pfnSetOpt)(void* pRouter);
    // Index 7. Free for extensions; 0.
    int32_t (*pfnExt7)(void* pArg);
};

static_assert(sizeof(PluginOperationTable) == 8 * sizeof(void*), "eight function pointers");
static_assert(offsetof(PluginOperationTable, pfnSetOpt) == 6 * sizeof(void*),
              "setopt sits at index 6, after getstatus and the first extension entry");

// The types of the four exported functions; their arguments are not looked at.
using InitializePluginFn = int (*)(void* pArg);  // returns 0, does nothing
using UninitializePluginFn = void (*)();         // does nothing
// Returns the PluginOperationTable, the same address at every call.
using CreateObjectFn = void* (*)(void* pArg);
using DestroyObjectFn = void (*)(void*, void*);  // does nothing: the table is static

#endif
