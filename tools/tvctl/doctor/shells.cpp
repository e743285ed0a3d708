#include "checks.h"
#include "files.h"

#include <host/shell-client.h>

#include <cerrno>
#include <exception>
#include <filesystem>

namespace tvctl::doctor {

Diagnosis checkShell(const std::string& socket, std::chrono::milliseconds timeout) {
    Diagnosis diagnosis;
    const std::string process = std::filesystem::path(socket).stem();
    const auto state = examineSocket(socket);
    if (state.kind == SocketState::Kind::missing) return diagnosis;
    diagnosis.doors.push_back(doorOf(socket, state));
    if (!checkSocket(diagnosis, process, socket, state)) return diagnosis;
    try {
        host::ShellClient client;
        client.connect(socket);
        const auto reply = client.run("help", true, timeout);
        if (reply.status == -EAGAIN)
            diagnosis.warn(process, reply.error, "end one of them, as no other tvctl gets an answer");
        else if (reply.status < 0)
            diagnosis.wrong(process,
                            "its shell refuses a command with " + std::to_string(reply.status) + ": " + reply.error,
                            "run a process and a tvctl of the same version and user");
        else
            diagnosis.ok(process, "process " + std::to_string(state.process) + " answers in its shell");
    } catch (const std::exception& error) {
        diagnosis.wrong(process, std::string("does not answer in its shell: ") + error.what(),
                        "see what process " + std::to_string(state.process) + " is doing, and start it anew");
    }
    return diagnosis;
}

} // namespace tvctl::doctor
