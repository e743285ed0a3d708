#include "checks.h"
#include "files.h"

#include <host/shell-client.h>

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
        client.run("help", true, timeout);
        diagnosis.ok(process, "process " + std::to_string(state.process) + " answers in its shell");
    } catch (const std::exception& error) {
        diagnosis.wrong(process, std::string("does not answer in its shell: ") + error.what(),
                        "see what process " + std::to_string(state.process) + " is doing, and start it anew");
    }
    return diagnosis;
}

} // namespace tvctl::doctor
