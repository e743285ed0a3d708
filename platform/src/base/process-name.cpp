#include <host/process-name.h>

#include <cerrno>
#include <thread-safety/mutex.h>

namespace host {
namespace {

thread_safety::Mutex nameMutex;
std::string& nameOfProcess() TVSA_REQUIRES(nameMutex) {
    static std::string& name = *new std::string(program_invocation_short_name);
    return name;
}

} // namespace

std::string processName() {
    thread_safety::LockGuard lock(nameMutex);
    return nameOfProcess();
}

void setProcessName(const std::string& name) {
    thread_safety::LockGuard lock(nameMutex);
    nameOfProcess() = name;
}

} // namespace host
