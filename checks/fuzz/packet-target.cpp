// Packets of a transport stream: what is read of them and what is written into them.
#include "media/gstreamer/packet.h"
#include "target.h"

#include <algorithm>
#include <array>
#include <functional>
#include <numeric>

namespace fuzz {
namespace {

using media::Packet;
using media::packetSize;
using media::tickMask;
using OnePacket = std::array<std::uint8_t, packetSize>;

Packet packetOf(OnePacket& bytes) { return Packet(std::span<std::uint8_t, packetSize>(bytes)); }

void checkShift(const OnePacket& original, std::uint64_t first, std::uint64_t second) {
    OnePacket once = original, twice = original, back = original;
    const Packet packet = packetOf(once);
    packet.shift((first + second) & tickMask);
    packetOf(twice).shift(first & tickMask);
    packetOf(twice).shift(second & tickMask);
    expect(once == twice, "two shifts are one by their sum");
    packetOf(back).shift(0);
    packetOf(once).shift((tickMask + 1 - ((first + second) & tickMask)) & tickMask);
    expect(once == back, "a shift back leaves what no shift does");
}

void checkTimes(const OnePacket& original, std::uint64_t ticks) {
    OnePacket shifted = original, before = original;
    packetOf(shifted).shift(ticks);
    const Packet packet = packetOf(shifted), former = packetOf(before);
    const auto moved = [ticks](auto time) {
        if (time) *time = (*time + ticks) & tickMask;
        return time;
    };
    expect(packet.pcr() == moved(former.pcr()), "the clock is shifted");
    expect(packet.pts() == moved(former.pts()), "the time stamp is shifted");
    expect(packet.isValid() == former.isValid() && packet.pid() == former.pid() &&
               packet.startsUnit() == former.startsUnit() && packet.startsKeyFrame() == former.startsKeyFrame() &&
               packet.isRandomAccess() == former.isRandomAccess(),
           "nothing but times is shifted");
    const auto changed =
        std::inner_product(shifted.begin(), shifted.end(), original.begin(), 0, std::plus<>(), std::not_equal_to<>());
    expect(changed <= 15, "no more than a clock and two time stamps is written");
}

} // namespace

void packets(Input input) {
    Source source(input);
    const std::uint64_t first = std::uint64_t{source.number(4)} << 1, second = source.number(4);
    OnePacket bytes{};
    const Input content = source.upTo(packetSize);
    std::ranges::copy(content, bytes.begin());
    OnePacket copy = bytes;
    const Packet packet = packetOf(copy);
    const auto payload = packet.payload();
    expect(payload.empty() || (payload.data() >= copy.data() + 4 && payload.data() + payload.size() == copy.end()),
           "the payload ends with the packet");
    checkShift(bytes, first, second);
    checkTimes(bytes, first & tickMask);
}

} // namespace fuzz
