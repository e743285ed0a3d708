// What an endian table compiles to.
#pragma once

#include <host/marshaller.h>

#include <cstdint>
#include <vector>

namespace host {

class Plan {
public:
    // A pointer word with the count or length before it.
    struct Step {
        std::uint32_t offset; // of the count
        const Plan* element;  // null for a string
    };
    // A scalar that has a byte order.
    struct Scalar {
        std::uint32_t offset;
        std::uint32_t width; // 2 or 4
    };

    std::uint32_t size = 0; // of the record
    unsigned depth = 0;     // tables below this one, one inside the other
    std::uint64_t fingerprint = 0;
    std::vector<Step> steps; // ascending; inline records dissolved into the one that holds them
    std::vector<Scalar> scalars;
};

} // namespace host
