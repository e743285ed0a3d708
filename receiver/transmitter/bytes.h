// Bytes of a transport stream: numbers have their most significant byte first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace transmitter {

using Bytes = std::vector<std::uint8_t>;

inline void add16(Bytes& bytes, std::size_t number) {
    bytes.push_back(static_cast<std::uint8_t>(number >> 8));
    bytes.push_back(static_cast<std::uint8_t>(number));
}

inline void add(Bytes& bytes, const Bytes& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

} // namespace transmitter
