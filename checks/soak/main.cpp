// Millions of messages between two processes, of which some are malformed and some come in halves: none of the others
// is lost, all are counted, and nothing is held at the end that was not held after the first ones.
#include "../report.h"
#include "client.h"
#include "service.h"

#include <host/environment.h>
#include <host/marshaller.h>
#include <host/message-queue.h>
#include <vdl/debug.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace soak;
using namespace std::chrono_literals;

// Of ten messages seven go through the queue; the raw client's are one each of the three kinds.
constexpr std::uint64_t parts = 10, throughQueue = 7;

// The other process.
class Service {
public:
    Service() {
        int questions[2], answers[2];
        if (pipe(questions) != 0 || pipe(answers) != 0) throw std::runtime_error("no pipes");
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(questions[1]);
            close(answers[0]);
            _exit(serve(questions[0], answers[1]));
        }
        close(questions[0]);
        close(answers[1]);
        questions_ = questions[1];
        answers_ = answers[0];
    }
    ~Service() {
        close(questions_);
        waitpid(pid_, nullptr, 0);
    }
    Report ask() const {
        Report report{};
        if (write(questions_, "?", 1) != 1 || read(answers_, &report, sizeof report) != sizeof report)
            throw std::runtime_error("the service has died");
        return report;
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

private:
    pid_t pid_;
    int questions_, answers_;
};

class Progress {
public:
    explicit Progress(std::uint64_t total) : total_(total) {}
    void show(std::uint64_t done) {
        const auto percent = done * 100 / total_;
        if (terminal_)
            std::printf("\r%llu of %llu messages, %llu %%", static_cast<unsigned long long>(done),
                        static_cast<unsigned long long>(total_), static_cast<unsigned long long>(percent));
        else if (percent >= next_)
            std::printf("%llu of %llu messages\n", static_cast<unsigned long long>(done),
                        static_cast<unsigned long long>(total_));
        if (percent >= next_) next_ = percent / 10 * 10 + 10;
        std::fflush(stdout);
    }
    void end() const {
        if (terminal_) std::printf("\n");
    }

private:
    const std::uint64_t total_;
    std::uint64_t next_ = 10;
    const bool terminal_ = isatty(STDOUT_FILENO) != 0;
};

class Soak {
public:
    explicit Soak(std::uint64_t total) : progress_(total) {}

    // Sends so many messages, and waits until the service has them all.
    Report send(std::uint64_t count) {
        std::exception_ptr failure;
        std::atomic<int> running{2};
        const auto inThread = [&](auto work) {
            return std::thread([&, work] {
                try {
                    work();
                } catch (...) {
                    failure = std::current_exception();
                }
                --running;
            });
        };
        std::thread queue = inThread([&] { queueClient_.send(count / parts * throughQueue); });
        std::thread raw = inThread([&] { rawClient_.send(count / parts); });
        while (running > 0) {
            std::this_thread::sleep_for(100ms);
            progress_.show(queueClient_.sent() + 3 * rawClient_.connections());
        }
        queue.join();
        raw.join();
        if (failure) std::rethrow_exception(failure);
        Report report = service_.ask();
        for (const auto deadline = std::chrono::steady_clock::now() + 30s;
             report.honest + report.wrong < honest() && std::chrono::steady_clock::now() < deadline;
             report = service_.ask())
            std::this_thread::sleep_for(10ms);
        std::this_thread::sleep_for(200ms); // in which the last connections are put away
        return service_.ask();
    }

    std::uint64_t honest() const { return queueClient_.sent() + rawClient_.connections(); }
    std::uint64_t malformed() const { return rawClient_.connections(); }
    std::uint64_t connections() const { return rawClient_.connections(); }
    frame::IOStatistics atQueue() const { return queue_.statistics().at(0); }
    void endProgress() const { progress_.end(); }

private:
    // So few that it does not show in the heap how far the queue happens to fill.
    static host::QueueLimits queueLimits() {
        host::QueueLimits limits;
        limits.messages = 32;
        return limits;
    }
    static std::string serviceSocket(const Service& service) {
        service.ask(); // which it answers once it serves
        return host::endpointOf(soak::service);
    }

    Service service_; // first: a process is to be forked before it has threads
    host::MessageQueue queue_{queueLimits()};
    RawClient rawClient_{serviceSocket(service_)};
    QueueClient queueClient_{queue_};
    const bool started_ = (queue_.start(), true);
    Progress progress_;
};

int run(std::uint64_t total) {
    Soak soak(total);
    const Report before = soak.send(total / 10);
    const std::uint64_t heapBefore = heapInUse(), flatBefore = host::flatHeapUsage().blocks;
    const auto begin = std::chrono::steady_clock::now();
    const Report after = soak.send(total - total / 10);
    const auto took = std::chrono::steady_clock::now() - begin;
    const std::uint64_t heapAfter = heapInUse(), flatAfter = host::flatHeapUsage().blocks;
    soak.endProgress();

    checks::Report report;
    const auto line = [&](const char* what, std::uint64_t value, const char* unit, bool held,
                          const std::string& bound = {}) {
        report.line(what, static_cast<std::int64_t>(value), unit, held, bound);
    };
    const auto all = [](std::uint64_t number) { return "exactly " + std::to_string(number); };
    line("messages", soak.honest() + soak.malformed() + soak.connections(), "messages", true);
    line("honest ones delivered in order", after.honest, "messages", after.honest == soak.honest(), all(soak.honest()));
    line("delivered changed, twice or out of order", after.wrong, "messages", after.wrong == 0, "none");
    line("counted as received", after.received, "messages", after.received == soak.honest(), all(soak.honest()));
    line("counted as undecodable", after.undecodable, "messages", after.undecodable == soak.malformed(),
         all(soak.malformed()));
    line("connections dropped in the middle of one", soak.connections(), "connections", true);
    const auto statistics = soak.atQueue();
    line("dropped by the sending queue", statistics.dropped + statistics.queued, "messages",
         statistics.dropped + statistics.queued == 0, "none");
    constexpr std::int64_t heapBound = 4096; // what threads keep of freed blocks for themselves
    const auto grown = [](std::uint64_t to, std::uint64_t from) { return static_cast<std::int64_t>(to - from); };
    const auto growth = [&](const char* what, std::int64_t bytes, const char* unit, std::int64_t most) {
        report.line(what, bytes, unit, bytes <= most, "at most " + std::to_string(most));
    };
    growth("heap's growth, service", grown(after.heap, before.heap), "bytes", heapBound);
    growth("heap's growth, client", grown(heapAfter, heapBefore), "bytes", heapBound);
    growth("flat blocks' growth, service", grown(after.flatBlocks, before.flatBlocks), "blocks", 0);
    growth("flat blocks' growth, client", grown(flatAfter, flatBefore), "blocks", 0);
    std::printf("took %lld s\n",
                static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(took).count()));
    return report.exitCode();
}

} // namespace

int main(int argc, char** argv) {
    CLI::App options{"Millions of messages between two processes, some malformed, some in halves."};
    std::uint64_t total = 10'000'000;
    options.add_option("--messages", total, "How many")->check(CLI::Range(std::uint64_t{200}, std::uint64_t{1} << 32));
    CLI11_PARSE(options, argc, argv);
    std::string folder = (std::filesystem::temp_directory_path() / "soak-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) return 2;
    setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
    vdlDebugSetLevels("off"); // a line for each of a million bad messages helps nobody
    int result = 2;
    try {
        result = run(total / 100 * 100);
    } catch (const std::exception& error) {
        std::cout << "FAILED: " << error.what() << std::endl;
    }
    std::filesystem::remove_all(folder);
    return result;
}
