#include "frame/process-state.h"
#include "log/log.h"

#include <frame/process.h>
#include <host/receiver.h>

#include <cerrno>
#include <dlfcn.h>

namespace host {

namespace {

int loadOnFrameworkThread(frame::Process::State& state, const std::string& path) {
    // Never closed: the library's members, interfaces and statics are used until the process ends.
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        HOST_LOG(frame, vdlDebugFailure, "cannot load %s: %s\n", path.c_str(), dlerror());
        return -ENOENT;
    }
    void* entry = dlsym(library, "frameCreateApplicationArray");
    if (!entry) {
        HOST_LOG(frame, vdlDebugFailure, "%s is not an application library: %s\n", path.c_str(), dlerror());
        return -ENOENT;
    }
    return state.startMembersOf(reinterpret_cast<void** (*)()>(entry), path);
}

} // namespace

int loadApplication(const std::string& path) {
    frame::Process::State& state = frame::Process::getInstance()->state();
    return state.call([&] { return loadOnFrameworkThread(state, path); });
}

} // namespace host
