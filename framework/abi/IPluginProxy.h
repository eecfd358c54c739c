// The plug-in object behind the operation table, each entry of which calls one of its slots. The
// slot order is the interface.
//
// Threads: the host's control thread, one call at a time.
// Errors: none is reported; no call throws.
// Ownership: one object per process, made at the first call through the table. A host never deletes
//   it.
#ifndef FRAMEWORK_ABI_IPLUGINPROXY_H
#define FRAMEWORK_ABI_IPLUGINPROXY_H

#include <cstdint>

class IMsgRouter;

// The last operation that ran; nothing checks it.
enum PluginStatus : uint32_t {
    PluginConstructed = 0,
    PluginInitialised = 1,
    PluginStarted = 2,
    PluginStopped = 3,
    PluginUninitialised = 4,
};

class IPluginProxy {
public:
    IPluginProxy() : m_eStatus(PluginConstructed) {}
    virtual ~IPluginProxy() = default;  // slots 0 and 1

    IPluginProxy(const IPluginProxy&) = delete;
    IPluginProxy& operator=(const IPluginProxy&) = delete;

    // Slots 2 to 9; see PluginOperationTable for what each does and in which order they come.
    virtual int32_t zkp_init(void* pHostArgument) = 0;      // slot 2
    virtual void zkp_uninit() = 0;                          // slot 3; ends all traffic
    virtual void zkp_setopt(IMsgRouter* pRouter) = 0;       // slot 4; null is allowed
    virtual int32_t zkp_getstatus() = 0;                    // slot 5; a PluginStatus
    virtual int32_t zkp_ext6(void* /*pArg*/) { return 0; }  // slot 6; for extensions
    virtual int32_t zkp_ext7(void* /*pArg*/) { return 0; }  // slot 7; for extensions
    virtual int32_t zkp_start() { return 0; }               // slot 8; threads begin
    virtual int32_t zkp_stop() { return 0; }                // slot 9; threads have ended

protected:
    PluginStatus m_eStatus;  // the only member, behind the table pointer
};

#endif
