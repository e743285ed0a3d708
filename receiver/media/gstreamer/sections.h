// Gathers the sections of tables from the packets of one PID.
#pragma once

#include "packet.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace media {

// The decoder of tables trusts what a section says about its own parts, and would read beyond it. So it gets only
// sections that are whole, have a right checksum and room for what their kind begins with, and are not too many.
class Sections {
public:
    // With header and checksum. The decoder has buffers of 4096 bytes, and may look a few bytes beyond a section.
    static constexpr std::size_t longest = 4080;
    using Take = std::function<void(std::span<const std::uint8_t> section)>;

    // Calls a function for each sound section that ends in the next packet.
    void take(const Packet& packet, const Take& sound);

    static std::uint8_t tableOf(std::span<const std::uint8_t> section) { return section[0]; }
    static std::uint16_t extensionOf(std::span<const std::uint8_t> section) {
        return static_cast<std::uint16_t>(section[3] << 8 | section[4]);
    }
    // Makes the checksum of a changed section right.
    static void writeChecksum(std::span<std::uint8_t> section);

private:
    void add(std::span<const std::uint8_t> bytes, const Take& sound);
    std::size_t missing() const; // bytes, as far as the section tells by now

    std::vector<std::uint8_t> section_; // begun; never more than a section can claim, 4098 bytes
};

} // namespace media
