// Reading and shifting the packets of a transport stream.
#include "media/gstreamer/packet.h"

#include <array>
#include <gtest/gtest.h>
#include <vector>

namespace {

using namespace media;

struct Bytes {
    std::array<std::uint8_t, packetSize> bytes{};
    Bytes(std::initializer_list<std::uint8_t> first) { std::copy(first.begin(), first.end(), bytes.begin()); }
    Packet packet() { return Packet(std::span<std::uint8_t, packetSize>(bytes)); }
};

// A clock of 2^32 + 1 ticks, and a stream's packet with both times.
Bytes timed() {
    return {0x47, 0x41, 0x00, 0x30, 0x07, 0x50, 0x80, 0x00, 0x00, 0x00, 0xFE, 0x00, // adaptation
            0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0xC0, 0x0A,                   // header
            0x31, 0x00, 0x01, 0x00, 0x03, 0x11, 0x00, 0x01, 0x00, 0x01};            // PTS 1, DTS 0
}

TEST(Packet, HasAClock) {
    Bytes bytes = timed();
    EXPECT_TRUE(bytes.packet().isValid());
    EXPECT_EQ(bytes.packet().pid(), 0x100);
    EXPECT_TRUE(bytes.packet().startsUnit());
    EXPECT_EQ(bytes.packet().pcr(), (std::uint64_t{1} << 32) + 1);
    Bytes without{0x47, 0x01, 0x00, 0x10};
    EXPECT_EQ(without.packet().pcr(), std::nullopt);
}

TEST(Packet, SaysWhenItsUnitIsPresented) {
    Bytes bytes = timed();
    EXPECT_EQ(bytes.packet().pts(), 1);
    bytes.bytes[1] = 0x01;
    EXPECT_EQ(bytes.packet().pts(), std::nullopt) << "no unit begins here";
    Bytes without{0x47, 0x41, 0x00, 0x10, 0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0x00, 0x00};
    EXPECT_EQ(without.packet().pts(), std::nullopt);
}

TEST(Packet, ShiftsAllItsTimesAndNothingElse) {
    Bytes bytes = timed();
    bytes.packet().shift(ticksPerSecond);
    EXPECT_EQ(bytes.packet().pcr(), (std::uint64_t{1} << 32) + 1 + ticksPerSecond);
    EXPECT_EQ(bytes.bytes[10] & 0x7E, 0x7E) << "the bits beside the clock stay";
    // 90001 and 90000 between their marker bits
    EXPECT_EQ((std::vector<std::uint8_t>(&bytes.bytes[21], &bytes.bytes[31])),
              (std::vector<std::uint8_t>{0x31, 0x00, 0x05, 0xBF, 0x23, 0x11, 0x00, 0x05, 0xBF, 0x21}));
    bytes.packet().shift(tickMask + 1 - ticksPerSecond);
    EXPECT_EQ(bytes.bytes, timed().bytes) << "times wrap";
}

TEST(Packet, NeverReadsBeyondItself) {
    for (const std::uint8_t length : std::initializer_list<std::uint8_t>{0, 1, 6, 7, 182, 183, 184, 255}) {
        Bytes bytes{0x47, 0x41, 0x00, 0x30, length, 0xFF};
        const Packet packet = bytes.packet();
        EXPECT_LE(packet.payload().size(), packetSize - 4) << int{length};
        packet.shift(1);
        (void)packet.startsKeyFrame();
    }
}

TEST(Packet, KnowsWhereKeyFramesStart) {
    EXPECT_TRUE(timed().packet().startsKeyFrame()) << "a random access point";
    const auto withHeader = [](std::uint8_t kind) {
        Bytes bytes{0x47, 0x41, 0x00, 0x10, 0x00, 0x00, 0x01, 0xE0, 0x00,
                    0x00, 0x80, 0x00, 0x00, 0x00, 0x00, 0x01, kind};
        return bytes.packet().startsKeyFrame();
    };
    EXPECT_TRUE(withHeader(0xB3)) << "a sequence of MPEG-2";
    EXPECT_TRUE(withHeader(0x67)) << "parameters of AVC";
    EXPECT_FALSE(withHeader(0x41)) << "a picture that needs others";
    Bytes header{0x47, 0x41, 0x00, 0x10, 0x00, 0x00, 0x01, 0xE0, 0x00,
                 0x00, 0x80, 0x80, 0x05, 0x00, 0x00, 0x01, 0x67, 0x01};
    EXPECT_FALSE(header.packet().startsKeyFrame()) << "a time stamp that looks like parameters";
    Bytes inside{0x47, 0x01, 0x00, 0x10, 0x00, 0x00, 0x01, 0xB3};
    EXPECT_FALSE(inside.packet().startsKeyFrame()) << "not the start of a unit";
}

} // namespace
