#include "request-commands.h"

#include "request-syntax.h"

#include <genrpc/json.h>
#include <host/result.h>
#include <tvservice/messages.h>

#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace control {
namespace {

// The shell's specification of a command. Every argument is a string, so that errors are reported here.
std::string specificationOf(std::string text, std::string_view arguments) {
    for (bool atStart = true; const char c : arguments) {
        if (atStart) text += c == '[' ? " [:s]" : " :s";
        atStart = c == ' ';
    }
    return text;
}

} // namespace

template <class Message, auto method>
int RequestCommands::send(tvservice::ModelTvServiceAdapter& adapter, ArgumentReader& reader) {
    typename Message::Body::Arguments arguments;
    if constexpr (genrpc::hasMeanings<Message>) {
        auto meaning = genrpc::meanings<Message>.begin();
        std::apply([&](auto&... argument) { (reader.read(argument, *meaning++), ...); }, arguments);
    } else {
        std::apply([&](auto&... argument) { (reader.read(argument), ...); }, arguments);
    }
    if (!reader.problem().empty()) return badArgument;
    frame::MsgIds ids;
    return std::apply(
        [&](const auto&... argument) { return (adapter.*method)(ids, frame::TransportInfo{}, argument...); },
        arguments);
}

template <class Message, auto method> void RequestCommands::add(std::vector<Request>& requests) {
    if constexpr (canBeTyped<typename Message::Body::Arguments>)
        requests.push_back({syntaxOf<Message>(), Message::name, send<Message, method>});
}

int RequestCommands::registerAll() {
    static const auto requests = [] {
        std::vector<Request> made;
#define CONTROL_ADD(service, direction, Name, method, ...) \
    add<service::messages::Name, &service::ModelTvServiceAdapter::method>(made);
        TVSERVICE_REQUESTS(CONTROL_ADD)
#undef CONTROL_ADD
        return made;
    }();
    for (const auto& request : requests) {
        auto& context = contexts_.emplace_back(Context{this, &request});
        const auto& [command, arguments, help] = request.syntax;
        const int result = shell_.registerCommand(
            specificationOf(command, arguments), (arguments.empty() ? "" : arguments + " - ") + help,
            [](void* context) {
                const auto& bound = *static_cast<Context*>(context);
                return bound.self->run(*bound.request);
            },
            &context);
        if (result < 0) return result;
    }
    return 0;
}

int RequestCommands::run(const Request& request) {
    ArgumentReader reader(shell_, request.syntax.arguments);
    const int result = request.send(adapter_, reader);
    if (!reader.problem().empty()) return reject(shell_, reader.problem());
    const std::string message = request.message;
    if (result < 0)
        shell_.print(message + " could not be sent: " + host::ResultText(result).text() + "\n");
    else
        shell_.print(shell_.wantsJson() ? genrpc::textOf(genrpc::Json{{"sent", message}}) + "\n"
                                        : "sent " + message + "\n");
    return result;
}

} // namespace control
