// Access to the words of flat records, which may be at any address.
#pragma once

#include <cstdint>
#include <cstring>

namespace host {

inline std::uint32_t loadWord(const char* place) {
    std::uint32_t word;
    std::memcpy(&word, place, sizeof word);
    return word;
}
inline void storeWord(char* place, std::uint32_t word) { std::memcpy(place, &word, sizeof word); }

inline const char* flatAddress(std::uint32_t word) {
    return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(word));
}

} // namespace host
