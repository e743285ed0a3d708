#include "recording-encoder.h"

#include "packet.h"
#include "pcapng.h"
#include "words.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

namespace recording {
namespace {

constexpr char nanoseconds = 9; // 10 to the minus 9

void pad(std::string& bytes) { bytes.resize((bytes.size() + 3) / 4 * 4); }

std::string textOf(const Origin& origin) {
    const nlohmann::ordered_json text{{"process", origin.process},
                                      {"pid", origin.pid},
                                      {"version", origin.version},
                                      {"begin", origin.begin},
                                      {"boot", origin.boot}};
    return text.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::uint32_t directionOf(const host::RecordedEvent& event) {
    if (event.kind != host::EventKind::message) return 0;
    return (event.flags & host::EventFlags::sent) != 0 ? pcapng::outbound : pcapng::inbound;
}

} // namespace

std::string RecordingEncoder::begin(const std::string& schema, std::int64_t date) {
    std::string body;
    append(body, pcapng::byteOrderMagic, order_);
    append(body, pcapng::majorVersion, order_);
    append(body, std::uint16_t{0}, order_);
    append(body, std::int64_t{-1}, order_); // length unknown
    option(body, pcapng::userApplication, program_);
    option(body, pcapng::endOfOptions, {});
    std::string bytes = block(pcapng::sectionHeader, body);
    bytes += interface("schema", "the schema by which the messages are decoded");
    const std::string data = schemaPacket(schema);
    return bytes + packet(0, date, data, data.size(), 0);
}

std::string RecordingEncoder::encode(const Event& event) {
    std::string bytes;
    const std::uint32_t interface = interfaceOf(event, bytes);
    const std::string data = packetOf(event.recorded, event.lost);
    const std::uint64_t cutOff =
        event.recorded.size - std::min<std::uint64_t>(event.recorded.size, event.recorded.data.size());
    return bytes + packet(interface, event.recorded.date, data, data.size() + cutOff, directionOf(event.recorded));
}

std::uint32_t RecordingEncoder::interfaceOf(const Event& event, std::string& bytes) {
    const auto [entry, isNew] =
        interfaces_.try_emplace(event.origin, static_cast<std::uint32_t>(interfaces_.size() + 1));
    if (isNew)
        bytes += interface(event.origin->process + ' ' + std::to_string(event.origin->pid), textOf(*event.origin));
    return entry->second;
}

std::string RecordingEncoder::block(std::uint32_t type, const std::string& body) const {
    std::string bytes;
    const auto length = static_cast<std::uint32_t>(body.size() + pcapng::leastBlockBytes);
    append(bytes, type, order_);
    append(bytes, length, order_);
    bytes += body;
    append(bytes, length, order_);
    return bytes;
}

std::string RecordingEncoder::interface(const std::string& name, const std::string& text) const {
    std::string body;
    append(body, pcapng::ownLinkType, order_);
    append(body, std::uint16_t{0}, order_);
    append(body, std::uint32_t{0}, order_); // no limit
    option(body, pcapng::interfaceName, name);
    option(body, pcapng::interfaceText, text);
    option(body, pcapng::timeResolution, std::string_view(&nanoseconds, 1));
    option(body, pcapng::endOfOptions, {});
    return block(pcapng::interfaceDescription, body);
}

std::string RecordingEncoder::packet(std::uint32_t interface, std::int64_t date, std::string_view data,
                                     std::uint64_t originalSize, std::uint32_t flags) const {
    const auto time = static_cast<std::uint64_t>(std::max<std::int64_t>(date, 0));
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    std::string body;
    append(body, interface, order_);
    append(body, static_cast<std::uint32_t>(time >> 32), order_);
    append(body, static_cast<std::uint32_t>(time), order_);
    append(body, static_cast<std::uint32_t>(data.size()), order_);
    append(body, static_cast<std::uint32_t>(std::min(originalSize, most)), order_);
    body += data;
    pad(body);
    if (flags != 0) {
        std::string word;
        append(word, flags, order_);
        option(body, pcapng::packetFlags, word);
        option(body, pcapng::endOfOptions, {});
    }
    return block(pcapng::enhancedPacket, body);
}

void RecordingEncoder::option(std::string& body, std::uint16_t number, std::string_view value) const {
    value = value.substr(0, std::numeric_limits<std::uint16_t>::max());
    append(body, number, order_);
    append(body, static_cast<std::uint16_t>(value.size()), order_);
    body += value;
    pad(body);
}

} // namespace recording
