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

// Of ten messages seven go through the queue; the raw client's are one each of the three kinds.
constexpr std::uint64_t parts = 10, throughQueue = 7;

// A service that takes or says nothing for so long hangs.
constexpr auto timeout = 30s;

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
        if (!speaks(timeout)) kill(); // it hangs
        waitpid(pid_, nullptr, 0);
    }
    Report ask() const {
        Report report{};
        const bool asked = write(questions_, "?", 1) == 1;
        if (asked && !speaks(timeout)) throw std::runtime_error("the service does not answer");
        if (!asked || read(answers_, &report, sizeof report) != sizeof report) throw std::runtime_error(death);
        return report;
    }
    // Not while an answer is awaited. Throws when it has died.
    void mustLive() const {
        if (speaks(0ms)) throw std::runtime_error(death);
    }
    void kill() const { ::kill(pid_, SIGKILL); }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

private:
    static constexpr const char* death = "the service has died";

    // Whether something comes from it within the time, be it the end of its answers.
    bool speaks(std::chrono::milliseconds limit) const {
        pollfd waiting{answers_, POLLIN, 0};
        return poll(&waiting, 1, static_cast<int>(limit.count())) != 0;
    }

    pid_t pid_;
    int questions_, answers_;
};

// The first of several threads' failures, and what ends the others.
class Failure {
public:
    void take(std::exception_ptr failure) {
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

    // Sends so many messages, and waits until the service has them all. Throws when it dies or hangs meanwhile.
    Report send(std::uint64_t count) {
        Failure failure;
        std::atomic<int> running{2};
        const auto inThread = [&](auto work) {
            return std::thread([&, work] {
                try {
                    work();
                } catch (...) {
                    failure.take(std::current_exception());
                }
                --running;
            });
        };
        std::thread queue = inThread([&] { queueClient_.send(count / parts * throughQueue, failure.stop()); });
        std::thread raw = inThread([&] { rawClient_.send(count / parts, failure.stop()); });
        try {
            watch(running);
        } catch (...) {
            failure.take(std::current_exception());
        }
        queue.join();
        raw.join();
        failure.rethrow();
        Report report = service_.ask();
        for (const auto deadline = Clock::now() + timeout;
             report.honest + report.wrong < honest() && Clock::now() < deadline; report = service_.ask())
            std::this_thread::sleep_for(10ms);
        std::this_thread::sleep_for(200ms); // in which the last connections are put away
        return service_.ask();
    }
    void killService() const { service_.kill(); }

    std::uint64_t honest() const { return queueClient_.sent() + rawClient_.connections(); }
    std::uint64_t malformed() const { return rawClient_.connections(); }
    std::uint64_t connections() const { return rawClient_.connections(); }
    frame::IOStatistics atQueue() const { return queue_.statistics().at(0); }
    void endProgress() const { progress_.end(); }

private:
    using Clock = std::chrono::steady_clock;

    // Shows the progress while threads send. Throws when the service dies, or when there is none for long.
    void watch(const std::atomic<int>& running) {
        std::uint64_t done = 0;
        for (auto deadline = Clock::now() + timeout; running > 0;) {
            std::this_thread::sleep_for(100ms);
            service_.mustLive();
            const std::uint64_t sent = queueClient_.sent() + 3 * rawClient_.connections();
            progress_.show(sent);
            if (sent > done)
                deadline = Clock::now() + timeout;
            else if (Clock::now() > deadline)
                throw std::runtime_error("the service takes nothing any more");
            done = sent;
        }
    }
    // So few that it does not show in the heap how far the queue happens to fill.
    static host::QueueLimits queueLimits() {
        host::QueueLimits limits;
        limits.messages = 16;
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

int run(std::uint64_t total, bool killService) {
    Soak soak(total);
    // After which buffers are as large as they will be; a short soak needs more of its messages for that.
    const std::uint64_t first = std::max(total / 10, std::min(total / 2, std::uint64_t{10'000}));
    const Report before = soak.send(first);
    if (killService) soak.killService();
    const std::uint64_t heapBefore = heapInUse(), flatBefore = host::flatHeapUsage().blocks;
    const auto begin = std::chrono::steady_clock::now();
    const Report after = soak.send(total - first);
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
    // Not 0: runs differ by up to 160 bytes in both directions, however many messages they send.
    constexpr std::int64_t heapBound = 512;
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
    bool killService = false;
    options.add_flag("--kill-service", killService, "Kill the service after the first ones, which has to be told of");
    CLI11_PARSE(options, argc, argv);
    std::signal(SIGPIPE, SIG_IGN); // a service that dies is an error of what is said to it
    std::string folder = (std::filesystem::temp_directory_path() / "soak-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) return 2;
    setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
    vdlDebugSetLevels("off"); // a line for each of a million bad messages helps nobody
    int result = 2;
    try {
        result = run(total / 100 * 100, killService);
    } catch (const std::exception& error) {
        std::cout << "FAILED: " << error.what() << std::endl;
    }
    std::filesystem::remove_all(folder);
    return result;
}
