// Runs the adapter in a framework process, and two services, which may be programs for another machine. Writes a line
// for each round trip: its number, its kind, and the notifications of the application. The same seed must produce the
// same lines, regardless of the services' machine.
#include "kinds.h"

#include <frame/io-statistics.h>
#include <frame/process.h>
#include <host/receiver.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

extern "C" void** frameCreateApplicationArray(); // the entry point of the adapter's library

namespace exchange {
namespace {

constexpr int maxShown = 10;
constexpr int tableInterval = 100; // round trips between two reports of the services' terminals

struct Run {
    Service& tvService;
    Service& mmService;
    int roundTrips;
    std::uint64_t seed;
    int wrong = 0;
    std::string failure;
    std::thread thread;
};

void writeTables(Run& run) {
    std::printf("tvserviced shows\t%s\n", run.tvService.terminals().c_str());
    std::printf("mmserviced shows\t%s\n", run.mmService.terminals().c_str());
}

const Kind& chooseKind(Random& random) {
    if (random.once(2))
        return *std::find_if(kinds().begin(), kinds().end(), [](const Kind& kind) { return kind.plays; });
    for (;;) {
        const Kind& kind = kinds()[random.below(static_cast<std::uint32_t>(kinds().size()))];
        if (!kind.takesLong || random.once(20)) return kind;
    }
}

void makeRoundTrips(Run& run) {
    Application application;
    Random random(run.seed);
    const Exchange exchange{application, run.tvService, random};
    for (int i = 1; i <= run.roundTrips; ++i) {
        const Kind& kind = chooseKind(random);
        const RoundTrip trip = kind.play(exchange, i);
        std::printf("%d\t%s", i, kind.name);
        for (const std::string& received : trip.received) std::printf("\t%s", received.c_str());
        std::putchar('\n');
        if (!trip.expected.empty() && ++run.wrong <= maxShown)
            std::fprintf(stderr, "%d, %s\nexpected: %s\nreceived: %s\n", i, kind.name, trip.expected.c_str(),
                         trip.received.empty() ? "nothing" : trip.received.front().c_str());
        if (i % tableInterval == 0 || i == run.roundTrips) writeTables(run);
    }
}

int start(void* context) {
    Run& run = *static_cast<Run*>(context);
    if (const int result = frame::Process::getInstance()->startAppMembersSync(frameCreateApplicationArray))
        return result;
    run.thread = std::thread([&run] {
        try {
            makeRoundTrips(run);
        } catch (const std::exception& error) {
            run.failure = error.what();
        }
        host::stopProcess();
    });
    return 0;
}

// A folder for the sockets of this process and of those that it starts.
class PrivateFolder {
public:
    PrivateFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "exchange-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
        path = name;
        for (const char* variable : {"RUNTIME_DIRECTORY", "STATE_DIRECTORY"}) setenv(variable, path.c_str(), 1);
    }
    ~PrivateFolder() {
        std::error_code ignored; // files that cannot be removed stay in the temporary folder
        std::filesystem::remove_all(path, ignored);
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    std::filesystem::path path;
};

int run(const std::filesystem::path& programs, const std::vector<std::string>& emulator, int roundTrips,
        std::uint64_t seed) {
    const PrivateFolder folder;
    Service tvService(programs / "tvserviced", emulator, folder.path);
    Service mmService(programs / "mmserviced", emulator, folder.path);
    Run run{tvService, mmService, roundTrips, seed, 0, {}, {}};
    const int result = host::runProcess(start, &run);
    if (run.thread.joinable()) run.thread.join();
    std::string problems = run.failure;
    const auto add = [&](const std::string& problem) {
        if (!problem.empty()) problems += (problems.empty() ? "" : "; ") + problem;
    };
    if (result != 0) add("the framework ended with " + std::to_string(result));
    for (const auto& counters : frame::ioStatistics()) { // the adapter's connections, which have ended
        std::printf("messages of %s\t%llu sent, %llu received\n", counters.service.c_str(),
                    static_cast<unsigned long long>(counters.sent), static_cast<unsigned long long>(counters.received));
        if (counters.undecodable + counters.refused + counters.dropped + counters.reconnects != 0)
            add("the adapter lost messages of " + counters.service);
    }
    add(tvService.end());
    add(mmService.end());
    if (run.wrong != 0) add(std::to_string(run.wrong) + " answers and notifications are wrong");
    if (!problems.empty()) std::fprintf(stderr, "check-exchange: %s\n", problems.c_str());
    return problems.empty() ? 0 : 1;
}

} // namespace
} // namespace exchange

int main(int argc, char** argv) {
    CLI::App options("Sends requests of an application to the adapter and two services, and prints the results.");
    std::vector<std::string> emulator;
    std::string programs;
    int roundTrips = 20'000;
    std::uint64_t seed = 1;
    options.add_option("--programs", programs, "The folder of tvserviced and mmserviced")->required();
    options.add_option("--round-trips", roundTrips, "Number of round trips")->check(CLI::PositiveNumber);
    options.add_option("--seed", seed, "Seed of the random choices");
    options.add_option("emulator", emulator, "The command that runs the services, if this machine cannot");
    CLI11_PARSE(options, argc, argv);
    try {
        return exchange::run(programs, emulator, roundTrips, seed);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "check-exchange: %s\n", error.what());
        return 1;
    }
}
