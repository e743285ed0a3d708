// Integers in bytes, at any address and in either byte order.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <string>
#include <string_view>

namespace recording {

// The bytes must hold the integer at the offset.
template <std::integral T> T load(std::string_view bytes, std::size_t offset, std::endian order) {
    std::array<char, sizeof(T)> raw;
    std::copy_n(bytes.data() + offset, sizeof(T), raw.begin());
    if (order != std::endian::native) std::reverse(raw.begin(), raw.end());
    return std::bit_cast<T>(raw);
}

template <std::integral T> void append(std::string& bytes, T value, std::endian order) {
    auto raw = std::bit_cast<std::array<char, sizeof(T)>>(value);
    if (order != std::endian::native) std::reverse(raw.begin(), raw.end());
    bytes.append(raw.data(), raw.size());
}

template <std::integral T> void store(std::string& bytes, std::size_t offset, T value, std::endian order) {
    std::string raw;
    append(raw, value, order);
    bytes.replace(offset, raw.size(), raw);
}

constexpr std::endian otherThan(std::endian order) {
    return order == std::endian::little ? std::endian::big : std::endian::little;
}

} // namespace recording
