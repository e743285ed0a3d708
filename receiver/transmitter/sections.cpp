#include "sections.h"

#include <stdexcept>

namespace transmitter {
namespace {

constexpr std::size_t lengthEnd = 3, checksumSize = 4;

void addChecksum(Bytes& bytes) {
    constexpr std::uint32_t polynomial = 0x04C11DB7, top = 0x80000000;
    std::uint32_t sum = 0xFFFFFFFF;
    for (const std::uint8_t byte : bytes) {
        sum ^= std::uint32_t{byte} << 24;
        for (int bit = 0; bit < 8; ++bit) sum = sum & top ? sum << 1 ^ polynomial : sum << 1;
    }
    add16(bytes, sum >> 16);
    add16(bytes, sum);
}

} // namespace

Bytes descriptor(std::uint8_t tag, const Bytes& content) {
    Bytes bytes{tag, static_cast<std::uint8_t>(content.size())};
    add(bytes, content);
    return bytes;
}

Bytes section(const SectionHeader& header, const Bytes& content) {
    constexpr std::size_t rest = 9; // after the length: the header's and the checksum's
    Bytes bytes{header.table};
    add16(bytes, 0xF000 | (content.size() + rest));
    add16(bytes, header.extension);
    add(bytes, {static_cast<std::uint8_t>(0xC1 | header.version << 1), header.number, header.lastNumber});
    add(bytes, content);
    addChecksum(bytes);
    return bytes;
}

Bytes extended(std::span<const std::uint8_t> section, const Bytes& more) {
    const std::size_t size =
        section.size() < lengthEnd ? 0 : lengthEnd + (std::size_t{section[1] & 0x0FU} << 8 | section[2]);
    if (size < lengthEnd + checksumSize || size > section.size())
        throw std::runtime_error("a table of the muxer is longer than one packet");
    const auto kept = section.first(size - checksumSize);
    Bytes bytes(kept.begin(), kept.end());
    add(bytes, more);
    const std::size_t length = bytes.size() + checksumSize - lengthEnd;
    bytes[1] = static_cast<std::uint8_t>((bytes[1] & 0xF0) | length >> 8);
    bytes[2] = static_cast<std::uint8_t>(length);
    addChecksum(bytes);
    return bytes;
}

} // namespace transmitter
