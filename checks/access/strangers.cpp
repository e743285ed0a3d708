// Another user at every socket.
#include "../killed/service-socket.h"
#include "doors.h"
#include "scenarios.h"

#include <cerrno>
#include <cstring>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace access_check {
namespace {

constexpr uid_t stranger = 65534;

// What came of a stranger's connections.
struct Refusals {
    unsigned noAccess = 0;  // there was no connection
    unsigned silent = 0;    // it was ended without a word
    unsigned explained = 0; // or with the shell's one line for strangers
};

constexpr const char* explanation = "{\"error\":\"the shell serves its own user only\",\"status\":-13}\n";

Refusals tryAsTheStranger(const std::string& path, const std::string& greeting, unsigned tries) {
    Refusals refusals;
    for (unsigned i = 0; i < tries; ++i) {
        Socket socket;
        const int error = socket.connect(path);
        if (error == 0) {
            socket.say(greeting); // which may come too late
            const std::string heard = socket.hearAll();
            refusals.silent += heard.empty() ? 1 : 0;
            refusals.explained += heard == explanation ? 1 : 0;
        } else if (error == EACCES) {
            ++refusals.noAccess;
        }
    }
    return refusals;
}

// The same in a process of that user.
Refusals refusalsAt(const Door& door, const std::string& greeting, unsigned tries) {
    int result[2];
    require(pipe(result) == 0, "no pipe");
    const pid_t child = fork();
    if (child == 0) {
        Refusals refusals;
        try {
            if (setgroups(0, nullptr) == 0 && setresgid(stranger, stranger, stranger) == 0 &&
                setresuid(stranger, stranger, stranger) == 0)
                refusals = tryAsTheStranger(door.path, greeting, tries);
        } catch (const std::exception&) { // too few refusals say it
        }
        _exit(write(result[1], &refusals, sizeof refusals) == sizeof refusals ? 0 : 1);
    }
    close(result[1]);
    Refusals refusals;
    const bool told = read(result[0], &refusals, sizeof refusals) == sizeof refusals;
    close(result[0]);
    waitpid(child, nullptr, 0);
    require(told, "the other user's process said nothing");
    return refusals;
}

void setMode(const std::string& path, mode_t mode) {
    require(chmod(path.c_str(), mode) == 0, path + ": " + std::strerror(errno));
}

constexpr const char* shellLine = "turned away a shell client of user 65534";
constexpr const char* shellFormat = "turned away a shell client of user %u";

} // namespace

void refuseAnotherUser(unsigned tries, Figures& figures) {
    if (geteuid() != 0) throw ReceiverError("only root can be another user: run this as root");
    ReceiverKit kit;
    kit.start();
    const auto folder = kit.runtimeFolder().string();
    const auto expectAll = [&](const Door& door, unsigned refused, const char* how) {
        require(refused == tries, door.name + ": " + std::to_string(refused) + " of " + std::to_string(tries) +
                                      " connections of another user were refused by " + how);
        return refused;
    };
    const auto greetingAt = [](const Door& door) {
        return door.shell ? std::string("{\"line\":\"help\"}\n") : killed::helloOf(door.path);
    };
    struct stat status {};
    for (const Door& door : doorsIn(folder)) {
        require(lstat(door.path.c_str(), &status) == 0 && status.st_mode == (S_IFSOCK | 0600), door.name + " is open");
        figures.tries += tries;
        figures.refusedByFolder += expectAll(door, refusalsAt(door, "", tries).noAccess, "the folder");
    }
    // Each of the three has to do without the others.
    setMode(kit.folder().string(), 0711);
    setMode(folder, 0777);
    for (const Door& door : doorsIn(folder))
        figures.refusedByMode += expectAll(door, refusalsAt(door, "", tries).noAccess, "the socket's mode");
    for (const Door& door : doorsIn(folder)) {
        setMode(door.path, 0666);
        const auto counted = [&] {
            return door.shell ? linesLike(logOf(kit, door.part), shellLine, shellFormat)
                              : counterOf(kit, door.part, "refused");
        };
        const auto before = counted();
        const Refusals refusals = refusalsAt(door, greetingAt(door), tries);
        figures.refusedByCheck += expectAll(door, refusals.silent + refusals.explained, "the check of the peer");
        require(door.shell || refusals.explained == 0, door.name + " spoke to another user");
        require(kit.waitFor([&] { return counted() - before == tries; }, receiver::patience),
                door.name + " counted " + std::to_string(counted() - before) + " refusals");
        setMode(door.path, 0600);
    }
    setMode(folder, 0700);
    kit.waitForAnswers(kit.play("0:0", "dvb://1.1.1"), 1);
    const std::string complaints = kit.stop();
    require(complaints.empty(), complaints);
}

} // namespace access_check
