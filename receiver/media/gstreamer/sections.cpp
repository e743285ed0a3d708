#include "sections.h"

#include <algorithm>

namespace media {
namespace {

// Of sections (ISO/IEC 13818-1, 2.4.4): table and length; what all tables begin with; the checksum.
constexpr std::size_t prefix = 3, header = 8, checksum = 4;
// Of a list of programs or of their descriptions: the time that decoding takes grows with the square of their number.
constexpr std::size_t mostSections = 64;
constexpr std::uint8_t stuffing = 0xFF;

std::uint32_t checksumOf(std::span<const std::uint8_t> bytes) {
    constexpr std::uint32_t polynomial = 0x04C11DB7, top = 0x80000000;
    std::uint32_t sum = 0xFFFFFFFF;
    for (const std::uint8_t byte : bytes) {
        sum ^= std::uint32_t{byte} << 24;
        for (int bit = 0; bit < 8; ++bit) sum = (sum & top) != 0 ? sum << 1 ^ polynomial : sum << 1;
    }
    return sum;
}

// Whether a section is what its kind of table may have (ISO/IEC 13818-1, 2.4.4; ETSI EN 300 468, 5.2).
bool isSound(std::span<const std::uint8_t> section) {
    constexpr std::uint8_t hasHeader = 0x80;
    constexpr std::uint8_t list = 0, program = 2, descriptions = 0x42, events = 0x4E;
    if (section.size() < header + checksum || section.size() > Sections::longest) return false;
    if ((section[1] & hasHeader) == 0) return false;
    const auto content = section.subspan(header, section.size() - header - checksum);
    const std::size_t lastNumber = section[7];
    switch (Sections::tableOf(section)) {
        case list: {
            constexpr std::size_t entry = 4;
            if (lastNumber >= mostSections || content.size() % entry != 0) return false;
            break;
        }
        case program: {
            constexpr std::size_t fixed = 4;
            if (lastNumber > 0 || content.size() < fixed) return false;
            if (content.size() - fixed < (static_cast<std::size_t>(content[2] & 0x0F) << 8 | content[3])) return false;
            break;
        }
        case descriptions: {
            constexpr std::size_t fixed = 3, mostBytes = 1024;
            if (lastNumber >= mostSections || section.size() > mostBytes || content.size() < fixed) return false;
            break;
        }
        case events: {
            constexpr std::size_t fixed = 6;
            if (lastNumber > 1 || content.size() < fixed) return false;
            break;
        }
        default:
            return false; // nobody wants it
    }
    return checksumOf(section) == 0;
}

} // namespace

void Sections::writeChecksum(std::span<std::uint8_t> section) {
    const std::size_t end = section.size() - checksum;
    const std::uint32_t sum = checksumOf(section.first(end));
    for (std::size_t i = 0; i < checksum; ++i) section[end + i] = static_cast<std::uint8_t>(sum >> (24 - 8 * i));
}

void Sections::take(const Packet& packet, const Take& sound) {
    std::span<const std::uint8_t> payload = packet.payload();
    if (payload.empty()) return;
    if (!packet.startsUnit()) {
        if (!section_.empty()) add(payload, sound);
        return;
    }
    const std::size_t rest = payload[0]; // of the former section
    payload = payload.subspan(1);
    if (!section_.empty()) add(payload.first(std::min(rest, payload.size())), sound);
    section_.clear();
    if (rest < payload.size()) add(payload.subspan(rest), sound);
}

void Sections::add(std::span<const std::uint8_t> bytes, const Take& sound) {
    while (!bytes.empty() && !(section_.empty() && bytes[0] == stuffing)) {
        const auto next = bytes.first(std::min(missing(), bytes.size()));
        section_.insert(section_.end(), next.begin(), next.end());
        bytes = bytes.subspan(next.size());
        if (missing() > 0) continue;
        if (isSound(section_)) sound(section_);
        section_.clear();
    }
}

std::size_t Sections::missing() const {
    if (section_.size() < prefix) return prefix - section_.size();
    return prefix + (static_cast<std::size_t>(section_[1] & 0x0F) << 8 | section_[2]) - section_.size();
}

} // namespace media
