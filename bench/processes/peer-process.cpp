#include "peer-process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace bench {
namespace {

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

pid_t forkWith(const std::function<void()>& work) {
    std::fflush(stdout);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) fail("fork");
    if (pid > 0) return pid;
    int status = EXIT_FAILURE;
    try {
        // The parent may have ended before this call.
        if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) fail("prctl");
        if (getppid() == parent) {
            work();
            status = EXIT_SUCCESS;
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "processes_bench: %s\n", error.what());
    }
    std::fflush(stdout);
    _exit(status);
}

// Waits until the child ends. Returns whether it succeeded.
bool succeeded(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

} // namespace

PeerProcess::PeerProcess(const std::function<void(const std::function<void()>& ready)>& serve) {
    int pipe[2];
    if (::pipe(pipe) != 0) fail("pipe");
    pid_ = forkWith([&] {
        close(pipe[0]);
        serve([&] {
            if (write(pipe[1], "r", 1) != 1) fail("write");
        });
    });
    close(pipe[1]);
    char byte;
    ssize_t count;
    while ((count = read(pipe[0], &byte, 1)) < 0 && errno == EINTR) {
    }
    close(pipe[0]);
    if (count == 1) return;
    succeeded(pid_);
    throw std::runtime_error("a server did not start");
}

PeerProcess::~PeerProcess() {
    kill(pid_, SIGKILL);
    succeeded(pid_);
}

void inOwnProcess(const std::function<void()>& work) {
    if (!succeeded(forkWith(work))) throw std::runtime_error("a group of cases failed");
}

} // namespace bench
