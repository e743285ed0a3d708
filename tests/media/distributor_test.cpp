// What receivers of a transport stream's programs get, and what is kept for them. The streams are made here.
#include "media/gstreamer/distributor.h"

#include "made-stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace media;
using namespace made_stream;

class Recorder : public Distributor::Receiver {
public:
    void take(std::span<const std::uint8_t> bytes) override { packets += bytes.size() / packetSize; }
    void begins(std::uint16_t number, std::int64_t) override { program = number; }
    void changed() override { ++changes; }
    void signal(bool) override {}
    void missing(const std::string& names) override { others = names; }
    void failed(const Outcome& outcome) override { result = outcome.result; }
    void ended() override { hasEnded = true; }

    std::size_t packets = 0, changes = 0;
    std::uint16_t program = 0;
    std::string others;
    std::int32_t result = result::done;
    bool hasEnded = false;
};

class ADistributor : public testing::Test {
protected:
    static constexpr Distributor::Limits limits{20 * packetSize, 50 * packetSize};

    void take(MadeStream& from) {
        distributor.take(from.bytes);
        from.bytes.clear();
    }
    std::size_t packetsFor(std::uint16_t program) {
        Recorder recorder;
        distributor.add(recorder, program);
        distributor.remove(recorder);
        return recorder.packets;
    }

    Distributor distributor{false, limits};
    MadeStream stream;
};

constexpr std::size_t tables = 2; // packets: the list of programs, and the program's own table

TEST_F(ADistributor, BeginsWithTheTablesAndTheKeyFrame) {
    stream.list(1, 1);
    stream.program(1, {video});
    stream.picture(0x100, 5);
    stream.keyFrame(0x100);
    stream.picture(0x100, 3);
    take(stream);
    EXPECT_EQ(packetsFor(1), tables + 4);
}

TEST_F(ADistributor, KeepsNothingOfAProgramWhoseKeyFrameIsTooLongAgo) {
    stream.list(1, 1);
    stream.program(1, {video});
    stream.keyFrame(0x100);
    stream.picture(0x100, 19);
    take(stream);
    EXPECT_EQ(packetsFor(1), tables + 20) << "as much as the limit allows";
    stream.picture(0x100, 1);
    take(stream);
    EXPECT_EQ(packetsFor(1), 0);
    stream.keyFrame(0x100);
    take(stream);
    EXPECT_EQ(packetsFor(1), tables + 1) << "the next key frame begins again";
}

TEST_F(ADistributor, KeepsNoMoreOfAllProgramsThanItsLimit) {
    stream.list(1, 9);
    for (std::uint16_t number = 1; number <= 9; ++number) {
        stream.program(number, {video});
        stream.keyFrame(static_cast<std::uint16_t>(0x100 * number));
    }
    take(stream);
    std::size_t kept = 0;
    for (std::uint16_t number = 1; number <= 9; ++number) kept += packetsFor(number) > 0;
    EXPECT_EQ(kept, 2) << "each has room for 20 packets";
    stream.list(1, 2, {.version = 1});
    take(stream);
    stream.list(1, 9, {.version = 2});
    for (std::uint16_t number = 3; number <= 9; ++number) {
        stream.program(number, {video});
        stream.keyFrame(static_cast<std::uint16_t>(0x100 * number));
    }
    take(stream);
    EXPECT_EQ(packetsFor(1), tables + 1) << "what is kept stays";
}

TEST_F(ADistributor, FindsThePacketsWhereverTheStreamIsCut) {
    stream.list(1, 1);
    stream.program(1, {video});
    stream.keyFrame(0x100);
    const Bytes whole = stream.bytes;
    for (std::size_t size = 1; size < 2 * packetSize; size += 13) {
        Distributor other(false, limits);
        Recorder recorder;
        other.add(recorder, 1);
        Bytes bytes{1, 2, 3}; // the stream begins inside a packet
        bytes.insert(bytes.end(), whole.begin(), whole.end());
        for (std::span<std::uint8_t> rest = bytes; !rest.empty(); rest = rest.subspan(std::min(size, rest.size())))
            other.take(rest.first(std::min(size, rest.size())));
        EXPECT_EQ(recorder.packets, tables + 1) << size;
    }
}

TEST_F(ADistributor, TellsWhoeverShowsAProgramThatItsStreamsHaveChanged) {
    Recorder recorder;
    distributor.add(recorder, 1);
    stream.list(1, 1);
    stream.program(1, {video});
    stream.keyFrame(0x100);
    take(stream);
    EXPECT_EQ(recorder.changes, 0);
    stream.program(1, {video, 3}, {.version = 1});
    take(stream);
    EXPECT_EQ(recorder.changes, 1);
    EXPECT_EQ(distributor.program(1).streams.size(), 2);
}

TEST_F(ADistributor, KnowsTheAgeForWhatRunsNowOnly) {
    stream.list(1, 2);
    stream.event(1, 16, {.section = 0, .last = 1});
    stream.event(1, 6, {.section = 1, .last = 1});
    stream.event(2, std::nullopt, {.section = 0, .last = 1});
    stream.event(2, 12, {.section = 1, .last = 1});
    take(stream);
    EXPECT_EQ(distributor.program(1).rating, 16);
    EXPECT_EQ(distributor.program(2).rating, std::nullopt);
    stream.event(1, std::nullopt, {.version = 1, .section = 0, .last = 1});
    stream.event(1, 6, {.version = 1, .section = 1, .last = 1});
    stream.event(2, 12, {.version = 1, .section = 0, .last = 1});
    stream.event(2, std::nullopt, {.version = 1, .section = 1, .last = 1});
    take(stream);
    EXPECT_EQ(distributor.program(1).rating, std::nullopt);
    EXPECT_EQ(distributor.program(2).rating, 12);
}

TEST_F(ADistributor, KnowsTheAgeThatIsToldBeforeThePrograms) {
    stream.event(1, 16, {.section = 0, .last = 1});
    stream.event(1, 6, {.section = 1, .last = 1});
    stream.list(1, 1);
    take(stream);
    EXPECT_EQ(distributor.program(1).rating, 16);
}

TEST_F(ADistributor, KnowsTheFirstOfTooManyProgramsAndNamesFew) {
    constexpr std::size_t all = 10'000, perSection = 250;
    for (std::size_t i = 0; i < all / perSection; ++i)
        stream.list(1 + i * perSection, perSection,
                    {.section = static_cast<std::uint8_t>(i), .last = all / perSection - 1});
    take(stream);
    EXPECT_EQ(distributor.program(Tables::mostPrograms).tablePid, 0x1000 + Tables::mostPrograms);
    EXPECT_EQ(distributor.program(Tables::mostPrograms + 1).tablePid, 0);
    Recorder recorder;
    distributor.add(recorder, all);
    EXPECT_EQ(recorder.others, "1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, ...");
}

TEST_F(ADistributor, BelievesNoSectionThatIsWrong) {
    stream.list(1, 2);
    Bytes lies = section(2, 1, {0xE1, 0x00, 0xFF, 0xFF, video, 0xE1, 0x00, 0xF0, 0x00}); // 4095 bytes of descriptors
    stream.table(0x1001, lies);
    stream.table(0x1001, section(2, 1, {0xE1}));
    Bytes spoiled = section(2, 1, {0xE1, 0x00, 0xF0, 0x00});
    spoiled.back() ^= 1;
    stream.table(0x1001, spoiled);
    stream.packet(0x1001, true, {250}); // the section begins beyond the packet
    take(stream);
    EXPECT_FALSE(distributor.program(1).isKnown);
    stream.program(1, {video});
    take(stream);
    EXPECT_TRUE(distributor.program(1).isKnown);
}

TEST_F(ADistributor, TellsItsReceiversThatTheStreamHasEndedAlsoThoseThatComeLater) {
    stream.list(1, 1);
    stream.program(1, {video});
    stream.keyFrame(0x100);
    take(stream);
    Recorder first, later;
    distributor.add(first, 1);
    EXPECT_FALSE(first.hasEnded);
    distributor.end();
    EXPECT_TRUE(first.hasEnded);
    distributor.add(later, 1);
    EXPECT_TRUE(later.hasEnded);
    EXPECT_EQ(later.packets, tables + 1);
}

TEST_F(ADistributor, FailsWhenItsStreamEndsWithoutAnyProgram) {
    Recorder recorder;
    distributor.add(recorder, 0);
    distributor.end();
    EXPECT_EQ(recorder.result, result::notMedia);
    EXPECT_FALSE(recorder.hasEnded);
}

} // namespace
