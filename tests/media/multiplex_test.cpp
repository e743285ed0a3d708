// Receiving a transport stream, of which the transmitter has made a sample.
#include "media/gstreamer/multiplex.h"

#include "media/gstreamer/packet.h"

#include <host/log-capture.h>
#include <tvservice/values.h>

#include <arpa/inet.h>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/wait.h>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

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
    void begins(std::uint16_t program, std::int64_t due) override {
        const std::lock_guard lock(mutex_);
        program_ = program;
        due_ = due;
    }
    void changed() override {}
    void signal(bool present) override {
        const std::lock_guard lock(mutex_);
        hasSignal_ = present;
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

    void ended() override {
        const std::lock_guard lock(mutex_);
        hasEnded_ = true;
        changed_.notify_all();
    }

    // Waits until the packets fulfil a condition.
    template <class Condition> bool eventually(const Condition& condition) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, longest, [&] { return condition(packets_); });
    }
    bool hasSignal(bool expected) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, longest, [&] { return hasSignal_ == expected; });
    }
    bool hasEnded() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, longest, [&] { return hasEnded_; });
    }
    std::uint16_t program() {
        const std::lock_guard lock(mutex_);
        return program_;
    }
    std::int64_t due() {
        const std::lock_guard lock(mutex_);
        return due_;
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
    std::uint16_t program_ = 0;
    std::int64_t due_ = 0;
    bool hasSignal_ = false, hasEnded_ = false;
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

TEST_F(AMultiplex, TakesTheFirstProgramWhenNoneIsNamed) {
    Multiplex multiplex(sample());
    Recorder recorder;
    multiplex.add(recorder, 0);
    ASSERT_TRUE(recorder.eventually([](const auto& packets) { return !packets.empty(); }));
    EXPECT_EQ(recorder.program(), 1);
    EXPECT_EQ(multiplex.program(0), multiplex.program(1));
    multiplex.remove(recorder);
}

// A picture is due when the broadcast's clock shows its time: the later a receiver comes, the longer that is ago.
TEST_F(AMultiplex, SaysWhenTheFirstPictureIsDue) {
    Multiplex multiplex(sample());
    Recorder first, second;
    multiplex.add(first, 1);
    ASSERT_TRUE(first.eventually([](const auto& packets) { return packets.size() > 50 * packetSize; }));
    multiplex.add(second, 1);
    const auto oneSecond = static_cast<std::int64_t>(ticksPerSecond);
    EXPECT_LT(std::abs(first.due()), oneSecond);
    EXPECT_LE(second.due(), first.due());
    EXPECT_GT(second.due(), first.due() - oneSecond);
    multiplex.remove(first);
    multiplex.remove(second);
}

TEST_F(AMultiplex, HasASignalWhileSomethingComes) {
    const int sender = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof to;
    {
        const int chooser = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); // of a free port
        ASSERT_EQ(::bind(chooser, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
        ASSERT_EQ(::getsockname(chooser, reinterpret_cast<sockaddr*>(&to), &length), 0);
        ::close(chooser);
    }
    Multiplex multiplex("udp://127.0.0.1:" + std::to_string(ntohs(to.sin_port)));
    Recorder recorder;
    multiplex.add(recorder, 1);
    const auto send = [&] {
        const std::vector<std::uint8_t> packet = [] {
            std::vector<std::uint8_t> bytes(packetSize, 0xFF);
            bytes[0] = syncByte;
            bytes[1] = 0x1F; // a null packet
            bytes[3] = 0x10;
            return bytes;
        }();
        return ::sendto(sender, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    };
    EXPECT_TRUE(receiver::waitUntil([&] { return send() > 0 && multiplex.signal().present; }, longest));
    EXPECT_TRUE(recorder.hasSignal(true));
    EXPECT_TRUE(recorder.hasSignal(false));
    EXPECT_FALSE(multiplex.signal().present);
    multiplex.remove(recorder);
    ::close(sender);
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

TEST_F(AMultiplex, EndsWithItsFileWhenItIsToPlayItOnce) {
    Multiplex multiplex(sample(), Multiplex::AtEnd::isOver);
    Recorder recorder;
    multiplex.add(recorder, 1);
    EXPECT_TRUE(recorder.hasEnded());
    EXPECT_TRUE(recorder.eventually([](auto& packets) {
        const auto clocks = clocksIn(packets);
        return !clocks.empty() && clocks.back() - clocks.front() > ticksPerSecond / 2;
    })) << "the whole file has come before";
    multiplex.remove(recorder);
}

TEST_F(AMultiplex, TellsTransportStreamsFromOtherFiles) {
    const std::string content = [] {
        std::ifstream file(sample().substr(7), std::ios::binary);
        std::string bytes(10 * packetSize, 0);
        file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return bytes;
    }();
    const auto looksLike = [](const std::string& bytes) { return isTransportStream(fileWith(bytes).substr(7)); };
    EXPECT_TRUE(looksLike(content));
    EXPECT_TRUE(looksLike(content.substr(100))) << "it begins inside a packet";
    EXPECT_FALSE(looksLike(content.substr(0, packetSize)));
    EXPECT_FALSE(looksLike(std::string(100'000, 'x')));
    EXPECT_FALSE(looksLike(""));
    EXPECT_FALSE(isTransportStream("/nowhere/a.ts"));
    EXPECT_FALSE(isTransportStream("/"));
    std::filesystem::remove(fileWith("").substr(7));
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
    Recorder none;
    Multiplex noAdapter("dvb-adapter://16?frequency=474000000&delsys=dvb-t");
    noAdapter.add(none, 1);
    EXPECT_EQ(none.outcome().result, result::cannotOpenFile) << none.outcome().reason;
    noAdapter.remove(none);
    std::filesystem::remove(text.substr(7));
}

TEST_F(AMultiplex, SaysThatItsHostIsNotKnown) {
    for (const std::string transport : {"udp://no-such-host.invalid:39116", "rtp://no-such-host.invalid:39116"}) {
        Recorder recorder;
        Multiplex multiplex(transport);
        multiplex.add(recorder, 1);
        EXPECT_EQ(recorder.outcome().result, result::noConnection);
        EXPECT_EQ(recorder.outcome().reason,
                  transport + " cannot be received: is it a multicast group or an address of this machine?");
        multiplex.remove(recorder);
    }
}

TEST_F(AMultiplex, IsNotMadeOfWhatIsNoSource) {
    for (const char* wrong : {"", "a.ts", "http://host/a.ts", "udp://", "udp://host", "rtp://host:0", "udp://host:1x",
                              "dvb-adapter://0?no-such=1", "dvb-adapter://0!filesink"})
        EXPECT_THROW(Multiplex multiplex(wrong), Error) << wrong;
}

TEST_F(AMultiplex, KnowsWhatCanNeverBeOne) {
    for (const char* possible : {"udp://239.0.0.1:5004", "file:///nowhere.ts", "dvb-adapter://0",
                                 "dvb-adapter://1?delsys=dvb-t2&frequency=474000000&modulation=qam-64"})
        EXPECT_EQ(problemOf(possible), "");
    const std::string see = ": see gst-inspect-1.0 dvbsrc";
    EXPECT_EQ(problemOf("dvb-adapter://0?nonsense=1"), "an adapter has no property \"nonsense\"" + see);
    EXPECT_EQ(problemOf("dvb-adapter://0?frequency=abc"), "\"abc\" is no value of frequency" + see);
    EXPECT_EQ(problemOf("dvb-adapter://77"), "\"77\" is no value of adapter" + see);
    EXPECT_EQ(problemOf("dvb-adapter://0?delsys=dvb-x"), "\"dvb-x\" is no value of delsys" + see);
    EXPECT_EQ(problemOf("dvb-adapter://0?frequency"),
              "not dvb-adapter://NUMBER?NAME=VALUE&...: dvb-adapter://0?frequency");
}

} // namespace
