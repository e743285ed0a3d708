// The compiled form of an endian table.
#pragma once

#include <host/marshaller.h>

#include <cstdint>
#include <vector>

namespace host {

class Plan {
public:
    // A count or length and the pointer word after it.
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
    unsigned depth = 0;     // levels of tables below this one
    std::uint64_t fingerprint = 0;
    std::vector<Step> steps; // ascending, those of inline records included
    std::vector<Scalar> scalars;
};

} // namespace host
