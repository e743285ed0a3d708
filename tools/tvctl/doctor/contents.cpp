#include "checks.h"
#include "files.h"

#include <host/ring-reader.h>

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace tvctl::doctor {
namespace {

constexpr std::string_view lockSuffix = ".lock", shellSuffix = ".shell", serviceSuffix = ".sock";

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        names.push_back(entry->path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

void checkLock(Diagnosis& diagnosis, const std::string& lock) {
    int error = 0;
    const auto status = stateOf(lock, error);
    if (!status) return; // removed meanwhile
    if (!S_ISREG(status->st_mode))
        return diagnosis.wrong(lock, "not a regular file, so no process can take the lock", "remove it");
    if (!checkOwn(diagnosis, lock, *status, 0600)) return;
    const auto socket = examineSocket(lock.substr(0, lock.size() - lockSuffix.size()));
    if (socket.kind == SocketState::Kind::served) return;
    const auto holder = holderOfLock(lock, *status);
    if (holder)
        diagnosis.warn(lock, "held by " + *holder + ", but no process serves its socket",
                       "wait if the process is starting or stopping, else end it");
    else
        diagnosis.ok(lock, "left by a process that has ended; the next process takes it");
}

void checkOther(Diagnosis& diagnosis, const std::string& path) {
    const auto state = examineSocket(path);
    if (state.kind == SocketState::Kind::missing) return;
    if (state.kind == SocketState::Kind::noSocket)
        return diagnosis.warn(path, "an unknown file, which no process here creates", "find out whose it is");
    diagnosis.entryPoints.push_back(entryPointOf(path, state));
    if (checkSocket(diagnosis, path, path, state))
        diagnosis.warn(path, "served by process " + std::to_string(state.process) + ", but not a known service",
                       "find out what it is");
}

} // namespace

Diagnosis checkContents(const std::string& runtimeFolder) {
    Diagnosis diagnosis;
    const auto known = services();
    for (const std::string& name : namesIn(runtimeFolder)) {
        const std::string path = runtimeFolder + '/' + name;
        const bool ofService = std::any_of(known.begin(), known.end(), [&](const Service& service) {
            return name == service.name + std::string(serviceSuffix);
        });
        if (path == host::ringFolder()) continue;
        if (name.ends_with(lockSuffix))
            checkLock(diagnosis, path);
        else if (!name.ends_with(shellSuffix) && !ofService)
            checkOther(diagnosis, path);
    }
    return diagnosis;
}

std::vector<std::string> shellsIn(const std::string& runtimeFolder) {
    std::vector<std::string> sockets;
    for (const std::string& name : namesIn(runtimeFolder))
        if (name.ends_with(shellSuffix)) sockets.push_back(runtimeFolder + '/' + name);
    return sockets;
}

} // namespace tvctl::doctor
