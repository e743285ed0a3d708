#include <host/process-name.h>

#include <cerrno>
#include <mutex>

namespace host {
namespace {

std::mutex nameMutex;
std::string& nameOfProcess() {
    static std::string& name = *new std::string(program_invocation_short_name);
    return name;
}

} // namespace

std::string processName() {
    std::lock_guard lock(nameMutex);
    return nameOfProcess();
}

void setProcessName(const std::string& name) {
    std::lock_guard lock(nameMutex);
    nameOfProcess() = name;
}

} // namespace host
