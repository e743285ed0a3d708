#include "checks.h"
#include "files.h"

#include <host/shell-client.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace tvctl::doctor {
namespace {

bool offers(const std::string& help, const std::string& word) {
    for (const auto& command : nlohmann::json::parse(help))
        if (command.at("command") == word) return true;
    return false;
}

// Warns when the answer to the current request in a receiver's queue is overdue.
void checkQueue(Diagnosis& diagnosis, const std::string& process, host::ShellClient& client,
                std::chrono::milliseconds timeout) {
    const auto reply = client.run("bundles 1", true, timeout);
    if (reply.status < 0) {
        diagnosis.warn(process, "does not show its queue of requests: " + reply.error,
                       "run a process and a tvctl of the same version");
        return;
    }
    for (const auto& bundle : nlohmann::json::parse(reply.output))
        if (bundle.value("overdueMs", std::int64_t{0}) > 0)
            diagnosis.warn(process, bundle.at("state").get<std::string>(),
                           "check that the services answer; pause what sends requests, or make it zap (tvctl zap)");
}

} // namespace

Diagnosis checkShell(const std::string& socket, std::chrono::milliseconds timeout) {
    Diagnosis diagnosis;
    const std::string process = std::filesystem::path(socket).stem();
    const auto state = examineSocket(socket);
    if (state.kind == SocketState::Kind::missing) return diagnosis;
    diagnosis.entryPoints.push_back(entryPointOf(socket, state));
    if (!checkSocket(diagnosis, process, socket, state)) return diagnosis;
    try {
        host::ShellClient client;
        client.connect(socket);
        const auto reply = client.run("help", true, timeout);
        if (reply.status == -EAGAIN)
            diagnosis.warn(process, reply.error, "end one of them; until then no other tvctl gets an answer");
        else if (reply.status < 0)
            diagnosis.wrong(process,
                            "its shell rejected a command with " + std::to_string(reply.status) + ": " + reply.error,
                            "run a process and a tvctl of the same version and user");
        else {
            diagnosis.ok(process, "process " + std::to_string(state.process) + " answers in its shell");
            if (offers(reply.output, "bundles")) checkQueue(diagnosis, process, client, timeout);
        }
    } catch (const std::exception& error) {
        diagnosis.wrong(process, std::string("does not answer in its shell: ") + error.what(),
                        "see what process " + std::to_string(state.process) + " is doing, and restart it");
    }
    return diagnosis;
}

} // namespace tvctl::doctor
