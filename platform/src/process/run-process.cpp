#include "frame/process-state.h"
#include "log/log.h"

#include <frame/io-statistics.h>
#include <host/receiver.h>

#include <csignal>
#include <exception>
#include <pthread.h>
#include <thread>

namespace host {

namespace {

frame::Process::State& processState() { return frame::Process::getInstance()->state(); }

// Ends the process in an orderly way on SIGTERM and SIGINT. Both are blocked from construction on, in this thread and
// those that it starts. They stay blocked afterwards, so that they cannot interrupt the shutdown.
class EndSignals {
public:
    EndSignals() {
        // By default they end the process at once, which leaves its sockets behind.
        for (const int ignored : {SIGHUP, SIGPIPE, SIGXFSZ}) std::signal(ignored, SIG_IGN);
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGTERM);
        sigaddset(&signals_, SIGINT);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        waiter_ = std::thread([this] {
            int signal = 0;
            sigwait(&signals_, &signal);
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

private:
    sigset_t signals_;
    std::thread waiter_;
};

} // namespace

MessageQueue& messageQueue() { return processState().messageQueue(); }

int runProcess(int (*onReady)(void* context), void* context) {
    frame::Process::State& state = processState();
    const EndSignals endSignals;
    state.beginServing();
    int result = 0;
    try {
        state.messageQueue();
        if (onReady) result = onReady(context);
        if (!result) state.startQueue();
    } catch (const std::exception& error) {
        HOST_LOG(frame, vdlDebugFailure, "the process cannot start: %s\n", error.what());
        result = 1;
    }
    if (!result) state.serve();
    state.end();
    return result;
}

void stopProcess() { processState().requestEnd(); }

} // namespace host

namespace frame {

std::vector<IOStatistics> ioStatistics() { return host::messageQueue().statistics(); }

} // namespace frame
