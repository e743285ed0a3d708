// Examines files and sockets without changing them.
#pragma once

#include "diagnosis.h"

#include <optional>
#include <string>
#include <sys/stat.h>

namespace tvctl::doctor {

// A mode in octal, as the system's tools print it: "0644".
std::string modeText(mode_t mode);
std::string textOfError(int error);

// Returns nullopt when the file does not exist (error is 0) or cannot be examined (error says why). Follows no links.
std::optional<struct stat> stateOf(const std::string& path, int& error);

// Adds findings when a private file has another owner, or more mode bits than allowed. Returns whether it has neither.
bool checkOwn(Diagnosis& diagnosis, const std::string& path, const struct stat& status, mode_t allowed);

// The process that holds the lock on a file, if it is visible from here: "process 4711 (tvserviced)".
std::optional<std::string> holderOfLock(const std::string& path, const struct stat& status);

// A socket in the file system.
struct SocketState {
    enum class Kind {
        missing,
        noSocket,
        stale, // of a process that has ended
        served,
        unreachable, // error says why
    };
    Kind kind = Kind::missing;
    struct stat status {};
    int error = 0;
    pid_t process = 0; // that serves it; 0 when it is too busy to accept
    uid_t user = 0;
};

SocketState examineSocket(const std::string& path);
// Adds findings about an existing socket; subject: what it belongs to. Returns whether a process of this user serves
// it.
bool checkSocket(Diagnosis& diagnosis, const std::string& subject, const std::string& path, const SocketState& state);
// A row of the table of entry points.
EntryPoint entryPointOf(const std::string& path, const SocketState& state);

} // namespace tvctl::doctor
