#include "known-settings.h"

#include "log-levels/levels.h"

#include <host/endpoint.h>
#include <host/printable.h>
#include <host/queue-limits.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <limits>

namespace host::config {
namespace {

constexpr std::uint64_t longestCount = 0x7FFFFFFF;
constexpr std::uint64_t noBound = std::numeric_limits<std::size_t>::max();
constexpr QueueLimits usualLimits;

constexpr std::string_view outputs[] = {"auto", "none", "windows", "screen", "fullscreen"};
constexpr std::string_view sounds[] = {"auto", "none"};
constexpr std::string_view formats[] = {"text", "json"};

constexpr Known table[] = {
    {.name = "endpoints.",
     .variable = "TVSA_ENDPOINT_",
     .help = "address of a service: socket path or tcp://HOST:PORT",
     .kind = Kind::endpoint,
     .trusted = true},
    {.name = "keys.file", .variable = "TVSA_KEY_FILE", .help = "file with this machine's key pair", .trusted = true},
    {.name = "keys.clients",
     .variable = "TVSA_CLIENT_KEYS",
     .help = "public keys of the clients that may connect from other hosts",
     .kind = Kind::texts,
     .trusted = true},
    {.name = "keys.services.",
     .variable = "TVSA_SERVICE_KEY_",
     .help = "public key of a service on another host, which the service must prove",
     .trusted = true},
    {.name = "remote.heartbeat_ms",
     .variable = "TVSA_HEARTBEAT_MS",
     .help = "milliseconds between heartbeats on a connection to another host",
     .kind = Kind::number,
     .least = 10,
     .most = 60000,
     .number = 1000},
    {.name = "queue.messages",
     .variable = "TVSA_QUEUE_MESSAGES",
     .help = "maximum number of queued messages per connection",
     .kind = Kind::number,
     .least = 1,
     .most = longestCount,
     .number = usualLimits.messages},
    {.name = "queue.bytes",
     .variable = "TVSA_QUEUE_BYTES",
     .help = "maximum number of queued bytes per connection",
     .kind = Kind::number,
     .least = 1,
     .most = longestCount,
     .number = usualLimits.bytes},
    {.name = "queue.wait_ms",
     .variable = "TVSA_QUEUE_WAIT_MS",
     .help = "milliseconds that a message waits for a connection",
     .kind = Kind::number,
     .least = 1,
     .most = longestCount,
     .number = usualLimits.wait.count()},
    {.name = "queue.unfinished_ms",
     .variable = "TVSA_QUEUE_UNFINISHED_MS",
     .help = "milliseconds that a partly received message may make no progress",
     .kind = Kind::number,
     .least = 100,
     .most = longestCount,
     .number = usualLimits.unfinished.count()},
    {.name = "run_log.queue",
     .variable = "TVSA_RUNLOG_QUEUE",
     .help = "maximum number of run log records queued for storage",
     .kind = Kind::number,
     .replaceable = true,
     .least = 1,
     .most = noBound,
     .number = 1024},
    {.name = "flat_heap.megabytes",
     .variable = "TVSA_FLAT_HEAP_MB",
     .help = "mebibytes of memory for messages on 64-bit hosts",
     .kind = Kind::number,
     .replaceable = true,
     .least = 32,
     .most = 2048,
     .number = 256},
    {.name = "recorder.megabytes",
     .variable = "TVSA_RECORDER_MB",
     .help = "mebibytes in which a process keeps what it did last, 0 for none",
     .kind = Kind::number,
     .least = 0,
     .most = 1024,
     .number = 8},
    {.name = "media.engine",
     .variable = "TVSA_MEDIA_ENGINE",
     .help = "what shows pictures behind the services: auto, simulated, gstreamer, or the path of a library",
     .trusted = true,
     .usual = "auto"},
    {.name = "media.output",
     .variable = "TVSA_MEDIA_OUTPUT",
     .help = "where pictures appear: auto, none, windows, screen or fullscreen",
     .kind = Kind::choice,
     .usual = "auto",
     .choices = outputs},
    {.name = "media.sound",
     .variable = "TVSA_MEDIA_SOUND",
     .help = "auto to play the main terminal's sound where there is a sound card, or none",
     .kind = Kind::choice,
     .usual = "auto",
     .choices = sounds},
    {.name = "media.tuners",
     .variable = "TVSA_MEDIA_TUNERS",
     .help = "number of transport streams that the TV service receives at a time",
     .kind = Kind::number,
     .least = 1,
     .most = 64,
     .number = 4},
    {.name = "log.levels",
     .variable = "TVSA_LOG",
     .help = "debug levels: LEVEL or MODULE=LEVEL, comma-separated",
     .kind = Kind::levels,
     .replaceable = true,
     .usual = "warning"},
    {.name = "log.format",
     .variable = "TVSA_LOG_FORMAT",
     .help = "text, or json for one object per line",
     .kind = Kind::choice,
     .replaceable = true,
     .usual = "text",
     .choices = formats},
};

std::string upper(std::string_view text) {
    std::string result;
    for (const char c : text) result += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return result;
}

std::string lower(std::string_view text) {
    std::string result;
    for (const char c : text) result += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

std::string problemOfNumber(const Known& known, const std::string& text) {
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error == std::errc() && rest == end && value >= known.least && value <= known.most) return {};
    if (known.most == noBound) return quoted(text) + " is not a number above 0";
    return "not a number from " + std::to_string(known.least) + " to " + std::to_string(known.most) + ": " +
           quoted(text);
}

std::string problemOfLevels(const std::string& text) {
    std::string errors = debug::levelErrors(text);
    std::replace(errors.begin(), errors.end(), '\n', ';');
    return errors;
}

std::string problemOfChoice(std::span<const std::string_view> choices, const std::string& text) {
    std::string all = "neither ";
    for (const std::string_view choice : choices) {
        if (text == choice) return {};
        if (choice != choices.front()) all += choice == choices.back() ? " nor " : ", ";
        all += choice;
    }
    return quoted(text) + " is " + all;
}

std::string problemOfTexts(std::string_view list) {
    for (std::size_t start = 0; start <= list.size();) {
        const std::size_t end = std::min(list.find(',', start), list.size());
        if (start == end) return "an empty item in " + quoted(list);
        start = end + 1;
    }
    return {};
}

} // namespace

std::optional<std::string> Known::builtIn() const {
    if (kind == Kind::number) return std::to_string(number);
    if (usual.empty()) return std::nullopt;
    return std::string(usual);
}

std::string Known::problemOf(const std::string& text) const {
    if (kind == Kind::number) return problemOfNumber(*this, text);
    if (printable(text) != text) return "not a string of printable characters: " + quoted(text);
    if (kind == Kind::levels) return problemOfLevels(text);
    if (kind == Kind::choice) return problemOfChoice(choices, text);
    if (kind == Kind::texts) return text.empty() ? "" : problemOfTexts(text);
    if (text.empty()) return "not a string: \"\"";
    return kind == Kind::endpoint ? problemOfEndpoint(text) : "";
}

std::span<const Known> knownSettings() { return table; }

const Known* findKnown(std::string_view name) {
    for (const Known& known : table)
        if (known.perService() ? name.starts_with(known.name) && name.size() > known.name.size() : name == known.name)
            return &known;
    return nullptr;
}

std::string variableOf(const Known& known, std::string_view name) {
    return std::string(known.variable) + (known.perService() ? upper(name.substr(known.name.size())) : "");
}

std::string nameOf(const Known& known, std::string_view variable) {
    return std::string(known.name) + lower(variable.substr(known.variable.size()));
}

} // namespace host::config
