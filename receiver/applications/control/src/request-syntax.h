// The command of each request: listed here, or derived from the names of the message and its arguments.
#pragma once

#include <tvservice/messages.h>

#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace control {

struct RequestSyntax {
    std::string command;
    std::string arguments; // names of the message's arguments, records as their fields in order
    std::string help;
};

struct KnownRequest {
    std::string_view message;
    const char* command;
    const char* arguments;
    const char* help;
};

inline constexpr KnownRequest knownRequests[] = {
    {"TvServiceSwapWinReq", "swap-win", "N", "swaps what two windows show"},
    {"TvServiceStreamInfoReq", "stream-info", "N", "asks about a stream"},
    {"TvServiceAudioReq", "audio", "TERMINAL N [N]", "chooses a terminal's audio track"},
    {"TvServiceSubtitleReq", "subtitle", "TERMINAL N [N]", "chooses a terminal's subtitles"},
    {"TvServiceVideoReq", "video", "TERMINAL N [N]", "chooses a terminal's video track"},
    {"TvServiceTeletextReq", "teletext", "TERMINAL N [N]", "chooses a terminal's teletext"},
    {"TvServiceInfoReq", "info", "", "asks what the terminals show"},
    {"TvServiceAskReleaseReq", "ask-release", "N", "asks for the release of a resource"},
    {"TvServiceSendKeyReq", "send-key", "KEY", "sends a key to the broadcast's application"},
    {"TvServiceSListChangedInd", "slist-changed", "N", "reports that the service list has changed"},
    {"TvServiceTryRunReq", "try-run", "N", "asks whether something could be played"},
    {"SetParentalLockInfo", "parental-lock", "TERMINAL N [N]", "locks or unlocks a terminal"},
    {"MtsAudioChangeReq", "mts-audio", "N", "chooses the track of a multichannel sound broadcast"},
    {"SetCasService", "cas-service", "N", "chooses the conditional access service"},
    {"RequestPackagesReq", "request-packages", "TYPE PACKAGES", "fetches packages over the air"},
    {"TvServiceSourceChanged", "source-changed", "SOURCE", "reports that the signal's source has changed"},
};

// Whether ArgumentReader can read all of a message's arguments.
template <class T> constexpr bool canBeTyped = std::is_same_v<T, std::int32_t> || std::is_same_v<T, std::string>;
template <class T>
requires std::is_enum_v<T>
constexpr bool canBeTyped<T> = canBeTyped<std::underlying_type_t<T>>;
template <class... T> constexpr bool canBeTyped<std::tuple<T...>> = (canBeTyped<T> && ...);
template <class T>
requires requires { typename T::Flat; }
constexpr bool canBeTyped<T> = std::apply(
    [](const auto&... field) {
        return (canBeTyped<std::remove_cvref_t<decltype(std::declval<T&>().*field.plain)>> && ...);
    },
    T::Flat::fields());

// Adds the names of the arguments for a value.
template <class T> void addArguments(std::string& names, const T& value) {
    if constexpr (std::is_same_v<T, tvservice::TvServiceTerminal_t>)
        names += " TERMINAL";
    else if constexpr (std::is_same_v<T, std::string>)
        names += " TEXT";
    else if constexpr (requires { T::Flat::fields(); })
        std::apply([&](const auto&... field) { (addArguments(names, value.*field.plain), ...); }, T::Flat::fields());
    else
        names += " N";
}

// "TvServiceAskReleaseReq" as a command: "ask-release".
inline std::string commandOf(std::string_view message) {
    if (message.starts_with("TvService")) message.remove_prefix(9);
    if (message.ends_with("Req")) message.remove_suffix(3);
    std::string command;
    for (const char c : message) {
        const bool isCapital = c >= 'A' && c <= 'Z';
        if (isCapital && !command.empty()) command += '-';
        command += isCapital ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return command;
}

// For a message that is not in the table. arguments: as addArguments returns them.
inline RequestSyntax derivedSyntax(const char* message, std::string arguments) {
    if (!arguments.empty()) arguments.erase(0, 1); // the space before the first one
    std::string help = "sends ";
    help += message;
    return {commandOf(message), std::move(arguments), std::move(help)};
}

template <class Message> RequestSyntax syntaxOf() {
    for (const auto& known : knownRequests)
        if (known.message == Message::name) return {known.command, known.arguments, known.help};
    std::string names;
    std::apply([&](const auto&... argument) { (addArguments(names, argument), ...); },
               typename Message::Body::Arguments{});
    return derivedSyntax(Message::name, std::move(names));
}

} // namespace control
