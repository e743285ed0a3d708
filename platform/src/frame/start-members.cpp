#include "frame/process-state.h"

#include <frame/process.h>

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
