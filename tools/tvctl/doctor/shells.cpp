#include "checks.h"
#include "files.h"
#include "process-state.h"

#include <host/shell-client.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace tvctl::doctor {
namespace {

bool offers(const std::string& help, std::string_view word) {
    for (const auto& command : nlohmann::json::parse(help))
        if (command.at("command") == word) return true;
    return false;
}

// Warns when the answer to the current request in a receiver's queue is overdue.
void checkBundle(Diagnosis& diagnosis, const std::string& process, const nlohmann::json& bundle) {
    if (bundle.value("overdueMs", std::int64_t{0}) > 0)
        diagnosis.warn(process, bundle.at("state").get<std::string>(),
                       "check that the services answer; pause what sends requests, or make it zap (tvctl zap)");
}

// Warns when a connected service has not answered the newest request.
void checkRequest(Diagnosis& diagnosis, const std::string& process, const nlohmann::json& request) {
    if (request.at("state") != "given up") return;
    for (const auto& line : request.at("lines"))
        diagnosis.warn(
            process, line.get<std::string>(),
            "see the log and the faults of that service (tvctl --target tvserviced faults, or mmserviced), and "
            "restart it; then play again");
}

// Why a notification does not return, as far as its calls tell: what an application must not call there, or where it
// is.
std::string reasonOf(const nlohmann::json& calls) {
    constexpr const char* forbidden[] = {"addClient", "removeClient"};
    const auto functionOf = [](const nlohmann::json& call) { return call.at("function").get<std::string>(); };
    for (auto call = calls.begin(); call != calls.end(); ++call)
        for (const char* name : forbidden) {
            if (functionOf(*call).find(std::string("::") + name + "(") == std::string::npos) continue;
            const auto caller = std::find_if(std::next(call), calls.end(), [&](const auto& outer) {
                return outer.at("library") != call->at("library");
            });
            if (caller != calls.end())
                return caller->at("library").get<std::string>() + " calls " + name + " in it, which is forbidden";
        }
    for (const auto& call : calls)
        if (const auto library = call.at("library").get<std::string>(); !library.starts_with("libc.so"))
            return "it is in " + library + (functionOf(call).empty() ? "" : ", " + functionOf(call));
    return "its calls are unknown";
}

// Warns when a client does not return from a notification. Nobody receives anything meanwhile.
void checkHandling(Diagnosis& diagnosis, const std::string& process, const nlohmann::json& handling) {
    diagnosis.wrong(process,
                    "a client has not returned from the notification " + handling.at("message").get<std::string>() +
                        " for half a second: " + reasonOf(handling.at("calls")) +
                        "; no application receives anything meanwhile",
                    "correct that library (docs/applications.md says what is allowed), and restart the process");
}

// Checks each object that a command of the receiver prints.
struct Check {
    std::string_view command;
    const char* line; // the command with its arguments
    void (*check)(Diagnosis&, const std::string& process, const nlohmann::json& object);
};
constexpr Check checks[] = {
    {"bundles", "bundles 1", checkBundle},
    {"requests", "requests 1", checkRequest},
    {"handling", "handling", checkHandling},
};

void checkReceiver(Diagnosis& diagnosis, const std::string& process, const std::string& help, host::ShellClient& client,
                   std::chrono::milliseconds timeout) {
    for (const auto& [command, line, check] : checks) {
        if (!offers(help, command)) continue;
        const auto reply = client.run(line, true, timeout);
        if (reply.status < 0)
            diagnosis.warn(process, "rejects the command " + std::string(line) + ": " + reply.error,
                           "run a process and a tvctl of the same version");
        else
            for (const auto& object : nlohmann::json::parse(reply.output)) check(diagnosis, process, object);
    }
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
            checkReceiver(diagnosis, process, reply.output, client, timeout);
        }
    } catch (const std::exception& error) {
        const Silence silence = silenceOf(state.process);
        diagnosis.wrong(process, silence.what + " in its shell: " + error.what(), silence.remedy);
    }
    return diagnosis;
}

} // namespace tvctl::doctor
