// What a plug-in library hands out: four functions with unmangled names and a table of eight
// function pointers, taken from CreateObject. The order of the table is the interface.
#ifndef FRAMEWORK_ABI_PLUGINOPERATIONTABLE_H
#define FRAMEWORK_ABI_PLUGINOPERATIONTABLE_H

#include <cstddef>
#include <cstdint>

// Call order: init, setopt, start, (getstatus at any time), stop, uninit; from one thread. The
// results of init, start and stop are 0 whatever happens inside.
struct PluginOperationTable {
    int32_t (*pfnInit)(void* pHostArgument);  // 0
    void (*pfnUninit)();                      // 1
    int32_t (*pfnStart)();                    // 2
    int32_t (*pfnStop)();                     // 3; waits for the work in hand to end
    int32_t (*pfnGetStatus)();                // 4; see PluginStatus
    int32_t (*pfnExt6)(void* pArg);           // 5
    void (*pfnSetOpt)(void* pRouter);         // 6; an IMsgRouter*, kept until unload
    int32_t (*pfnExt7)(void* pArg);           // 7
};

static_assert(sizeof(PluginOperationTable) == 8 * sizeof(void*), "eight function pointers");
static_assert(offsetof(PluginOperationTable, pfnSetOpt) == 6 * sizeof(void*),
              "setopt sits at index 6, after getstatus and the first extension entry");

// The types of the four exported functions.
using InitializePluginFn = int (*)(void* pArg);  // returns 0, does nothing
using UninitializePluginFn = void (*)();         // does nothing
using CreateObjectFn = void* (*)(void* pArg);    // returns the PluginOperationTable
using DestroyObjectFn = void (*)(void*, void*);  // does nothing: the table is static

#endif
