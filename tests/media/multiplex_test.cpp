// Receiving a transport stream, of which the transmitter has made a sample.
#include "media/gstreamer/multiplex.h"

#include "media/gstreamer/packet.h"

#include <host/log-capture.h>
#include <tvservice/values.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>

namespace {

using namespace media;
using namespace std::chrono_literals;

constexpr auto longest = 20s;

class Recorder : public Multiplex::Receiver {
public:
    void take(std::span<const std::uint8_t> packets) override {
        const std::lock_guard lock(mutex_);
        packets_.insert(packets_.end(), packets.begin(), packets.end());
        changed_.notify_all();
    }
    void missing(const std::string& others) override {
        const std::lock_guard lock(mutex_);
        others_ = others;
        changed_.notify_all();
    }
    void failed(const Outcome& outcome) override {
        const std::lock_guard lock(mutex_);
        outcome_ = outcome;
        changed_.notify_all();
    }

    // Waits until the packets fulfil a condition.
    template <class Condition> bool eventually(const Condition& condition) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, longest, [&] { return condition(packets_); });
    }
    std::string others() {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, longest, [&] { return !others_.empty(); });
        return others_;
    }
    Outcome outcome() {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, longest, [&] { return outcome_.result != 0; });
        return outcome_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::uint8_t> packets_;
    std::string others_;
    Outcome outcome_;
};

std::vector<std::uint64_t> clocksIn(std::vector<std::uint8_t>& packets) {
    std::vector<std::uint64_t> clocks;
    for (std::size_t at = 0; at + packetSize <= packets.size(); at += packetSize)
        if (const auto clock = Packet(std::span<std::uint8_t>(packets).subspan(at).first<packetSize>()).pcr())
            clocks.push_back(*clock);
    return clocks;
}

class AMultiplex : public testing::Test {
protected:
    AMultiplex() { gst_init(nullptr, nullptr); }
    static std::string sample() { return std::string("file://") + MEDIA_SAMPLES + "/second.ts"; }
    static std::string fileWith(const std::string& text) {
        const auto path = std::filesystem::temp_directory_path() / ("multiplex-" + std::to_string(getpid()));
        std::ofstream(path) << text;
        return "file://" + path.string();
    }
};

TEST_F(AMultiplex, KnowsItsProgramsAndTheirStreams) {
    Multiplex multiplex(sample());
    Recorder recorder;
    multiplex.add(recorder, 2);
    ASSERT_TRUE(recorder.eventually([](const auto& packets) { return !packets.empty(); }));
    const Program program = multiplex.program(2);
    EXPECT_TRUE(program.isKnown);
    std::vector<std::string> streams;
    for (const Stream& stream : program.streams)
        streams.push_back(std::to_string(static_cast<int>(stream.kind)) + ' ' + std::to_string(stream.coding) + ' ' +
                          std::to_string(stream.pid) + ' ' + stream.language);
    using namespace tvservice;
    static_assert(videoCoding::mpeg2 == 1 && audioCoding::mpeg == 1);
    EXPECT_THAT(streams, testing::UnorderedElementsAre("0 1 512 ", "1 1 513 eng", "1 1 514 fre"));
    multiplex.remove(recorder);
}

TEST_F(AMultiplex, BeginsWithTheTablesAndAKeyFrameAndPassesNoOtherProgram) {
    Multiplex multiplex(sample());
    Recorder recorder;
    multiplex.add(recorder, 1);
    std::vector<std::uint16_t> pids;
    bool keyFrameIsFirst = false;
    ASSERT_TRUE(recorder.eventually([&](auto& packets) {
        if (packets.size() < 100 * packetSize) return false;
        for (std::size_t at = 0; at + packetSize <= packets.size(); at += packetSize) {
            const Packet packet(std::span<std::uint8_t>(packets).subspan(at).first<packetSize>());
            if (packet.pid() == 0x100 && std::ranges::find(pids, 0x100) == pids.end())
                keyFrameIsFirst = packet.startsKeyFrame();
            pids.push_back(packet.pid());
        }
        return true;
    }));
    EXPECT_EQ(pids[0], 0);
    EXPECT_EQ(pids[1], 0x1001);
    EXPECT_TRUE(keyFrameIsFirst);
    EXPECT_THAT(pids, testing::Each(testing::AnyOf(0, 0x100, 0x101, 0x102, 0x103, 0x104, 0x105, 0x1001)));
    multiplex.remove(recorder);
}

TEST_F(AMultiplex, ShowsALaterReceiverAtOnceWhatHasComeSinceTheKeyFrame) {
    Multiplex multiplex(sample());
    Recorder first, second;
    multiplex.add(first, 1);
    ASSERT_TRUE(first.eventually([](const auto& packets) { return packets.size() > 50 * packetSize; }));
    multiplex.add(second, 1); // calls take before it returns
    EXPECT_TRUE(second.eventually([](const auto& packets) { return packets.size() > 2 * packetSize; }));
    multiplex.remove(first);
    multiplex.remove(second);
}

TEST_F(AMultiplex, ContinuesItsTimesWhenItsFileBeginsAgain) {
    Multiplex multiplex(sample());
    Recorder recorder;
    multiplex.add(recorder, 1);
    std::vector<std::uint64_t> clocks;
    constexpr std::uint64_t twoRounds = 2 * ticksPerSecond + ticksPerSecond / 2;
    ASSERT_TRUE(recorder.eventually([&](auto& packets) {
        clocks = clocksIn(packets);
        return !clocks.empty() && clocks.back() - clocks.front() > twoRounds;
    }));
    for (std::size_t i = 1; i < clocks.size(); ++i) {
        EXPECT_GT(clocks[i], clocks[i - 1]) << i;
        EXPECT_LT(clocks[i] - clocks[i - 1], ticksPerSecond / 5) << i;
    }
    multiplex.remove(recorder);
}

TEST_F(AMultiplex, NamesItsProgramsToWhoeverWantsAnotherOne) {
    Multiplex multiplex(sample());
    Recorder recorder;
    multiplex.add(recorder, 9);
    EXPECT_THAT(recorder.others(), testing::StartsWith("1"));
    EXPECT_THAT(recorder.others(), testing::HasSubstr(", 3"));
    multiplex.remove(recorder);
}

TEST_F(AMultiplex, SaysWhyAFileCannotBeReceived) {
    Recorder missing, other;
    Multiplex nothing("file:///nowhere/a.ts");
    nothing.add(missing, 1);
    EXPECT_EQ(missing.outcome().result, result::cannotOpenFile);
    nothing.remove(missing);
    const std::string text = fileWith(std::string(100'000, 'x'));
    Multiplex noStream(text);
    noStream.add(other, 1);
    EXPECT_EQ(other.outcome().result, result::notMedia) << other.outcome().reason;
    noStream.remove(other);
    std::filesystem::remove(text.substr(7));
}

TEST_F(AMultiplex, IsNotMadeOfWhatIsNoSource) {
    for (const char* wrong : {"", "a.ts", "http://host/a.ts", "udp://", "udp://host", "rtp://host:0", "udp://host:1x"})
        EXPECT_THROW(Multiplex multiplex(wrong), Error) << wrong;
}

} // namespace
