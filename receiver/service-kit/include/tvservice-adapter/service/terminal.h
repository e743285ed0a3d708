// The numbers of a display terminal.
#pragma once

#include <compare>
#include <cstdint>

namespace services {

struct Terminal {
    std::int32_t type = 0;
    std::int32_t id = 0;
    auto operator<=>(const Terminal&) const = default;
};

} // namespace services
