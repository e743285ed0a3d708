#include "packet.h"

#include <algorithm>

namespace media {
namespace {

constexpr std::size_t timeStampSize = 5; // of a PTS or DTS: 33 bits between marker bits

std::uint64_t timeStampAt(std::span<const std::uint8_t, timeStampSize> at) {
    return std::uint64_t{at[0] & 0x0EU} << 29 | std::uint64_t{at[1]} << 22 | std::uint64_t{at[2] & 0xFEU} << 14 |
           std::uint64_t{at[3]} << 7 | at[4] >> 1;
}

void shiftTimeStamp(std::span<std::uint8_t, timeStampSize> at, std::uint64_t ticks) {
    const std::uint64_t time = (timeStampAt(at) + ticks) & tickMask;
    at[0] = static_cast<std::uint8_t>((at[0] & 0xF1) | (time >> 29 & 0x0E));
    at[1] = static_cast<std::uint8_t>(time >> 22);
    at[2] = static_cast<std::uint8_t>((time >> 14 & 0xFE) | 1);
    at[3] = static_cast<std::uint8_t>(time >> 7);
    at[4] = static_cast<std::uint8_t>((time << 1 & 0xFE) | 1);
}

// What a unit of a stream begins with, as far as it is in the packet; empty where there is no such header.
std::span<std::uint8_t> headerIn(std::span<std::uint8_t> payload) {
    constexpr std::size_t fixed = 9; // bytes, of which the last tells how many follow
    if (payload.size() < fixed || payload[0] != 0 || payload[1] != 0 || payload[2] != 1) return {};
    const std::uint8_t kind = payload[3];
    const bool hasHeader = kind == 0xBD || (kind >= 0xC0 && kind <= 0xEF) || kind == 0xFD;
    if (!hasHeader || (payload[6] & 0xC0) != 0x80) return {};
    return payload.first(std::min(payload.size(), fixed + payload[8]));
}

// The time stamps in a header: PTS, then DTS.
struct TimeStamps {
    std::span<std::uint8_t> pts, dts; // empty without
};

TimeStamps timeStampsIn(std::span<std::uint8_t> header) {
    constexpr std::size_t flags = 7, firstTime = 9;
    constexpr std::uint8_t hasPts = 0x80, hasDts = 0x40;
    TimeStamps found;
    if (header.size() >= firstTime + timeStampSize && (header[flags] & hasPts) != 0)
        found.pts = header.subspan(firstTime, timeStampSize);
    if (header.size() >= firstTime + 2 * timeStampSize && (header[flags] & hasDts) != 0)
        found.dts = header.subspan(firstTime + timeStampSize, timeStampSize);
    return found;
}

} // namespace

std::optional<std::uint64_t> Packet::pcr() const {
    if (!hasPcr()) return std::nullopt;
    return std::uint64_t{bytes_[6]} << 25 | std::uint64_t{bytes_[7]} << 17 | std::uint64_t{bytes_[8]} << 9 |
           std::uint64_t{bytes_[9]} << 1 | bytes_[10] >> 7;
}

void Packet::shift(std::uint64_t ticks) const {
    if (const auto time = pcr()) {
        const std::uint64_t shifted = (*time + ticks) & tickMask;
        bytes_[6] = static_cast<std::uint8_t>(shifted >> 25);
        bytes_[7] = static_cast<std::uint8_t>(shifted >> 17);
        bytes_[8] = static_cast<std::uint8_t>(shifted >> 9);
        bytes_[9] = static_cast<std::uint8_t>(shifted >> 1);
        bytes_[10] = static_cast<std::uint8_t>((bytes_[10] & 0x7F) | (shifted & 1) << 7);
    }
    if (!startsUnit()) return;
    const auto [pts, dts] = timeStampsIn(headerIn(payload()));
    for (const auto& at : {pts, dts})
        if (!at.empty()) shiftTimeStamp(at.first<timeStampSize>(), ticks);
}

std::optional<std::uint64_t> Packet::pts() const {
    const auto at = startsUnit() ? timeStampsIn(headerIn(payload())).pts : std::span<std::uint8_t>();
    if (at.empty()) return std::nullopt;
    return timeStampAt(at.first<timeStampSize>());
}

bool Packet::startsKeyFrame() const {
    if (!startsUnit()) return false;
    if (isRandomAccess()) return true;
    const auto bytes = payload().subspan(headerIn(payload()).size());
    for (std::size_t i = 0; i + 3 < bytes.size(); ++i) {
        if (bytes[i] != 0 || bytes[i + 1] != 0 || bytes[i + 2] != 1) continue;
        const std::uint8_t kind = bytes[i + 3];
        const bool isSequence = kind == 0xB3; // of MPEG-2
        const bool isAvcParameters = kind == 0x67 || kind == 0x27 || kind == 0x47;
        const bool isHevcParameters = kind == 0x40;
        if (isSequence || isAvcParameters || isHevcParameters) return true;
    }
    return false;
}

} // namespace media
