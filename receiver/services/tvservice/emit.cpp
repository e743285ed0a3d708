#include "tvservice/emit.h"

#include <genrpc/json.h>
#include <host/result.h>
#include <tvservice/messages.h>

#include <cerrno>
#include <tuple>

namespace services {

namespace {

// Returns the result of sending. Throws genrpc::JsonError, with nothing sent.
template <class Message> int sendFrom(const genrpc::Json& json, const Sender& sender) {
    return std::apply([&](const auto&... args) { return sender.toAll<Message>(args...); },
                      genrpc::argumentsFromJson<Message>(json));
}

struct Emitter {
    const char* name;
    int (*send)(const genrpc::Json&, const Sender&);
};

#define TVSERVICE_EMITTER(service, direction, Name, ...) {#Name, sendFrom<service::messages::Name>},

constexpr Emitter emitters[] = {TVSERVICE_NOTIFICATIONS(TVSERVICE_EMITTER)};

#undef TVSERVICE_EMITTER

const Emitter* emitterOf(const std::string& name) {
    for (const Emitter& emitter : emitters)
        if (name == emitter.name) return &emitter;
    return nullptr;
}

std::string namesOfAll() {
    std::string names;
    for (const Emitter& emitter : emitters) names += (names.empty() ? "" : ", ") + std::string(emitter.name);
    return names;
}

// The parser's message without its error number.
std::string problemOf(const genrpc::Json::parse_error& error) {
    const std::string text = error.what();
    const std::size_t end = text.find("] ");
    return end == std::string::npos ? text : text.substr(end + 2);
}

} // namespace

int EmitCommand::registerWith(appovshell::Server& shell) {
    shell_ = &shell;
    return shell.registerCommand(
        "emit :s ...",
        "NAME [JSON] - sends a notification to every client, with the arguments given as a JSON object or a sample",
        [](void* context) { return static_cast<EmitCommand*>(context)->emit(); }, this);
}

int EmitCommand::emit() {
    const std::string name = shell_->getArgument(0);
    const Emitter* const emitter = emitterOf(name);
    if (!emitter) {
        constexpr std::size_t readable = 64;
        const std::string shown = name.size() > readable ? name.substr(0, readable) + "..." : name;
        return fail(-ENOENT, "no notification \"" + shown + "\"; there are: " + namesOfAll());
    }
    std::string json = shell_->getArgument(1);
    if (json.size() >= jsonLimit)
        return fail(-E2BIG, "the JSON has " + std::to_string(json.size()) + " bytes; fewer than " +
                                std::to_string(jsonLimit) + " are allowed");
    if (json.empty()) json = sampleOf(name);
    try {
        if (const int result = emitter->send(genrpc::Json::parse(json), sender_); result < 0)
            return fail(result, name + " was not sent: " + host::ResultText(result).text());
    } catch (const genrpc::Json::parse_error& error) {
        return fail(-EINVAL, "the arguments are not JSON: " + problemOf(error));
    } catch (const genrpc::JsonError& error) {
        return fail(-EINVAL, name + ": " + error.what());
    }
    shell_->print((shell_->wantsJson() ? genrpc::textOf({{"sent", name}}) : "sent " + name) + '\n');
    return 0;
}

int EmitCommand::fail(int result, const std::string& problem) {
    shell_->print(problem + '\n');
    return result;
}

} // namespace services
