// Access to a peer's words, at any address and in the peer's byte order.
#pragma once

#include <cstdint>
#include <cstring>

namespace host::io {

inline std::uint32_t load32(const char* at, bool swap) {
    std::uint32_t value;
    std::memcpy(&value, at, sizeof value);
    return swap ? __builtin_bswap32(value) : value;
}

inline std::uint64_t load64(const char* at, bool swap) {
    std::uint64_t value;
    std::memcpy(&value, at, sizeof value);
    return swap ? __builtin_bswap64(value) : value;
}

template <class T> void store(char* at, T value) { std::memcpy(at, &value, sizeof value); }

} // namespace host::io
