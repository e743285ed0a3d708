#include "request-commands.h"

#include <genrpc/json.h>
#include <tvservice/messages.h>

#include <string>
#include <string_view>
#include <system_error>
#include <tuple>

namespace control {
namespace {

// The shell's description of a command: every argument is a string there, so that what is wrong with one is said here.
std::string specificationOf(const char* command, std::string_view arguments) {
    std::string text = command;
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
    std::apply([&](auto&... argument) { (reader.read(argument), ...); }, arguments);
    if (!reader.problem().empty()) return badArgument;
    frame::MsgIds ids;
    return std::apply(
        [&](const auto&... argument) { return (adapter.*method)(ids, frame::TransportInfo{}, argument...); },
        arguments);
}

template <class Message, auto method>
constexpr RequestCommands::Request RequestCommands::request(const char* command, const char* arguments,
                                                            const char* help) {
    return {command, arguments, help, Message::name, send<Message, method>};
}

int RequestCommands::registerAll() {
    using namespace tvservice::messages;
    using Adapter = tvservice::ModelTvServiceAdapter;
    static constexpr Request requests[] = {
        request<TvServiceSwapWinReq, &Adapter::tvServiceSwapWinReq>("swap-win", "N", "swaps what two windows show"),
        request<TvServiceStreamInfoReq, &Adapter::tvServiceStreamInfoReq>("stream-info", "N", "asks about a stream"),
        request<TvServiceAudioReq, &Adapter::tvServiceAudioReq>("audio", "TERMINAL N [N]",
                                                                "chooses a terminal's audio track"),
        request<TvServiceSubtitleReq, &Adapter::tvServiceSubtitleReq>("subtitle", "TERMINAL N [N]",
                                                                      "chooses a terminal's subtitles"),
        request<TvServiceVideoReq, &Adapter::tvServiceVideoReq>("video", "TERMINAL N [N]",
                                                                "chooses a terminal's video track"),
        request<TvServiceTeletextReq, &Adapter::tvServiceTeletextReq>("teletext", "TERMINAL N [N]",
                                                                      "chooses a terminal's teletext"),
        request<TvServiceInfoReq, &Adapter::tvServiceInfoReq>("info", "", "asks what the terminals show"),
        request<TvServiceAskReleaseReq, &Adapter::tvServiceAskReleaseReq>("ask-release", "N",
                                                                          "asks for the release of a resource"),
        request<TvServiceSendKeyReq, &Adapter::tvServiceSendKeyReq>("send-key", "KEY",
                                                                    "sends a key to the broadcast's application"),
        request<TvServiceSListChangedInd, &Adapter::tvServiceSListChangedInd>(
            "slist-changed", "N", "tells that the service list has changed"),
        request<TvServiceTryRunReq, &Adapter::tvServiceTryRunReq>("try-run", "N",
                                                                  "tries whether something could be played"),
        request<SetParentalLockInfo, &Adapter::setParentalLockInfo>("parental-lock", "TERMINAL N [N]",
                                                                    "locks or unlocks a terminal"),
        request<MtsAudioChangeReq, &Adapter::mtsAudioChangeReq>("mts-audio", "N",
                                                                "chooses the track of a multichannel sound broadcast"),
        request<SetCasService, &Adapter::setCasService>("cas-service", "N", "chooses the conditional access service"),
        request<RequestPackagesReq, &Adapter::requestPackagesReq>("request-packages", "TYPE PACKAGES",
                                                                  "fetches packages over the air"),
        request<TvServiceSourceChanged, &Adapter::tvServiceSourceChanged>("source-changed", "SOURCE",
                                                                          "tells that the signal's source has changed"),
    };
    for (const auto& request : requests) {
        auto& context = contexts_.emplace_back(Context{this, &request});
        const std::string arguments = request.arguments;
        const int result = shell_.registerCommand(
            specificationOf(request.command, arguments), (arguments.empty() ? "" : arguments + " - ") + request.help,
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
    ArgumentReader reader(shell_, request.arguments);
    const int result = request.send(adapter_, reader);
    if (!reader.problem().empty()) return refuse(shell_, reader.problem());
    const std::string message = request.message;
    if (result < 0)
        shell_.print(message + " could not be sent: " + std::system_category().message(-result) + "\n");
    else
        shell_.print(shell_.wantsJson() ? genrpc::textOf(genrpc::Json{{"sent", message}}) + "\n"
                                        : "sent " + message + "\n");
    return result;
}

} // namespace control
