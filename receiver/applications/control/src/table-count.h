// How full a table of the control application is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace control {

struct TableCount {
    std::string name;
    std::size_t held = 0, most = 0;
    std::size_t bytes = 0, mostBytes = 0; // of texts
    std::uint64_t dropped = 0;            // entries evicted for newer ones since the process started
};

} // namespace control
