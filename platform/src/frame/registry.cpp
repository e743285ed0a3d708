#include "frame/process-state.h"
#include "log/log.h"

#include <boost/make_shared.hpp>
#include <cerrno>

namespace frame {

int Process::State::registerObject(AbstractProcessMember* owner, void* object, std::type_index type,
                                   const std::string& key) {
    if (!object) {
        HOST_LOG(frame, vdlDebugFailure, "interface \"%s\": the object to register is null\n", key.c_str());
        return -EINVAL;
    }
    thread_safety::LockGuard lock(registryMutex_);
    if (registry_.try_emplace(key, Registration{object, type, owner}).second) return 0;
    HOST_LOG(frame, vdlDebugFailure, "interface \"%s\" is registered already\n", key.c_str());
    return -EEXIST;
}

int Process::State::unregisterObject(void* object) {
    thread_safety::LockGuard lock(registryMutex_);
    return std::erase_if(registry_, [&](const auto& entry) { return entry.second.object == object; }) ? 0 : -ENOENT;
}

void Process::State::unregisterAllOf(const AbstractProcessMember* owner) {
    thread_safety::LockGuard lock(registryMutex_);
    std::erase_if(registry_, [&](const auto& entry) { return entry.second.owner == owner; });
}

int Process::State::getInterfaceReference(boost::shared_ptr<Interface>& reference, const std::string& key) {
    thread_safety::LockGuard lock(registryMutex_);
    const auto found = registry_.find(key);
    if (found == registry_.end()) return -ENOENT;
    reference = boost::make_shared<Interface>(found->second.object, found->second.type);
    return 0;
}

} // namespace frame
