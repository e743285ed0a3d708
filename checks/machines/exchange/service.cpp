#include "service.h"

#include <genrpc/json.h>

#include <chrono>
#include <kit/wait.h>
#include <stdexcept>

namespace exchange {
namespace {

constexpr std::chrono::seconds timeout{30};
constexpr const char* lastCommands[] = {"stats", "emit"}; // registered by the MM service, by the TV service

} // namespace

Service::Service(const std::filesystem::path& program, const std::vector<std::string>& emulator,
                 const std::filesystem::path& folder)
    : name_(program.filename()) {
    std::vector<std::string> words = emulator;
    words.push_back(program);
    process_ = std::make_unique<receiver::ChildProcess>(
        receiver::ChildCommand{words.front(),
                               {words.begin() + 1, words.end()},
                               {{"RUNTIME_DIRECTORY", folder}, {"STATE_DIRECTORY", folder}},
                               folder / (name_ + ".log")});
    const std::string lastCommand = lastCommands[name_ == "tvserviced"];
    const auto isReady = [&] {
        try {
            if (!shell_.isConnected()) shell_.connect(folder / (name_ + ".shell"));
            return shell_.run("help").output.find(lastCommand) != std::string::npos;
        } catch (const host::ShellError&) {
            return !process_->running();
        }
    };
    if (!receiver::waitUntil(isReady, timeout) || !process_->running())
        throw std::runtime_error(name_ + " does not start");
}

std::string Service::ask(const std::vector<std::string>& words) {
    const auto reply = shell_.run(words, true);
    if (reply.status != 0)
        throw std::runtime_error(name_ + " refuses " + words.front() + ": " + reply.output + reply.error);
    return reply.output;
}

std::string Service::terminals() {
    auto terminals = genrpc::Json::parse(ask({"terminals"}));
    for (auto& terminal : terminals) terminal.erase("since");
    return terminals.dump();
}

std::string Service::end() {
    std::string problem;
    for (const auto& counters : genrpc::Json::parse(ask({"stats"})))
        for (const char* counter : {"dropped", "refused", "undecodable"})
            if (counters[counter] != 0) problem += ", " + counters[counter].dump() + ' ' + counter;
    shell_.disconnect();
    process_->terminate(timeout);
    if (const std::string failure = process_->failure(); !failure.empty()) problem += ", " + failure;
    return problem.empty() ? "" : name_ + problem;
}

} // namespace exchange
