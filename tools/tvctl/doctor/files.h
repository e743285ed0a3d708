// What can be said about files and sockets without changing them.
#pragma once

#include "diagnosis.h"

#include <optional>
#include <string>
#include <sys/stat.h>

namespace tvctl::doctor {

// A number in figures that the system's tools use: "0644".
std::string modeText(mode_t mode);
std::string textOfError(int error);

// Nothing when there is no such file; then error is 0, or says why nobody knows. A link is not followed.
std::optional<struct stat> stateOf(const std::string& path, int& error);

// Adds what is wrong with a file that is to be this user's alone: its owner and its mode, of which wanted is the most
// that may be. Returns whether nothing is.
bool checkOwn(Diagnosis& diagnosis, const std::string& path, const struct stat& status, mode_t wanted);

// Who holds the lock on a file, as far as it can be seen from here: "process 4711 (tvserviced)".
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
    pid_t process = 0; // that serves it; 0 when it is too busy to tell
    uid_t user = 0;
};

SocketState examineSocket(const std::string& path);
// Adds what is wrong with a socket that is there; subject is what it belongs to. Returns whether it is served by a
// process of this user.
bool checkSocket(Diagnosis& diagnosis, const std::string& subject, const std::string& path, const SocketState& state);
// For the table of entryPoints.
EntryPoint entryPointOf(const std::string& path, const SocketState& state);

} // namespace tvctl::doctor
