#include "packet.h"

#include "parsed-schema.h"
#include "words.h"

#include <algorithm>
#include <limits>

namespace recording {
namespace {

constexpr std::size_t mostName = std::numeric_limits<std::uint8_t>::max();

// Flags of a file are the same on all machines.
std::uint8_t toPacketFlags(const host::RecordedEvent& event) {
    if (event.kind != host::EventKind::message) return 0;
    const bool isOther = (event.flags & host::EventFlags::otherOrder) != 0;
    const bool isBig = (std::endian::native == std::endian::big) != isOther;
    const bool isSent = (event.flags & host::EventFlags::sent) != 0;
    return static_cast<std::uint8_t>((isSent ? PacketFlags::sent : 0) | (isBig ? PacketFlags::bigEndian : 0));
}

std::uint8_t toEventFlags(const host::RecordedEvent& event, std::uint8_t flags) {
    if (event.kind != host::EventKind::message) return 0;
    const bool isBig = (flags & PacketFlags::bigEndian) != 0;
    const bool isOther = (std::endian::native == std::endian::big) != isBig;
    const bool isSent = (flags & PacketFlags::sent) != 0;
    return static_cast<std::uint8_t>((isSent ? host::EventFlags::sent : 0) |
                                     (isOther ? host::EventFlags::otherOrder : 0));
}

} // namespace

std::string packetOf(const host::RecordedEvent& event, std::uint64_t lost) {
    constexpr auto order = std::endian::big;
    const auto name = std::string_view(event.name).substr(0, mostName);
    std::string bytes;
    bytes.reserve(packetHeaderBytes + name.size() + event.data.size());
    append(bytes, packetVersion, order);
    append(bytes, static_cast<std::uint8_t>(event.kind), order);
    append(bytes, toPacketFlags(event), order);
    append(bytes, static_cast<std::uint8_t>(name.size()), order);
    append(bytes, event.thread, order);
    append(bytes, event.number, order);
    append(bytes, event.time, order);
    append(bytes, lost, order);
    append(bytes, event.size, order);
    append(bytes, std::uint32_t{0}, order);
    return bytes.append(name).append(event.data);
}

std::string schemaPacket(const std::string& json) {
    host::RecordedEvent event;
    event.kind = static_cast<host::EventKind>(schemaKind);
    event.data = json;
    event.size = static_cast<std::uint32_t>(json.size());
    return packetOf(event, 0);
}

Packet readPacket(std::string_view bytes) {
    constexpr auto order = std::endian::big;
    if (bytes.size() < packetHeaderBytes)
        throw RecordingError("a packet of " + std::to_string(bytes.size()) + " bytes");
    if (const auto version = load<std::uint8_t>(bytes, 0, order); version != packetVersion)
        throw RecordingError("a packet of version " + std::to_string(version) + "; this tool reads version " +
                             std::to_string(packetVersion));
    const std::size_t name = load<std::uint8_t>(bytes, 3, order);
    if (name > bytes.size() - packetHeaderBytes) throw RecordingError("a packet whose name is cut off");
    Packet packet;
    auto& event = packet.event;
    event.kind = static_cast<host::EventKind>(load<std::uint8_t>(bytes, 1, order));
    event.flags = toEventFlags(event, load<std::uint8_t>(bytes, 2, order));
    event.thread = load<std::uint32_t>(bytes, 4, order);
    event.number = load<std::uint64_t>(bytes, 8, order);
    event.time = load<std::int64_t>(bytes, 16, order);
    packet.lost = load<std::uint64_t>(bytes, 24, order);
    event.name = bytes.substr(packetHeaderBytes, name);
    event.data = bytes.substr(packetHeaderBytes + name);
    event.size = std::max(load<std::uint32_t>(bytes, 32, order), static_cast<std::uint32_t>(event.data.size()));
    const std::size_t most =
        event.kind == static_cast<host::EventKind>(schemaKind) ? mostSchemaBytes : host::mostRecordedBytes;
    if (event.data.size() > most)
        throw RecordingError("a packet with " + std::to_string(event.data.size()) + " bytes of data");
    return packet;
}

} // namespace recording
