#include "base/error-text.h"
#include "frame/process-state.h"
#include "log-levels/levels.h"
#include "log/log.h"
#include "recorder/recorder.h"
#include "service-manager/service-manager.h"
#include "settings/number.h"

#include <frame/io-statistics.h>
#include <host/receiver.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <exception>
#include <optional>
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
// framework's, then the receiving one. A process that hangs is thus restarted.
class Heartbeat {
public:
    explicit Heartbeat(const ServiceManager& manager) : manager_(manager) {}

    void beat() noexcept {
        if (const Stage reached = stage_; reached != Stage::rest) return reportHang(reached);
        try {
            stage_ = Stage::framework;
            processState().post([this] {
                stage_ = Stage::receiving;
                messageQueue().post([this] { end(); });
            });
        } catch (const std::exception&) { // out of memory: this beat is missing
            stage_ = Stage::rest;
        }
    }

private:
    enum class Stage { rest, framework, receiving }; // the thread that the beat waits for

    void end() {
        manager_.alive();
        stage_ = Stage::rest;
        if (hangIsReported_.exchange(false)) manager_.status(serving);
    }
    // Once per hang, so that whoever finds the process restarted learns why.
    void reportHang(Stage reached) noexcept {
        if (hangIsReported_.exchange(true)) return;
        try {
            const auto handling =
                reached == Stage::receiving ? messageQueue().handlingFor(std::chrono::milliseconds(0)) : std::nullopt;
            const std::string text = handling ? "hangs: " + handling->service + " has not finished handling " +
                                                    handling->message + "; tvctl doctor may say why"
                                              : std::string("hangs: the ") +
                                                    (reached == Stage::receiving ? "receiving" : "framework's") +
                                                    " thread does not take its turn";
            HOST_LOG(frame, vdlDebugFailure, "%s\n", text.c_str());
            manager_.status(text);
        } catch (const std::exception&) { // out of memory: the restart is not explained
        }
    }

    const ServiceManager& manager_;
    std::atomic<Stage> stage_{Stage::rest};
    std::atomic<bool> hangIsReported_{false};
};

// A thread that ends the process in an orderly way on SIGTERM and SIGINT, and beats the heart meanwhile. Both signals
// are blocked from construction on, in this thread and those that it starts. They stay blocked afterwards, so that they
// cannot interrupt the shutdown.
class SignalThread {
public:
    explicit SignalThread(const ServiceManager& manager) : manager_(manager), heartbeat_(manager) {
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
    ~SignalThread() {
        // Wakes the waiter if no signal has; no other thread gets this signal. Has no effect otherwise, because the
        // thread is not joined yet.
        pthread_kill(waiter_.native_handle(), SIGINT);
        waiter_.join();
    }
    SignalThread(const SignalThread&) = delete;
    SignalThread& operator=(const SignalThread&) = delete;

    void letHeartBeat(bool beats) { heartBeats_ = beats; }

private:
    void wait() {
        int signal = 0;
        if (!manager_.longestSilence()) {
            sigwait(&signals_, &signal);
            return;
        }
        const auto nanoseconds = std::chrono::nanoseconds(*manager_.longestSilence() / beatsPerSilence).count();
        const timespec interval{static_cast<std::time_t>(nanoseconds / 1'000'000'000),
                                static_cast<long>(nanoseconds % 1'000'000'000)};
        while (sigtimedwait(&signals_, nullptr, &interval) < 0)
            if (errno == EAGAIN && heartBeats_) heartbeat_.beat();
    }

    const ServiceManager& manager_;
    Heartbeat heartbeat_;
    std::atomic<bool> heartBeats_{false};
    sigset_t signals_;
    std::thread waiter_;
};

} // namespace

namespace {

// A process that cannot record works all the same.
void startRecording() noexcept {
    try {
        constexpr std::size_t mebibyte = 1024 * 1024;
        const auto size = static_cast<std::size_t>(config::numberOf("recorder.megabytes")) * mebibyte;
        if (size == 0) return;
        const std::string news = recorder::start(size, TVSA_VERSION);
        debug::recordUpTo(vdlDebugProgress);
        if (!news.empty()) HOST_LOG(frame, vdlDebugWarning, "%s\n", news.c_str());
    } catch (const recorder::InUse& error) { // what else they share shows that better
        HOST_LOG(frame, vdlDebugProgress, "this process does not record what it does: %s\n", error.what());
    } catch (const std::exception& error) {
        HOST_LOG(frame, vdlDebugWarning, "this process does not record what it does: %s\n", textOf(error));
    }
}

} // namespace

MessageQueue& messageQueue() { return processState().messageQueue(); }

int runProcess(int (*onReady)(void* context), void* context) {
    startRecording();
    frame::Process::State& state = processState();
    const ServiceManager manager = ServiceManager::fromEnvironment();
    SignalThread signals(manager);
    state.beginServing();
    int result = 0;
    try {
        state.messageQueue();
        if (onReady) result = onReady(context);
        if (!result) {
            state.startQueue();
            manager.ready(serving);
            signals.letHeartBeat(true);
        }
    } catch (const std::exception& error) {
        HOST_LOG(frame, vdlDebugFailure, "the process cannot start: %s\n", error.what());
        result = 1;
    }
    if (!result) state.serve();
    signals.letHeartBeat(false); // the threads take no more turns
    manager.stopping();
    state.end();
    recorder::end();
    return result;
}

void stopProcess() { processState().requestEnd(); }

} // namespace host

namespace frame {

std::vector<IOStatistics> ioStatistics() { return host::messageQueue().statistics(); }

} // namespace frame
