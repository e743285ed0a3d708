// The numbers of pcapng files that recordings use. docs/recordings.md describes the files.
#pragma once

#include <cstddef>
#include <cstdint>

namespace recording::pcapng {

enum BlockType : std::uint32_t {
    sectionHeader = 0x0A0D0D0A, // the same in both byte orders
    interfaceDescription = 1,
    enhancedPacket = 6,
};
inline constexpr std::uint32_t byteOrderMagic = 0x1A2B3C4D;
inline constexpr std::uint16_t majorVersion = 1;
inline constexpr std::uint16_t ownLinkType = 147; // the first one for private use

enum Option : std::uint16_t {
    endOfOptions = 0,
    // of a section
    userApplication = 4,
    // of an interface
    interfaceName = 2,
    interfaceText = 3,
    timeResolution = 9,
    // of a packet
    packetFlags = 2,
};
enum PacketDirection : std::uint32_t { inbound = 1, outbound = 2 }; // in the lowest bits of the flags

inline constexpr std::size_t leastBlockBytes = 12;             // type, length, length
inline constexpr std::size_t mostBlockBytes = 8 * 1024 * 1024; // holds the longest schema
inline constexpr std::size_t mostInterfaces = 4096;            // of a section

} // namespace recording::pcapng
