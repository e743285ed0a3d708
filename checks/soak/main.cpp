// Sends millions of messages between two processes, some malformed, some truncated. Checks that no valid message is
// lost, that all are counted, and that the processes use no more memory at the end than after the first messages.
#include "../report.h"
#include "client.h"
#include "service.h"

#include <host/environment.h>
#include <host/marshaller.h>
#include <host/message-queue.h>
#include <vdl/debug.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <poll.h>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread-safety/mutex.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace soak;
using namespace std::chrono_literals;

// Of ten messages seven go through the queue; the raw client sends one of each of the three kinds.
constexpr std::uint64_t parts = 10, throughQueue = 7;

// A service that neither reads nor answers for so long hangs.
constexpr auto timeout = 30s;

// The service's process.
class Service {
public:
    Service() {
        int requests[2], answers[2];
        if (pipe(requests) != 0 || pipe(answers) != 0) throw std::runtime_error("no pipes");
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(requests[1]);
            close(answers[0]);
            _exit(serve(requests[0], answers[1]));
        }
        close(requests[0]);
        close(answers[1]);
        requests_ = requests[1];
        answers_ = answers[0];
    }
    ~Service() {
        close(requests_);
        if (!hasData(timeout)) kill(); // it hangs
        waitpid(pid_, nullptr, 0);
    }
    Report ask() const {
        Report report{};
        const bool requested = write(requests_, "?", 1) == 1;
        if (requested && !hasData(timeout)) throw std::runtime_error("the service does not answer");
        if (!requested || read(answers_, &report, sizeof report) != sizeof report) throw std::runtime_error(death);
        return report;
    }
    // Throws if the process has died. Must not be called while an answer is pending.
    void requireAlive() const {
        if (hasData(0ms)) throw std::runtime_error(death);
    }
    void kill() const { ::kill(pid_, SIGKILL); }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

private:
    static constexpr const char* death = "the service has died";

    // Whether it sends data or ends within the time.
    bool hasData(std::chrono::milliseconds limit) const {
        pollfd waiting{answers_, POLLIN, 0};
        return poll(&waiting, 1, static_cast<int>(limit.count())) != 0;
    }

    pid_t pid_;
    int requests_, answers_;
};

// Keeps the first failure of several threads, and stops the other threads.
class Failure {
public:
    void set(std::exception_ptr failure) {
        const thread_safety::LockGuard lock(mutex_);
        if (!first_) first_ = std::move(failure);
        stop_.request_stop();
    }
    void rethrow() {
        const thread_safety::LockGuard lock(mutex_);
        if (first_) std::rethrow_exception(first_);
    }
    std::stop_token stop() const { return stop_.get_token(); }

private:
    thread_safety::Mutex mutex_;
    std::exception_ptr first_ TVSA_GUARDED_BY(mutex_);
    std::stop_source stop_;
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

    // Sends `count` messages and waits until the service has received all of them. Throws if it dies or hangs.
    Report send(std::uint64_t count) {
        Failure failure;
        std::atomic<int> running{2};
        const auto inThread = [&](auto work) {
            return std::thread([&, work] {
                try {
                    work();
                } catch (...) {
                    failure.set(std::current_exception());
                }
                --running;
            });
        };
        std::thread queue = inThread([&] { queueClient_.send(count / parts * throughQueue, failure.stop()); });
        std::thread raw = inThread([&] { rawClient_.send(count / parts, failure.stop()); });
        try {
            watch(running);
        } catch (...) {
            failure.set(std::current_exception());
        }
        queue.join();
        raw.join();
        failure.rethrow();
        Report report = service_.ask();
        for (const auto deadline = Clock::now() + timeout;
             report.valid + report.wrong < valid() && Clock::now() < deadline; report = service_.ask())
            std::this_thread::sleep_for(10ms);
        std::this_thread::sleep_for(200ms); // until the service has released the last connections
        return service_.ask();
    }
    void killService() const { service_.kill(); }

    std::uint64_t valid() const { return queueClient_.sent() + rawClient_.connections(); }
    std::uint64_t malformed() const { return rawClient_.connections(); }
    std::uint64_t connections() const { return rawClient_.connections(); }
    frame::IOStatistics atQueue() const { return queue_.statistics().at(0); }
    void endProgress() const { progress_.end(); }

private:
    using Clock = std::chrono::steady_clock;

    // Shows the progress while threads send. Throws if the service dies, or if there is no progress for too long.
    void watch(const std::atomic<int>& running) {
        std::uint64_t done = 0;
        for (auto deadline = Clock::now() + timeout; running > 0;) {
            std::this_thread::sleep_for(100ms);
            service_.requireAlive();
            const std::uint64_t sent = queueClient_.sent() + 3 * rawClient_.connections();
            progress_.show(sent);
            if (sent > done)
                deadline = Clock::now() + timeout;
            else if (Clock::now() > deadline)
                throw std::runtime_error("the service no longer reads");
            done = sent;
        }
    }
    // So few that the fill level of the queue does not affect the heap measurement.
    static host::QueueLimits queueLimits() {
        host::QueueLimits limits;
        limits.messages = 16;
        return limits;
    }
    static std::string serviceSocket(const Service& service) {
        service.ask(); // returns once the service is running
        return host::endpointOf(soak::service);
    }

    Service service_; // first: it forks, which must precede the creation of threads
    host::MessageQueue queue_{queueLimits()};
    RawClient rawClient_{serviceSocket(service_)};
    QueueClient queueClient_{queue_};
    const bool started_ = (queue_.start(), true);
    Progress progress_;
};

int run(std::uint64_t total, bool killService) {
    Soak soak(total);
    // After these messages the buffers have their final size. A short soak needs a larger part of its messages for
    // that.
    const std::uint64_t first = std::max(total / 10, std::min(total / 2, std::uint64_t{10'000}));
    const Report before = soak.send(first);
    if (killService) soak.killService();
    const std::uint64_t heapBefore = heapInUse(), flatBefore = host::flatHeapUsage().blocks;
    const auto begin = std::chrono::steady_clock::now();
    const Report after = soak.send(total - first);
    const auto duration = std::chrono::steady_clock::now() - begin;
    const std::uint64_t heapAfter = heapInUse(), flatAfter = host::flatHeapUsage().blocks;
    soak.endProgress();

    checks::Report report;
    const auto line = [&](const char* what, std::uint64_t value, const char* unit, bool held,
                          const std::string& bound = {}) {
        report.line(what, static_cast<std::int64_t>(value), unit, held, bound);
    };
    const auto all = [](std::uint64_t number) { return "exactly " + std::to_string(number); };
    line("messages", soak.valid() + soak.malformed() + soak.connections(), "messages", true);
    line("valid messages delivered in order", after.valid, "messages", after.valid == soak.valid(), all(soak.valid()));
    line("messages delivered changed, twice or out of order", after.wrong, "messages", after.wrong == 0, "none");
    line("counted as received", after.received, "messages", after.received == soak.valid(), all(soak.valid()));
    line("counted as undecodable", after.undecodable, "messages", after.undecodable == soak.malformed(),
         all(soak.malformed()));
    line("connections closed in the middle of a message", soak.connections(), "connections", true);
    const auto statistics = soak.atQueue();
    line("dropped by the sending queue", statistics.dropped + statistics.queued, "messages",
         statistics.dropped + statistics.queued == 0, "none");
    // Not 0: runs differ by up to 160 bytes in both directions, regardless of the number of messages.
    constexpr std::int64_t heapBound = 512;
    const auto grown = [](std::uint64_t to, std::uint64_t from) { return static_cast<std::int64_t>(to - from); };
    const auto growth = [&](const char* what, std::int64_t bytes, const char* unit, std::int64_t most) {
        report.line(what, bytes, unit, bytes <= most, "at most " + std::to_string(most));
    };
    growth("growth of the heap, service", grown(after.heap, before.heap), "bytes", heapBound);
    growth("growth of the heap, client", grown(heapAfter, heapBefore), "bytes", heapBound);
    growth("growth of flat blocks, service", grown(after.flatBlocks, before.flatBlocks), "blocks", 0);
    growth("growth of flat blocks, client", grown(flatAfter, flatBefore), "blocks", 0);
    std::printf("took %lld s\n",
                static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(duration).count()));
    return report.exitCode();
}

} // namespace

int main(int argc, char** argv) {
    CLI::App options{"Sends millions of messages between two processes, some malformed, some truncated."};
    std::uint64_t total = 10'000'000;
    options.add_option("--messages", total, "Number of messages")
        ->check(CLI::Range(std::uint64_t{200}, std::uint64_t{1} << 32));
    bool killService = false;
    options.add_flag("--kill-service", killService, "Kill the service after the first messages; must be reported");
    CLI11_PARSE(options, argc, argv);
    std::signal(SIGPIPE, SIG_IGN); // writes to a dead service must return an error
    std::string folder = (std::filesystem::temp_directory_path() / "soak-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) return 2;
    setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
    vdlDebugSetLevels("off"); // otherwise a line for each of a million bad messages
    int result = 2;
    try {
        result = run(total / 100 * 100, killService);
    } catch (const std::exception& error) {
        std::cout << "FAILED: " << error.what() << std::endl;
    }
    std::filesystem::remove_all(folder);
    return result;
}
