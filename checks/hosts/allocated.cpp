// Loaded into a service before its libraries: upon SIGUSR2, writes the bytes that the heap has given out and not got
// back to the file that ALLOCATED_FILE names. Resident memory does not show a small leak, because a page stays resident
// as long as anything in it is in use.
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <malloc.h>
#include <thread>

namespace {

void reportWhenAsked(const char* path, sigset_t asked) {
    for (int signal = 0; sigwait(&asked, &signal) == 0;) {
        const auto heap = mallinfo2();
        std::ofstream(path) << heap.uordblks + heap.hblkhd << '\n';
    }
}

[[maybe_unused]] const bool started = [] {
    const char* const path = std::getenv("ALLOCATED_FILE");
    if (!path) return false;
    sigset_t all, asked;
    sigfillset(&all);
    sigemptyset(&asked);
    sigaddset(&asked, SIGUSR2);
    // The reporter takes no signal that the service waits for, and all other threads leave it theirs.
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    std::thread(reportWhenAsked, path, asked).detach();
    pthread_sigmask(SIG_SETMASK, &asked, nullptr);
    return true;
}();

} // namespace
