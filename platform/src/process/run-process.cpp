#include "frame/process-state.h"
#include "log/log.h"
#include "service-manager/service-manager.h"

#include <frame/io-statistics.h>
#include <host/receiver.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <exception>
#include <pthread.h>
#include <string>
#include <thread>

namespace host {

namespace {

// One late sign of life must not count as silence.
constexpr int beatsPerSilence = 4;
constexpr const char* serving = "serving";

frame::Process::State& processState() { return frame::Process::getInstance()->state(); }

// Tells the service manager that the process is alive, as long as both threads that its work needs take turns: the
// framework's and the receiving one. A process that hangs is thus restarted.
class Heartbeat {
public:
    explicit Heartbeat(const ServiceManager& manager) : manager_(manager) {}

    void beat() noexcept {
        try {
            if (isUnderWay_.exchange(true))
                reportHang();
            else
                processState().post([this] { messageQueue().post([this] { end(); }); });
        } catch (const std::exception&) { // out of memory: this beat is missing
            isUnderWay_ = false;
        }
    }

private:
    void end() {
        manager_.alive();
        isUnderWay_ = false;
        if (hangIsReported_.exchange(false)) manager_.status(serving);
    }
    // Once per hang, so that whoever finds the process restarted learns why.
    void reportHang() {
        if (hangIsReported_.exchange(true)) return;
        const auto handling = messageQueue().handlingFor(std::chrono::milliseconds(0));
        const std::string text = handling ? "hangs: " + handling->service + " has not finished handling " +
                                                handling->message + "; tvctl doctor may say why"
                                          : std::string("hangs: the framework's thread does not take its turn");
        HOST_LOG(frame, vdlDebugFailure, "%s\n", text.c_str());
        manager_.status(text);
    }

    const ServiceManager& manager_;
    std::atomic<bool> isUnderWay_{false}, hangIsReported_{false};
};

// Ends the process in an orderly way on SIGTERM and SIGINT. Both are blocked from construction on, in this thread and
// those that it starts. They stay blocked afterwards, so that they cannot interrupt the shutdown.
class EndSignals {
public:
    explicit EndSignals(const ServiceManager& manager) : manager_(manager), heartbeat_(manager) {
        // By default they end the process at once, which leaves its sockets behind.
        for (const int ignored : {SIGHUP, SIGPIPE, SIGXFSZ}) std::signal(ignored, SIG_IGN);
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGTERM);
        sigaddset(&signals_, SIGINT);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        waiter_ = std::thread([this] {
            wait();
            processState().requestEnd();
        });
        pthread_setname_np(waiter_.native_handle(), "signals");
    }
    ~EndSignals() {
        // Wakes the waiter if no signal has; no other thread gets this signal. Has no effect otherwise, because the
        // thread is not joined yet.
        pthread_kill(waiter_.native_handle(), SIGINT);
        waiter_.join();
    }
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    void beginHeartbeat() { heartIsBeating_ = true; }

private:
    void wait() {
        int signal = 0;
        if (!manager_.longestSilence()) {
            sigwait(&signals_, &signal);
            return;
        }
        const auto nanoseconds = std::chrono::nanoseconds(*manager_.longestSilence() / beatsPerSilence).count();
        const timespec interval{nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
        while (sigtimedwait(&signals_, nullptr, &interval) < 0)
            if (errno == EAGAIN && heartIsBeating_) heartbeat_.beat();
    }

    const ServiceManager& manager_;
    Heartbeat heartbeat_;
    std::atomic<bool> heartIsBeating_{false};
    sigset_t signals_;
    std::thread waiter_;
};

} // namespace

MessageQueue& messageQueue() { return processState().messageQueue(); }

int runProcess(int (*onReady)(void* context), void* context) {
    frame::Process::State& state = processState();
    const ServiceManager manager = ServiceManager::fromEnvironment();
    EndSignals endSignals(manager);
    state.beginServing();
    int result = 0;
    try {
        state.messageQueue();
        if (onReady) result = onReady(context);
        if (!result) {
            state.startQueue();
            manager.ready(serving);
            endSignals.beginHeartbeat();
        }
    } catch (const std::exception& error) {
        HOST_LOG(frame, vdlDebugFailure, "the process cannot start: %s\n", error.what());
        result = 1;
    }
    if (!result) state.serve();
    manager.stopping();
    state.end();
    return result;
}

void stopProcess() { processState().requestEnd(); }

} // namespace host

namespace frame {

std::vector<IOStatistics> ioStatistics() { return host::messageQueue().statistics(); }

} // namespace frame
