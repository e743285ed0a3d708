// Sources that are damaged, or mean harm: each is shown, refused or given up, and the receiver goes on.
#include "hostile-server.h"
#include "playing-receiver.h"

#include <random>

namespace {

using namespace playing_receiver;

constexpr std::size_t packetSize = 188;

std::string sampleBytes() {
    constexpr std::size_t enough = 2000 * packetSize; // about one second
    return contentOf(std::string(MEDIA_SAMPLES) + "/one.ts").substr(0, enough);
}

// The sample with something wrong; the same for the same number.
std::string damaged(unsigned number) {
    std::string bytes = sampleBytes();
    std::mt19937 random(number);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    const std::size_t packets = bytes.size() / packetSize;
    switch (number % 5) {
        case 0: // cut
            bytes.resize(below(bytes.size()));
            break;
        case 1: // single bits
            for (std::size_t i = 0; i < 1 + number * 20; ++i)
                bytes[below(bytes.size())] ^= static_cast<char>(1 << below(8));
            break;
        case 2: // pieces are missing
            for (std::size_t i = 0; i < 20; ++i) bytes.erase(below(bytes.size() - 1000), below(1000));
            break;
        case 3: // headers of packets
            for (std::size_t i = 0; i < 500; ++i)
                bytes[below(packets) * packetSize + 1 + below(12)] = static_cast<char>(random());
            break;
        default: // packets in another order
            for (std::size_t i = 0; i < 500; ++i) {
                const auto a = bytes.begin() + static_cast<std::ptrdiff_t>(below(packets) * packetSize);
                const auto b = bytes.begin() + static_cast<std::ptrdiff_t>(below(packets) * packetSize);
                if (a != b) std::swap_ranges(a, a + packetSize, b);
            }
    }
    return bytes;
}

class HostileMedia : public PlayingReceiver {
protected:
    void write(const std::string& name, const std::string& content) const {
        std::ofstream(folder / name, std::ios::binary) << content;
    }
    std::string file(const std::string& name) const { return "file://" + (folder / name).string(); }

    // Plays a source that may not be shown, and returns tvctl's outcome.
    Outcome attempt(const std::string& terminal, const std::string& uri) const {
        Outcome outcome = tvctl({"play", terminal, uri});
        EXPECT_THAT(outcome.exitCode, testing::AnyOf(0, notShown, givenUp)) << uri << '\n' << outcome.error;
        return outcome;
    }
    // The receiver is as well as before: it plays, its processes live, and have not grown.
    void goesOn() const {
        play("0:0", "dvb://one");
        EXPECT_EQ(codeOn("0:0"), "One");
        play("0:1", std::string("file://") + MEDIA_SAMPLES + "/one.ts");
        for (Running* const process : {host_.get(), tvService_.get(), mmService_.get()})
            EXPECT_FALSE(process->hasEnded()) << process->error();
        for (const Running* const service : {tvService_.get(), mmService_.get()})
            EXPECT_LT(peakMegabytes(*service), mostMegabytes);
    }
    static std::size_t peakMegabytes(const Running& process) {
        std::istringstream status(contentOf("/proc/" + std::to_string(process.id()) + "/status"));
        std::string word;
        std::size_t kilobytes = 0;
        while (status >> word)
            if (word == "VmHWM:") status >> kilobytes;
        EXPECT_GT(kilobytes, 0);
        return kilobytes / 1024;
    }

private:
#ifdef __SANITIZE_ADDRESS__
    static constexpr std::size_t mostMegabytes = 1200; // with the memory that it keeps from being used again
#else
    static constexpr std::size_t mostMegabytes = 400;
#endif
};

// ---- transport streams ----

class DamagedStreams : public HostileMedia, public testing::WithParamInterface<unsigned> {};

TEST_P(DamagedStreams, AreShownOrRefusedAndTheReceiverGoesOn) {
    constexpr unsigned each = 8;
    const unsigned first = GetParam() * each;
    for (unsigned i = first; i < first + each; ++i) {
        const std::string name = "damaged-" + std::to_string(i) + ".ts";
        write(name, damaged(i));
        addChannel("dvb://damaged-" + std::to_string(i), file(name), static_cast<int>(i % 3) + 1);
    }
    startAll();
    for (unsigned i = first; i < first + each; ++i) {
        attempt("0:0", "dvb://damaged-" + std::to_string(i));
        attempt("0:1", file("damaged-" + std::to_string(i) + ".ts"));
    }
    goesOn();
    endAll();
}

INSTANTIATE_TEST_SUITE_P(Forty, DamagedStreams, testing::Range(0U, 5U));

} // namespace
