#include <genrpc/log.h>

namespace genrpc {

void nameLogModules() {
    vdlDebugNameModule(AdapterLog, "adapter");
    vdlDebugNameModule(ManagerLog, "resource-manager");
    vdlDebugNameModule(RegistrarLog, "registrar");
    vdlDebugNameModule(TvProxyLog, "tv-proxy");
    vdlDebugNameModule(MmProxyLog, "mm-proxy");
}

} // namespace genrpc
