// An event as the data of a packet: a header of 40 bytes, big-endian, the name, and the data. docs/recordings.md
// describes it.
#pragma once

#include "event.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace recording {

struct PacketFlags {
    static constexpr std::uint8_t sent = 1;
    static constexpr std::uint8_t bigEndian = 2; // the message inside
};
inline constexpr std::uint8_t packetVersion = 1;
inline constexpr std::uint8_t schemaKind = 255; // of the first packet of a section, which holds the schema
inline constexpr std::size_t packetHeaderBytes = 40;

// The event's date is not part of the packet.
std::string packetOf(const host::RecordedEvent& event, std::uint64_t lost);
std::string schemaPacket(const std::string& json);

struct Packet {
    host::RecordedEvent event;
    std::uint64_t lost = 0;
};
// Throws RecordingError with what is wrong.
Packet readPacket(std::string_view bytes);

} // namespace recording
