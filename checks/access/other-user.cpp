// Attempts of another user to connect to every socket.
#include "../killed/service-socket.h"
#include "endpoints.h"
#include "scenarios.h"

#include <cerrno>
#include <cstring>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace access_check {
namespace {

constexpr uid_t otherUser = 65534;

// How the other user's connections were refused.
struct Refusals {
    unsigned noAccess = 0;  // connecting failed
    unsigned silent = 0;    // closed without any data
    unsigned explained = 0; // closed after the shell's line for other users
};

constexpr const char* explanation = "{\"error\":\"the shell serves its own user only\",\"status\":-13}\n";

Refusals tryAsTheOtherUser(const std::string& path, const std::string& greeting, unsigned tries) {
    Refusals refusals;
    for (unsigned i = 0; i < tries; ++i) {
        Socket socket;
        const int error = socket.connect(path);
        if (error == 0) {
            socket.send(greeting); // may fail: the connection may be closed already
            const std::string received = socket.receiveAll();
            refusals.silent += received.empty() ? 1 : 0;
            refusals.explained += received == explanation ? 1 : 0;
        } else if (error == EACCES) {
            ++refusals.noAccess;
        }
    }
    return refusals;
}

// Does this in a process of that user.
Refusals refusalsAt(const Endpoint& endpoint, const std::string& greeting, unsigned tries) {
    int result[2];
    require(pipe(result) == 0, "no pipe");
    const pid_t child = fork();
    if (child == 0) {
        Refusals refusals;
        try {
            if (setgroups(0, nullptr) == 0 && setresgid(otherUser, otherUser, otherUser) == 0 &&
                setresuid(otherUser, otherUser, otherUser) == 0)
                refusals = tryAsTheOtherUser(endpoint.path, greeting, tries);
        } catch (const std::exception&) { // leaves too few refusals, which the caller reports
        }
        _exit(write(result[1], &refusals, sizeof refusals) == sizeof refusals ? 0 : 1);
    }
    close(result[1]);
    Refusals refusals;
    const bool complete = read(result[0], &refusals, sizeof refusals) == sizeof refusals;
    close(result[0]);
    waitpid(child, nullptr, 0);
    require(complete, "the other user's process sent no result");
    return refusals;
}

void setMode(const std::string& path, mode_t mode) {
    require(chmod(path.c_str(), mode) == 0, path + ": " + std::strerror(errno));
}

constexpr const char* shellLine = "rejected a shell client of user 65534";
constexpr const char* shellFormat = "rejected a shell client of user %u";

} // namespace

void refuseAnotherUser(unsigned tries, Figures& figures) {
    if (geteuid() != 0) throw ReceiverError("only root can be another user: run this as root");
    ReceiverKit kit;
    kit.start();
    const auto folder = kit.runtimeFolder().string();
    const auto expectAll = [&](const Endpoint& endpoint, unsigned refused, const char* how) {
        require(refused == tries, endpoint.name + ": " + std::to_string(refused) + " of " + std::to_string(tries) +
                                      " connections of another user were refused by " + how);
        return refused;
    };
    const auto greetingAt = [](const Endpoint& endpoint) {
        return endpoint.shell ? std::string("{\"line\":\"help\"}\n") : killed::helloOf(endpoint.path);
    };
    struct stat status {};
    for (const Endpoint& endpoint : endpointsIn(folder)) {
        require(lstat(endpoint.path.c_str(), &status) == 0 && status.st_mode == (S_IFSOCK | 0600),
                endpoint.name + " is not a socket with mode 0600");
        figures.tries += tries;
        figures.refusedByFolder += expectAll(endpoint, refusalsAt(endpoint, "", tries).noAccess, "the folder");
    }
    // Each of the three protections must suffice without the others.
    setMode(kit.folder().string(), 0711);
    setMode(folder, 0777);
    for (const Endpoint& endpoint : endpointsIn(folder))
        figures.refusedByMode += expectAll(endpoint, refusalsAt(endpoint, "", tries).noAccess, "the socket's mode");
    for (const Endpoint& endpoint : endpointsIn(folder)) {
        setMode(endpoint.path, 0666);
        const auto counted = [&] {
            return endpoint.shell ? countLines(logOf(kit, endpoint.part), shellLine, shellFormat)
                                  : counterOf(kit, endpoint.part, "refused");
        };
        const auto before = counted();
        const Refusals refusals = refusalsAt(endpoint, greetingAt(endpoint), tries);
        figures.refusedByCheck += expectAll(endpoint, refusals.silent + refusals.explained, "the check of the peer");
        require(endpoint.shell || refusals.explained == 0, endpoint.name + " sent data to another user");
        require(kit.waitFor([&] { return counted() - before == tries; }, receiver::defaultTimeout),
                endpoint.name + " counted " + std::to_string(counted() - before) + " refusals");
        setMode(endpoint.path, 0600);
    }
    setMode(folder, 0700);
    kit.waitForAnswers(kit.play("0:0", "dvb://1.1.1"), 1);
    const std::string problems = kit.stop();
    require(problems.empty(), problems);
}

} // namespace access_check
