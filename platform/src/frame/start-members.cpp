#include "frame/log.h"
#include "frame/process-state.h"

#include <frame/process.h>
#include <host/receiver.h>

#include <cerrno>
#include <dlfcn.h>

namespace frame {

int Process::startAppMembersSync(void** (*factory)()) {
    return state_->call([this, factory] {
        Dl_info library;
        const bool known = factory && dladdr(reinterpret_cast<void*>(factory), &library) && library.dli_fname;
        return state_->startMembersOf(factory, known ? library.dli_fname : "an application array");
    });
}

} // namespace frame

namespace host {

namespace {

int loadOnFrameworkThread(frame::Process::State& state, const std::string& path) {
    // Never closed: members, interfaces and statics of the library are in use until the process ends.
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        FRAME_LOG(vdlDebugFailure, "cannot load %s: %s\n", path.c_str(), dlerror());
        return -ENOENT;
    }
    void* entry = dlsym(library, "frameCreateApplicationArray");
    if (!entry) {
        FRAME_LOG(vdlDebugFailure, "%s is no application library: %s\n", path.c_str(), dlerror());
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
