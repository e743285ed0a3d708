// Compares a receiver that plays through GStreamer with bare pipelines, which have no receiver around them.
#include "bare-pipeline.h"
#include "common/report.h"
#include "live-broadcast.h"
#include "playing-receiver.h"
#include "receiver/process-info.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <kit/child-process.h>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

namespace bench {
namespace {

using receiver::ChildCommand, receiver::ChildProcess;
using namespace std::chrono_literals;

constexpr Unit perPlay{"ms", "play"}, perStop{"ms", "stop"}, perZap{"ms", "zap"};
constexpr int manyChannels = 20;
const Report report("media");

// What is played: a transport stream with a key frame each second, under many names, as each input is one file.
class Samples {
public:
    Samples() {
        std::string name = (std::filesystem::temp_directory_path() / "media-bench-XXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error("cannot make the folder " + name);
        folder_ = name;
        ChildProcess transmitter(
            {BENCH_TRANSMITTER, {"--seconds", "12", "--key-frames", "25", file(0)}, {}, folder_ / "transmitter.log"});
        transmitter.wait();
        if (const std::string failure = transmitter.failure(); !failure.empty())
            throw std::runtime_error("tvsa-transmitter: " + failure);
        for (int i = 1; i <= manyChannels; ++i) std::filesystem::create_hard_link(file(0), file(i));
    }
    ~Samples() {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    Samples(const Samples&) = delete;
    Samples& operator=(const Samples&) = delete;

    std::string file(int number) const { return (folder_ / (std::to_string(number) + ".ts")).string(); }
    std::string log() const { return (folder_ / "log").string(); }

private:
    std::filesystem::path folder_;
};

std::string uriOf(int file, int program) { return "dvb://" + std::to_string(file) + '.' + std::to_string(program); }

double millisecondsOf(const auto& work) {
    const double begin = monotonicMilliseconds();
    work();
    return monotonicMilliseconds() - begin;
}

double percentile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<std::size_t>(part * static_cast<double>(values.size())))];
}

// The receiver may take 1.05 times the bare pipeline's time, and 3 ms for its messages.
void compare(const std::string& caseName, Unit unit, const Figures& own, const Figures& bare) {
    constexpr double factor = 1.05, messages = 3;
    report.figures(caseName, own, unit);
    report.figures(caseName, bare, unit);
    const double more = summaryOf(own.rounds).median - factor * summaryOf(bare.rounds).median;
    report.value(caseName, "own - 1.05 bare", more, unit, Goal{16, messages});
}

// Playing and stopping, in turns; each plays for a moment before it is stopped.
void playAndStop(const std::string& caseName, const std::function<double()>& ownPlay,
                 const std::function<double()>& ownStop, const std::string& bareDescription, Rounds rounds) {
    Figures ownStops{"own", {}}, bareStops{"bare pipeline", {}};
    constexpr auto moment = 100ms;
    const auto own = [&] {
        const double time = ownPlay();
        std::this_thread::sleep_for(moment);
        ownStops.rounds.push_back(ownStop());
        return time;
    };
    const auto bare = [&] {
        std::unique_ptr<BarePipeline> pipeline;
        const double time = millisecondsOf([&] {
            pipeline = std::make_unique<BarePipeline>(bareDescription);
            pipeline->play();
            pipeline->waitForPicture();
        });
        std::this_thread::sleep_for(moment);
        bareStops.rounds.push_back(millisecondsOf([&] { pipeline.reset(); }));
        return time;
    };
    const auto plays = interleaved({{"own", own}, {"bare pipeline", bare}}, rounds);
    for (Figures* const stops : {&ownStops, &bareStops})
        stops->rounds.erase(stops->rounds.begin(), stops->rounds.end() - static_cast<std::ptrdiff_t>(rounds.measured));
    compare("first-picture/" + caseName, perPlay, plays[0], plays[1]);
    compare("stop/" + caseName, perStop, ownStops, bareStops);
}

void zaps(PlayingReceiver& own, const Samples& samples, bool isQuick) {
    std::unique_ptr<BareZapper> bare; // anew before its file ends
    double madeAt = 0;
    std::minstd_rand random(1);
    std::uniform_int_distribution pauses(0, 200); // at any moment between key frames
    bool isOther = false;
    const auto pause = [&] { std::this_thread::sleep_for(std::chrono::milliseconds(pauses(random))); };
    const auto program = [&] { return isOther ? 3 : 1; };
    const auto figures = interleaved({{"own",
                                       [&] {
                                           isOther = !isOther;
                                           pause();
                                           return own.play(uriOf(0, program()));
                                       }},
                                      {"bare pipeline",
                                       [&] {
                                           constexpr double longest = 8000;
                                           if (!bare || monotonicMilliseconds() - madeAt > longest) {
                                               madeAt = monotonicMilliseconds();
                                               bare = std::make_unique<BareZapper>(samples.file(0));
                                               bare->zapTo(isOther ? 1 : 3);
                                           }
                                           pause();
                                           return millisecondsOf([&] { bare->zapTo(program()); });
                                       }}},
                                     {2, isQuick ? std::size_t{20} : std::size_t{150}});
    report.figures("zap", figures[0], perZap, Goal{17, 60});
    report.figures("zap", figures[1], perZap);
    report.value("zap/p99", "own", percentile(figures[0].rounds, 0.99), perZap, Goal{17, 120});
    report.value("zap/p99", "bare pipeline", percentile(figures[1].rounds, 0.99), perZap);
    own.stop();
}

// The processor time and the memory of a process that plays.
struct Use {
    double time, memory;
};
Use useOf(pid_t process) {
    constexpr auto length = 5s;
    const double before = processorMilliseconds(process);
    std::this_thread::sleep_for(length);
    return {processorMilliseconds(process) - before, residentKilobytes(process)};
}

// In fresh processes, which have played nothing else.
void use(const std::vector<PlayingReceiver::Channel>& channels, const Samples& samples, std::size_t rounds) {
    Figures ownTime{"own", {}}, bareTime{"gst-launch-1.0", {}}, ownMemory{"own", {}}, bareMemory{"gst-launch-1.0", {}};
    std::istringstream description(descriptionOfChannel(samples.file(0), 1));
    ChildCommand command;
    command.program = "/usr/bin/gst-launch-1.0";
    command.arguments = {"-q"};
    for (std::string word; description >> word;) command.arguments.push_back(word);
    command.errorLog = samples.log();
    for (std::size_t i = 0; i < rounds; ++i) {
        PlayingReceiver own(channels);
        own.play(uriOf(0, 1));
        std::this_thread::sleep_for(1s); // until it plays evenly
        const Use ownUse = useOf(own.tvService());
        own.stop();
        ChildProcess bare(command);
        std::this_thread::sleep_for(1s);
        const Use bareUse = useOf(bare.id());
        if (!bare.running()) throw std::runtime_error("gst-launch-1.0 has ended: " + bare.failure());
        ownTime.rounds.push_back(ownUse.time / 5);
        bareTime.rounds.push_back(bareUse.time / 5);
        ownMemory.rounds.push_back(ownUse.memory);
        bareMemory.rounds.push_back(bareUse.memory);
    }
    for (const Figures& figures : {ownTime, bareTime}) report.figures("processor", figures, {"ms", "second"});
    report.ratio("processor", ownTime, bareTime, Goal{18, 1.05});
    for (const Figures& figures : {ownMemory, bareMemory}) report.figures("memory", figures, {"KiB", "process"});
    report.ratio("memory", ownMemory, bareMemory, Goal{18, 1.2});
}

// How old the picture on the screen is, at random moments after several plays.
void live(PlayingReceiver& own, int port, bool isQuick) {
    const LiveBroadcast broadcast(port);
    const int plays = isQuick ? 4 : 15;
    std::minstd_rand random(1);
    std::uniform_int_distribution pauses(0, 100);
    std::vector<double> ages;
    for (int i = 0; i < plays; ++i) {
        own.play("dvb://live");
        std::this_thread::sleep_for(1s); // until the picture moves
        for (int picture = 0; picture < 10; ++picture) {
            std::this_thread::sleep_for(std::chrono::milliseconds(pauses(random)));
            const double now = broadcast.now();
            ages.push_back(now - LiveBroadcast::timeIn(own.picture()));
        }
        own.stop();
    }
    constexpr double half = 500;
    report.figures("live", {"own", ages}, {"ms", "picture"}, Goal{19, half});
    report.value("live/p99", "own", percentile(ages, 0.99), {"ms", "picture"}, Goal{19, half});
}

// Twenty key presses, against a single one.
void keys(PlayingReceiver& own, Rounds rounds) {
    std::vector<std::string> all;
    for (int i = 1; i <= manyChannels; ++i) all.push_back(uriOf(i, 1));
    const std::vector<std::string> one{all.back()};
    const auto after = [&](const std::vector<std::string>& uris, bool withZapper) {
        own.play(uriOf(0, 1)); // from the same channel each time
        return own.zapThrough(uris, withZapper);
    };
    const auto figures = interleaved({{"20 keys with Zapper", [&] { return after(all, true); }},
                                      {"20 keys without", [&] { return after(all, false); }},
                                      {"one key", [&] { return after(one, true); }}},
                                     rounds);
    for (const Figures& side : figures) report.figures("keys", side, perZap);
    report.ratio("keys", figures[0], figures[2], Goal{20, 2.1});
    report.ratio("keys", figures[1], figures[2]);
    own.stop();
}

void run(const Options& options) {
    gst_init(nullptr, nullptr);
    const Samples samples;
    const int port = freePort();
    std::vector<PlayingReceiver::Channel> channels;
    for (int i = 0; i <= manyChannels; ++i) channels.push_back({uriOf(i, 1), "file://" + samples.file(i), 1});
    channels.push_back({uriOf(0, 3), "file://" + samples.file(0), 3});
    channels.push_back({"dvb://live", "udp://127.0.0.1:" + std::to_string(port), 1});
    const Rounds rounds = options.rounds({2, 41});
    {
        PlayingReceiver own(channels);
        if (options.wants("first-picture") || options.wants("stop")) {
            const std::string uri = "file://" + samples.file(0);
            playAndStop(
                "file", [&] { return own.play(uri); }, [&] { return own.stop(); }, descriptionOfFile(uri), rounds);
            int next = 0; // an input stays open for a while: each play takes another one
            playAndStop(
                "channel", [&] { return own.play(uriOf(next++ % manyChannels + 1, 1)); }, [&] { return own.stop(); },
                descriptionOfChannel(samples.file(0), 1), rounds);
        }
        if (options.wants("zap")) zaps(own, samples, options.quick);
        if (options.wants("live")) live(own, port, options.quick);
        if (options.wants("keys")) keys(own, options.quick ? Rounds{1, 3} : Rounds{1, 11});
    }
    if (options.wants("processor") || options.wants("memory")) use(channels, samples, options.quick ? 1 : 5);
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    try {
        bench::run(bench::Options::of(argc, argv));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "media_bench: %s\n", error.what());
        return 1;
    }
}
