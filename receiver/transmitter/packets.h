// Packets of a transport stream (ISO/IEC 13818-1, 2.4.3).
#pragma once

#include "bytes.h"

#include <map>
#include <optional>
#include <span>

namespace transmitter {

inline constexpr std::size_t packetSize = 188;

// What the additions need to know of a packet that the muxer made.
class Packet {
public:
    explicit Packet(std::span<const std::uint8_t, packetSize> bytes) : bytes_(bytes) {}

    std::uint16_t pid() const { return static_cast<std::uint16_t>((bytes_[1] & 0x1F) << 8 | bytes_[2]); }
    std::span<const std::uint8_t> payload() const;
    // In ticks of 90 kHz: the clock, and the time at which what begins here is presented.
    std::optional<std::uint64_t> clock() const;
    std::optional<std::uint64_t> presentation() const;
    // The section that begins here, and what follows it.
    std::span<const std::uint8_t> section() const;

private:
    bool startsUnit() const { return (bytes_[1] & 0x40) != 0; }
    bool hasAdaptation() const { return (bytes_[3] & 0x20) != 0; }

    const std::span<const std::uint8_t, packetSize> bytes_;
};

// Ticks since the first time that it was told. The stream's own times begin anywhere and wrap after a day.
class Elapsed {
public:
    std::uint64_t at(std::uint64_t time);

private:
    std::optional<std::uint64_t> last_;
    std::uint64_t elapsed_ = 0;
};

// Private data with its time of presentation. The header's fields are padded to a length of at least 5.
Bytes privateData(std::uint64_t presentation, const Bytes& data, std::size_t fieldsLength = 5);

// Cuts sections and data into packets and counts these.
class Packetizer {
public:
    Bytes ofSection(std::uint16_t pid, const Bytes& section);
    Bytes ofData(std::uint16_t pid, const Bytes& data);

private:
    void addHeader(Bytes& packets, std::uint16_t pid, bool starts, bool hasAdaptation);

    std::map<std::uint16_t, std::uint8_t> counters_; // by PID
};

} // namespace transmitter
