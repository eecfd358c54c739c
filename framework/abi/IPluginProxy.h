// The plug-in object behind the operation table. The slot order is the interface.
//
// Threads: the host's control thread, one call at a time.
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

    virtual int32_t zkp_init(void* pHostArgument) = 0;      // slot 2
    virtual void zkp_uninit() = 0;                          // slot 3
    virtual void zkp_setopt(IMsgRouter* pRouter) = 0;       // slot 4; null is allowed
    virtual int32_t zkp_getstatus() = 0;                    // slot 5; a PluginStatus
    virtual int32_t zkp_ext6(void* /*pArg*/) { return 0; }  // slot 6
    virtual int32_t zkp_ext7(void* /*pArg*/) { return 0; }  // slot 7
    virtual int32_t zkp_start() { return 0; }               // slot 8
    virtual int32_t zkp_stop() { return 0; }                // slot 9

protected:
    PluginStatus m_eStatus;
};

#endif
