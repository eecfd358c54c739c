// The module's four exports and its operation table. Every entry of the table forwards to the one
// plug-in object. Without one, for lack of memory or after the exit routines, it answers 0 and says
// nothing.
#include "framework/abi/Export.h"
#include "framework/abi/PluginOperationTable.h"
#include "tevmon/core/CTevMonPlugin.h"

namespace {

PluginOperationTable s_table;

int32_t Init(void* pHostArgument) {
    IPluginProxy* pPlugin = GetPluginInstance();
    return pPlugin != nullptr ? pPlugin->zkp_init(pHostArgument) : 0;
}

void Uninit() {
    IPluginProxy* pPlugin = GetPluginInstance();
    if (pPlugin != nullptr) {
        pPlugin->zkp_uninit();
    }
}

int32_t Start() {
    IPluginProxy* pPlugin = GetPluginInstance();
    return pPlugin != nullptr ? pPlugin->zkp_start() : 0;
}

int32_t Stop() {
    IPluginProxy* pPlugin = GetPluginInstance();
    return pPlugin != nullptr ? pPlugin->zkp_stop() : 0;
}

int32_t GetStatus() {
    IPluginProxy* pPlugin = GetPluginInstance();
    return pPlugin != nullptr ? pPlugin->zkp_getstatus() : 0;
}

int32_t Ext6(void* pArg) {
    IPluginProxy* pPlugin = GetPluginInstance();
    return pPlugin != nullptr ? pPlugin->zkp_ext6(pArg) : 0;
}

void SetOpt(void* pRouter) {
    IPluginProxy* pPlugin = GetPluginInstance();
    if (pPlugin != nullptr) {
        pPlugin->zkp_setopt(static_cast<IMsgRouter*>(pRouter));
    }
}

int32_t Ext7(void* pArg) {
    IPluginProxy* pPlugin = GetPluginInstance();
    return pPlugin != nullptr ? pPlugin->zkp_ext7(pArg) : 0;
}

}  // namespace

extern "C" {

HOSTFRAMEWORK_API int InitializePlugin(void* /*pArg*/) {
    return 0;
}

HOSTFRAMEWORK_API void UninitializePlugin() {}

HOSTFRAMEWORK_API void* CreateObject(void* /*pArg*/) {
    s_table = {Init, Uninit, Start, Stop, GetStatus, Ext6, SetOpt, Ext7};
    return &s_table;
}

// The table is static and the plug-in object is never destroyed through it.
HOSTFRAMEWORK_API void DestroyObject(void* /*pFirst*/, void* /*pSecond*/) {}
}
