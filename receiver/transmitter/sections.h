// Sections of tables (ISO/IEC 13818-1, 2.4.4).
#pragma once

#include "bytes.h"

#include <span>

namespace transmitter {

Bytes descriptor(std::uint8_t tag, const Bytes& content);

struct SectionHeader {
    std::uint8_t table;
    std::uint16_t extension;
    std::uint8_t version = 0, number = 0, lastNumber = 0;
};

// The section of a table of DVB with its checksum.
Bytes section(const SectionHeader& header, const Bytes& content);

// The section with more content at its end. Throws std::runtime_error if the bytes are no whole section.
Bytes extended(std::span<const std::uint8_t> section, const Bytes& more);

} // namespace transmitter
