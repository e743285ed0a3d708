// SipHash-2-4: a short hash of texts that nobody can compute or invert without the key.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace recording {

using HashKey = std::array<std::uint64_t, 2>;

std::uint64_t sipHash(const HashKey& key, std::string_view text);
// Of 16 digits.
std::string hexOf(std::uint64_t number);

} // namespace recording
