// Reads and changes packets of an MPEG transport stream (ISO/IEC 13818-1, 2.4.3).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace media {

inline constexpr std::size_t packetSize = 188;
inline constexpr std::uint8_t syncByte = 0x47;
inline constexpr std::uint16_t pidCount = 0x2000;
// Of a PCR and of time stamps, which count at 90 kHz in 33 bits.
inline constexpr std::uint64_t ticksPerSecond = 90'000;
inline constexpr std::uint64_t tickMask = (std::uint64_t{1} << 33) - 1;

// A view of one packet. Every access is checked: the bytes come from outside.
class Packet {
public:
    explicit Packet(std::span<std::uint8_t, packetSize> bytes) : bytes_(bytes) {}

    bool isValid() const { return bytes_[0] == syncByte && (bytes_[1] & 0x80) == 0; }
    std::uint16_t pid() const { return static_cast<std::uint16_t>((bytes_[1] & 0x1F) << 8 | bytes_[2]); }
    // A table's section or a packet of a stream begins here.
    bool startsUnit() const { return (bytes_[1] & 0x40) != 0; }
    bool hasPayload() const { return (bytes_[3] & 0x10) != 0; }
    bool isRandomAccess() const { return adaptationSize() > 0 && (bytes_[5] & 0x40) != 0; }
    std::span<std::uint8_t> payload() const {
        const std::size_t begin = hasAdaptation() ? 5 + adaptationSize() : 4;
        return hasPayload() && begin < packetSize ? std::span<std::uint8_t>(bytes_).subspan(begin)
                                                  : std::span<std::uint8_t>();
    }
    std::optional<std::uint64_t> pcr() const; // in ticks
    std::optional<std::uint64_t> pts() const; // of the unit that begins here, in ticks
    // Adds ticks to all times in the packet.
    void shift(std::uint64_t ticks) const;
    // Whether a picture that can be decoded alone begins here, as far as this packet shows: a random access point, or
    // headers that only come before such pictures.
    bool startsKeyFrame() const;

private:
    bool hasAdaptation() const { return (bytes_[3] & 0x20) != 0; }
    std::size_t adaptationSize() const { return hasAdaptation() ? bytes_[4] : 0; }
    bool hasPcr() const { return adaptationSize() >= 7 && (bytes_[5] & 0x10) != 0; }

    const std::span<std::uint8_t, packetSize> bytes_;
};

} // namespace media
