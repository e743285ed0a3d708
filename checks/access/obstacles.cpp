// Obstacles at the path of a socket or of its lock.
#include "endpoints.h"
#include "scenarios.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <kit/child-process.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace access_check {
namespace {

namespace fs = std::filesystem;

constexpr const char* preciousText = "precious\n";
constexpr int failed = 1; // the exit code of a program that cannot create its sockets

void writeFile(const fs::path& file, const std::string& text) { std::ofstream(file) << text; }
std::string contentOf(const fs::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// The private folders of a program, new for each attempt.
class ProgramFolders {
public:
    explicit ProgramFolders(Part part) : part_(part) {
        std::string name = (fs::temp_directory_path() / "access-XXXXXX").string();
        require(mkdtemp(name.data()) != nullptr, "no private folder");
        folder_ = name;
        for (const char* folder : {"run", "state"}) mkdir((folder_ / folder).c_str(), 0700);
    }
    ~ProgramFolders() { fs::remove_all(folder_); }
    ProgramFolders(const ProgramFolders&) = delete;
    ProgramFolders& operator=(const ProgramFolders&) = delete;

    fs::path runtimeFolder() const { return folder_ / "run"; }
    fs::path preciousFile() const { return folder_ / "precious"; }

    std::unique_ptr<receiver::ChildProcess> start() const {
        const receiver::Places places;
        receiver::ChildCommand command;
        command.program = places.programs / receiver::nameOf(part_);
        if (part_ == Part::frameHost) command.arguments = {(places.libraries / "libapp-tvservice-adapter.so").string()};
        command.environment = {{"RUNTIME_DIRECTORY", runtimeFolder().string()},
                               {"STATE_DIRECTORY", (folder_ / "state").string()}};
        command.errorLog = log();
        return std::make_unique<receiver::ChildProcess>(command);
    }
    std::string output() const { return contentOf(log()); }

private:
    fs::path log() const { return folder_ / "log"; }

    const Part part_;
    fs::path folder_;
};

Endpoint endpointIn(const ProgramFolders& folders, std::size_t number) {
    return endpointsIn(folders.runtimeFolder()).at(number);
}

// The program must not start, must name the path in its error, and must change nothing.
void expectRefusal(const ProgramFolders& folders, const Endpoint& endpoint, const std::string& path, const char* what) {
    const std::string where = endpoint.name + " with " + what;
    struct stat before {
    }, after{};
    require(lstat(path.c_str(), &before) == 0, where + ": the obstacle is missing");
    const auto program = folders.start();
    require(receiver::waitUntil([&] { return !program->running(); }, receiver::defaultTimeout),
            where + ": the program started");
    require(program->exitCode() == failed, where + ": the program ended with " + program->failure());
    require(folders.output().find(endpoint.path) != std::string::npos,
            where + ": the program printed " + folders.output());
    require(lstat(path.c_str(), &after) == 0 && after.st_ino == before.st_ino && after.st_mode == before.st_mode,
            where + ": the obstacle was removed or replaced");
    require(contentOf(folders.preciousFile()) == preciousText, where + ": the precious file has changed");
}

int listenAt(const std::string& path) {
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    require(
        bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 && listen(listener, 8) == 0,
        path + ": " + std::strerror(errno));
    return listener;
}

void link(const fs::path& to, const std::string& at) { fs::create_symlink(to, at); }

struct Obstacle {
    const char* what;
    std::function<void(const ProgramFolders&, const std::string& path)> put;
    const char* suffix = ""; // appended to the socket's path
};

const Obstacle obstacles[] = {
    {"a link to a file",
     [](const ProgramFolders& folders, const std::string& path) { link(folders.preciousFile(), path); }},
    {"a link to nothing",
     [](const ProgramFolders& folders, const std::string& path) { link(folders.runtimeFolder() / "x", path); }},
    {"a file", [](const ProgramFolders&, const std::string& path) { writeFile(path, preciousText); }},
    {"a folder", [](const ProgramFolders&, const std::string& path) { mkdir(path.c_str(), 0700); }},
    {"a pipe", [](const ProgramFolders&, const std::string& path) { mkfifo(path.c_str(), 0600); }},
    {"a link for its lock",
     [](const ProgramFolders& folders, const std::string& path) { link(folders.preciousFile(), path); }, ".lock"},
    {"a folder for its lock", [](const ProgramFolders&, const std::string& path) { mkdir(path.c_str(), 0700); },
     ".lock"},
};

void expectRefusals(std::size_t number, Figures& figures) {
    for (const Obstacle& obstacle : obstacles) {
        const ProgramFolders folders(endpointsIn("").at(number).part);
        const Endpoint endpoint = endpointIn(folders, number);
        writeFile(folders.preciousFile(), preciousText);
        obstacle.put(folders, endpoint.path + obstacle.suffix);
        expectRefusal(folders, endpoint, endpoint.path + obstacle.suffix, obstacle.what);
        ++figures.obstacles;
    }
    for (const bool byLink : {false, true}) {
        const ProgramFolders folders(endpointsIn("").at(number).part);
        const Endpoint endpoint = endpointIn(folders, number);
        writeFile(folders.preciousFile(), preciousText);
        const int listener = listenAt(byLink ? (folders.runtimeFolder() / "other").string() : endpoint.path);
        if (byLink) link(folders.runtimeFolder() / "other", endpoint.path);
        expectRefusal(folders, endpoint, endpoint.path, byLink ? "a link to another server" : "another server");
        Socket client;
        require(client.connect(endpoint.path) == 0, endpoint.name + ": the other server's socket is gone");
        close(listener);
        ++figures.obstacles;
    }
}

void expectReplacement(std::size_t number, Figures& figures) {
    const ProgramFolders folders(endpointsIn("").at(number).part);
    const Endpoint endpoint = endpointIn(folders, number);
    close(listenAt(endpoint.path));
    const auto program = folders.start();
    const auto served = [&] {
        Socket client;
        return client.connect(endpoint.path) == 0;
    };
    require(receiver::waitUntil(served, receiver::defaultTimeout), endpoint.name + ": a stale socket was not replaced");
    struct stat status {};
    require(lstat(endpoint.path.c_str(), &status) == 0 && status.st_mode == (S_IFSOCK | 0600),
            endpoint.name + " is not a socket with mode 0600");
    program->terminate(receiver::defaultTimeout);
    require(program->failure().empty(), endpoint.name + ": the program ended with " + program->failure());
    ++figures.obstacles;
}

// Obstacles at the runtime folder itself.
void expectRefusedFolders(Part part, Figures& figures) {
    for (const bool linked : {true, false}) {
        const ProgramFolders folders(part);
        const auto folder = folders.runtimeFolder();
        const Endpoint endpoint{folder.filename(), part, false, folder.string()};
        writeFile(folders.preciousFile(), preciousText);
        if (linked) {
            fs::rename(folder, folder.string() + "-real");
            link(folder.string() + "-real", folder.string());
        } else {
            require(chmod(folder.c_str(), 0770) == 0, "no such mode");
        }
        expectRefusal(folders, endpoint, folder.string(), linked ? "a link for the folder" : "a folder open to others");
        require(fs::is_empty(folder), endpoint.name + ": the folder is not empty");
        ++figures.obstacles;
    }
}

} // namespace

void placeObstacles(Figures& figures) {
    for (std::size_t endpoint = 0; endpoint < endpointsIn("").size(); ++endpoint) {
        expectRefusals(endpoint, figures);
        expectReplacement(endpoint, figures);
    }
    for (const Part part : receiver::allParts) expectRefusedFolders(part, figures);
}

} // namespace access_check
