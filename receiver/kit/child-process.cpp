#include "child-process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace receiver {
namespace {

bool belongsToAReceiver(const std::string& variable) {
    return variable.starts_with("TVSA_") || variable == "RUNTIME_DIRECTORY" || variable == "STATE_DIRECTORY";
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& added) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        if (!belongsToAReceiver(name) && !added.contains(name)) result.push_back(text);
    }
    // Also ignores the user's own configuration for receivers, and plays nothing for real unless asked to.
    for (const auto& [name, value] : {std::pair{"TVSA_CONFIG", "/dev/null"}, {"TVSA_MEDIA_ENGINE", "simulated"}})
        if (!added.contains(name)) result.push_back(std::string(name) + '=' + value);
    for (const auto& [name, value] : added) result.push_back(name + '=' + value);
    return result;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (std::string& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

[[noreturn]] void fail(const std::string& what, int error) {
    throw std::system_error(error, std::generic_category(), what);
}

// Closes a descriptor at the scope's end.
struct Descriptor {
    int number = -1;
    ~Descriptor() {
        if (number >= 0) close(number);
    }
};

// Runs between fork and exec, where only system calls are safe. Returns the error number.
int becomeProgram(pid_t parent, int log, char* const* arguments, char* const* environment) {
    // The parent may have died before prctl.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) return errno;
    if (getppid() != parent) return ESRCH;
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (log >= 0) {
        // A process group of its own, out of reach of Ctrl-C: the parent decides when its receiver ends.
        setpgid(0, 0);
        if (dup2(log, STDOUT_FILENO) < 0 || dup2(log, STDERR_FILENO) < 0) return errno;
    } else {
        std::signal(SIGINT, SIG_DFL);
    }
    execve(arguments[0], arguments, environment);
    return errno;
}

} // namespace

ChildProcess::ChildProcess(const ChildCommand& command) {
    std::vector<std::string> arguments{command.program.string()};
    arguments.insert(arguments.end(), command.arguments.begin(), command.arguments.end());
    std::vector<std::string> environment = environmentWith(command.environment);
    const std::vector<char*> argumentPointers = pointersTo(arguments), environmentPointers = pointersTo(environment);

    Descriptor log;
    if (!command.errorLog.empty()) {
        log.number = open(command.errorLog.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        if (log.number < 0) fail(command.errorLog.string(), errno);
    }
    // Closed by a successful exec; otherwise the child sends its error number.
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) fail("pipe", errno);
    const Descriptor reading{report[0]};
    const pid_t parent = getpid();
    {
        const Descriptor writing{report[1]};
        pid_ = fork();
        if (pid_ < 0) fail("fork", errno);
        if (pid_ == 0) {
            const int error = becomeProgram(parent, log.number, argumentPointers.data(), environmentPointers.data());
            _exit(write(writing.number, &error, sizeof error) < 0 ? 126 : 127);
        }
    }
    int error = 0;
    ssize_t got = 0;
    while ((got = read(reading.number, &error, sizeof error)) < 0 && errno == EINTR) {
    }
    if (got > 0) {
        wait();
        fail(command.program.string(), error);
    }
}

ChildProcess::~ChildProcess() {
    signal(SIGKILL);
    wait();
}

bool ChildProcess::running() {
    if (!status_) reap(WNOHANG);
    return !status_;
}

void ChildProcess::signal(int number) {
    if (!running()) return;
    kill(pid_, number);
    if (number != SIGSTOP) return;
    // A stop takes time to reach every thread; until then the process may still answer. If the process ended first,
    // WNOWAIT leaves its status for reap.
    siginfo_t change;
    while (waitid(P_PID, static_cast<id_t>(pid_), &change, WSTOPPED | WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
}

void ChildProcess::terminate(std::chrono::milliseconds timeout) {
    // A stopped process can end only after SIGCONT. SIGCONT comes first: the leak check of an ending process stops it
    // for a while, and hangs when SIGCONT resumes it.
    signal(SIGCONT);
    signal(SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (running() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    signal(SIGKILL);
    wait();
}

void ChildProcess::wait() {
    while (!status_) reap(0);
}

void ChildProcess::reap(int options) {
    int status = 0;
    const pid_t ended = waitpid(pid_, &status, options);
    if (ended == pid_)
        status_ = status;
    else if (ended < 0 && errno != EINTR)
        status_ = 0; // another wait has collected it
}

std::string ChildProcess::failure() {
    if (running()) return {};
    if (WIFSIGNALED(*status_)) return "signal " + std::to_string(WTERMSIG(*status_));
    const int code = WEXITSTATUS(*status_);
    return code == 0 ? "" : "exit code " + std::to_string(code);
}

std::optional<int> ChildProcess::exitCode() {
    if (running() || !WIFEXITED(*status_)) return std::nullopt;
    return WEXITSTATUS(*status_);
}

} // namespace receiver
