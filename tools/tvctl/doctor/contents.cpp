#include "checks.h"
#include "files.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace tvctl::doctor {
namespace {

constexpr std::string_view lockEnding = ".lock", shellEnding = ".shell", serviceEnding = ".sock";

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
    if (!status) return; // gone by now
    if (!S_ISREG(status->st_mode))
        return diagnosis.wrong(lock, "no file, so that nobody can take the lock", "remove it");
    if (!checkOwn(diagnosis, lock, *status, 0600)) return;
    const auto socket = examineSocket(lock.substr(0, lock.size() - lockEnding.size()));
    if (socket.kind == SocketState::Kind::served) return;
    const auto holder = holderOfLock(lock, *status);
    if (holder)
        diagnosis.warn(lock, "held by " + *holder + ", but nobody serves the socket beside it",
                       "wait if the process is starting or ending, else end it");
    else
        diagnosis.ok(lock, "left by a process that has ended; the next one takes it");
}

void checkOther(Diagnosis& diagnosis, const std::string& path) {
    const auto state = examineSocket(path);
    if (state.kind == SocketState::Kind::missing) return;
    if (state.kind == SocketState::Kind::noSocket)
        return diagnosis.warn(path, "a strange file, which no process here makes", "find out whose it is");
    diagnosis.entryPoints.push_back(entryPointOf(path, state));
    if (checkSocket(diagnosis, path, path, state))
        diagnosis.warn(path, "served by process " + std::to_string(state.process) + ", but no service known here",
                       "find out what it is");
}

} // namespace

Diagnosis checkContents(const std::string& runtimeFolder) {
    Diagnosis diagnosis;
    const auto known = services();
    for (const std::string& name : namesIn(runtimeFolder)) {
        const std::string path = runtimeFolder + '/' + name;
        const bool ofService = std::any_of(known.begin(), known.end(), [&](const Service& service) {
            return name == service.name + std::string(serviceEnding);
        });
        if (name.ends_with(lockEnding))
            checkLock(diagnosis, path);
        else if (!name.ends_with(shellEnding) && !ofService)
            checkOther(diagnosis, path);
    }
    return diagnosis;
}

std::vector<std::string> shellsIn(const std::string& runtimeFolder) {
    std::vector<std::string> sockets;
    for (const std::string& name : namesIn(runtimeFolder))
        if (name.ends_with(shellEnding)) sockets.push_back(runtimeFolder + '/' + name);
    return sockets;
}

} // namespace tvctl::doctor
