#include "packets.h"

#include <algorithm>

namespace transmitter {
namespace {

constexpr std::size_t headerSize = 4, payloadSize = packetSize - headerSize;

std::span<const std::uint8_t> partOf(const Bytes& bytes, std::size_t at) {
    return std::span(bytes).subspan(at, std::min(payloadSize, bytes.size() - at));
}

} // namespace

std::span<const std::uint8_t> Packet::payload() const {
    const std::size_t begin = hasAdaptation() ? headerSize + 1 + bytes_[4] : headerSize;
    return begin < packetSize ? bytes_.subspan(begin) : std::span<const std::uint8_t>();
}

std::optional<std::uint64_t> Packet::clock() const {
    constexpr std::uint8_t hasClock = 0x10;
    if (!hasAdaptation() || bytes_[4] < 7 || (bytes_[5] & hasClock) == 0) return std::nullopt;
    return std::uint64_t{bytes_[6]} << 25 | std::uint64_t{bytes_[7]} << 17 | std::uint64_t{bytes_[8]} << 9 |
           std::uint64_t{bytes_[9]} << 1 | bytes_[10] >> 7;
}

std::optional<std::uint64_t> Packet::presentation() const {
    constexpr std::size_t timeEnd = 14;
    constexpr std::uint8_t hasTime = 0x80;
    const auto bytes = payload();
    if (!startsUnit() || bytes.size() < timeEnd || (bytes[7] & hasTime) == 0) return std::nullopt;
    return std::uint64_t{bytes[9] & 0x0EU} << 29 | std::uint64_t{bytes[10]} << 22 |
           std::uint64_t{bytes[11] & 0xFEU} << 14 | std::uint64_t{bytes[12]} << 7 | bytes[13] >> 1;
}

std::span<const std::uint8_t> Packet::section() const {
    const auto bytes = payload();
    if (!startsUnit() || bytes.empty() || bytes.size() <= bytes[0]) return {};
    return bytes.subspan(1U + bytes[0]);
}

std::uint64_t Elapsed::at(std::uint64_t time) {
    constexpr std::uint64_t mask = (std::uint64_t{1} << 33) - 1;
    elapsed_ += (time - last_.value_or(time)) & mask;
    last_ = time;
    return elapsed_;
}

Bytes privateData(std::uint64_t presentation, const Bytes& data, std::size_t fieldsLength) {
    constexpr std::size_t timeSize = 5;
    const auto byte = [](std::uint64_t value) { return static_cast<std::uint8_t>(value); };
    Bytes bytes{0, 0, 1, 0xBD};
    add16(bytes, 3 + fieldsLength + data.size());
    add(bytes, {0x84, 0x80, byte(fieldsLength)}); // data begin here, with a time
    add(bytes, {byte(0x21 | (presentation >> 29 & 0x0E)), byte(presentation >> 22), byte(presentation >> 14 | 1),
                byte(presentation >> 7), byte(presentation << 1 | 1)});
    bytes.insert(bytes.end(), fieldsLength - timeSize, 0xFF);
    add(bytes, data);
    return bytes;
}

void Packetizer::addHeader(Bytes& packets, std::uint16_t pid, bool starts, bool hasAdaptation) {
    std::uint8_t& counter = counters_[pid];
    packets.push_back(0x47);
    add16(packets, (starts ? 0x4000U : 0U) | pid);
    packets.push_back(static_cast<std::uint8_t>((hasAdaptation ? 0x30 : 0x10) | counter));
    counter = (counter + 1) & 0x0F;
}

Bytes Packetizer::ofSection(std::uint16_t pid, const Bytes& section) {
    Bytes data{0}, packets; // the section begins at once
    add(data, section);
    for (std::size_t at = 0; at < data.size(); at += payloadSize) {
        addHeader(packets, pid, at == 0, false);
        const auto part = partOf(data, at);
        packets.insert(packets.end(), part.begin(), part.end());
        packets.insert(packets.end(), payloadSize - part.size(), 0xFF);
    }
    return packets;
}

Bytes Packetizer::ofData(std::uint16_t pid, const Bytes& data) {
    Bytes packets;
    for (std::size_t at = 0; at < data.size(); at += payloadSize) {
        const auto part = partOf(data, at);
        const std::size_t padding = payloadSize - part.size();
        addHeader(packets, pid, at == 0, padding > 0);
        if (padding > 0) packets.push_back(static_cast<std::uint8_t>(padding - 1));
        if (padding > 1) packets.push_back(0);
        if (padding > 2) packets.insert(packets.end(), padding - 2, 0xFF);
        packets.insert(packets.end(), part.begin(), part.end());
    }
    return packets;
}

} // namespace transmitter
