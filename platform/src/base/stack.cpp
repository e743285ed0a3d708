#include <host/stack.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <memory>
#include <semaphore.h>
#include <string_view>
#include <thread-safety/mutex.h>
#include <thread>

namespace host {
namespace {

constexpr int mostCalls = 64;

// Written by the signal handler on the other thread, while stackOf waits.
struct Capture {
    Capture() { sem_init(&done, 0, 0); }

    std::atomic<bool> wanted{false};
    sem_t done;
    void* addresses[mostCalls];
    int count = 0;
};

Capture& capture() {
    static Capture instance;
    return instance;
}

void onSignal(int) {
    if (!capture().wanted.exchange(false)) return;
    const int error = errno;
    capture().count = backtrace(capture().addresses, mostCalls);
    sem_post(&capture().done);
    errno = error;
}

// Whether the handler has run. If it has begun, waits for its end. Looks again and again, because the C library's timed
// wait for a semaphore follows the wall clock, which may jump.
bool waitForCapture(std::chrono::milliseconds timeout) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    bool hasBegun = false;
    while (sem_trywait(&capture().done) != 0) {
        if (!hasBegun && std::chrono::steady_clock::now() >= end) {
            if (capture().wanted.exchange(false)) return false;
            hasBegun = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

StackCall describe(void* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0) return {};
    StackCall call;
    const std::string_view path = info.dli_fname == nullptr ? "" : info.dli_fname;
    call.library = path.substr(path.rfind('/') + 1);
    if (info.dli_sname == nullptr) return call;
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status),
                                                      std::free);
    call.function = status == 0 ? name.get() : info.dli_sname;
    return call;
}

} // namespace

std::vector<StackCall> stackOf(pthread_t thread, std::chrono::milliseconds timeout) {
    static thread_safety::Mutex mutex;
    thread_safety::LockGuard lock(mutex);
    void* ignored[1];
    backtrace(ignored, 1); // loads what it needs, which a signal handler must not do
    capture().count = 0;
    struct sigaction action {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGURG, &action, nullptr);
    capture().wanted = true;
    std::vector<StackCall> calls;
    if (pthread_kill(thread, SIGURG) != 0) {
        capture().wanted = false;
        return calls;
    }
    if (!waitForCapture(timeout)) return calls;
    constexpr int own = 2; // the handler, and the return from it
    for (int i = own; i < capture().count; ++i) calls.push_back(describe(capture().addresses[i]));
    return calls;
}

} // namespace host
