// Transport streams that tests make packet by packet, right or wrong.
#pragma once

#include "media/gstreamer/packet.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace made_stream {

using media::packetSize;
using media::syncByte;

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t video = 0x1B;

inline void add16(Bytes& bytes, std::size_t number) {
    bytes.push_back(static_cast<std::uint8_t>(number >> 8));
    bytes.push_back(static_cast<std::uint8_t>(number));
}

inline std::uint32_t checksumOf(const Bytes& bytes) {
    constexpr std::uint32_t polynomial = 0x04C11DB7, top = 0x80000000;
    std::uint32_t sum = 0xFFFFFFFF;
    for (const std::uint8_t byte : bytes) {
        sum ^= std::uint32_t{byte} << 24;
        for (int bit = 0; bit < 8; ++bit) sum = (sum & top) != 0 ? sum << 1 ^ polynomial : sum << 1;
    }
    return sum;
}

struct Numbers {
    std::uint8_t version = 0, section = 0, last = 0;
};

inline Bytes section(std::uint8_t table, std::uint16_t extension, const Bytes& content, Numbers numbers = {}) {
    constexpr std::size_t rest = 9; // of a section after its length: header and checksum
    Bytes bytes{table};
    add16(bytes, 0xB000 | (content.size() + rest));
    add16(bytes, extension);
    bytes.push_back(static_cast<std::uint8_t>(0xC1 | numbers.version << 1));
    bytes.insert(bytes.end(), {numbers.section, numbers.last});
    bytes.insert(bytes.end(), content.begin(), content.end());
    const std::uint32_t sum = checksumOf(bytes);
    add16(bytes, sum >> 16);
    add16(bytes, sum & 0xFFFF);
    return bytes;
}

// A transport stream, packet by packet.
struct MadeStream {
    Bytes bytes;

    void packet(std::uint16_t pid, bool starts, Bytes payload) {
        bytes.push_back(syncByte);
        add16(bytes, static_cast<std::size_t>(starts ? 0x4000 : 0) | pid);
        bytes.push_back(0x10);
        payload.resize(packetSize - 4, 0xFF);
        bytes.insert(bytes.end(), payload.begin(), payload.end());
    }
    void table(std::uint16_t pid, const Bytes& section) {
        constexpr std::size_t room = packetSize - 4;
        Bytes data{0};
        data.insert(data.end(), section.begin(), section.end());
        for (std::size_t at = 0; at < data.size(); at += room)
            packet(pid, at == 0,
                   Bytes(data.begin() + static_cast<std::ptrdiff_t>(at),
                         data.begin() + static_cast<std::ptrdiff_t>(std::min(at + room, data.size()))));
    }
    // Programs from first on, whose tables have the PIDs from 0x1000 on.
    void list(std::size_t first, std::size_t count, Numbers numbers = {}) {
        Bytes entries;
        for (std::size_t number = first; number < first + count; ++number) {
            add16(entries, number);
            add16(entries, 0xE000 | (0x1000 + number % 0xF00));
        }
        table(0, section(0, 1, entries, numbers));
    }
    void program(std::uint16_t number, const Bytes& streamTypes, Numbers numbers = {}) {
        Bytes content;
        add16(content, 0xE000 | (0x100U * number));
        add16(content, 0xF000);
        for (std::size_t i = 0; i < streamTypes.size(); ++i) {
            content.push_back(streamTypes[i]);
            add16(content, 0xE000 | (0x100U * number + i));
            add16(content, 0xF000);
        }
        table(static_cast<std::uint16_t>(0x1000 + number), section(2, number, content, numbers));
    }
    // What runs now (section 0) or next (section 1) on a program, for viewers of an age; none: no event.
    void event(std::uint16_t number, std::optional<std::uint8_t> age, Numbers numbers) {
        Bytes content{0, 1, 0, 1, numbers.last, 0x4E};
        constexpr std::size_t ratingSize = 6, ageOfZero = 3;
        if (age) {
            content.insert(content.end(), {0, 1, 0xC0, 0x79, 0x12, 0, 0, 0, 0x30, 0, 0x80, ratingSize});
            content.insert(content.end(),
                           {0x55, ratingSize - 2, 'd', 'e', 'u', static_cast<std::uint8_t>(*age - ageOfZero)});
        }
        table(0x12, section(0x4E, number, content, numbers));
    }
    void keyFrame(std::uint16_t pid) { packet(pid, true, {0, 0, 1, 0xE0, 0, 0, 0x80, 0, 0, 0, 0, 1, 0x67}); }
    // Ticks of 90 kHz.
    void clock(std::uint16_t pid, std::size_t ticks) {
        packet(pid, false, {7, 0x10});
        bytes[bytes.size() - packetSize + 3] = 0x20; // without payload
        for (std::size_t i = 0; i < 4; ++i)
            bytes[bytes.size() - packetSize + 6 + i] = static_cast<std::uint8_t>(ticks >> (25 - 8 * i));
        bytes[bytes.size() - packetSize + 10] = 0x7E;
        bytes[bytes.size() - packetSize + 11] = 0;
    }
    void picture(std::uint16_t pid, std::size_t packets) {
        for (std::size_t i = 0; i < packets; ++i) packet(pid, false, {});
    }
};

} // namespace made_stream
