// What may lie where a socket or its lock belongs.
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

constexpr const char* value = "of value\n";
constexpr int failed = 1; // the exit code of a program that cannot have its sockets

void write(const fs::path& file, const std::string& text) { std::ofstream(file) << text; }
std::string contentOf(const fs::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// A program's place, which is new for each try.
class Place {
public:
    explicit Place(Part part) : part_(part) {
        std::string name = (fs::temp_directory_path() / "access-XXXXXX").string();
        require(mkdtemp(name.data()) != nullptr, "no private folder");
        folder_ = name;
        for (const char* folder : {"run", "state"}) mkdir((folder_ / folder).c_str(), 0700);
    }
    ~Place() { fs::remove_all(folder_); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    fs::path runtimeFolder() const { return folder_ / "run"; }
    fs::path valuable() const { return folder_ / "valuable"; }

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
    std::string said() const { return contentOf(log()); }

private:
    fs::path log() const { return folder_ / "log"; }

    const Part part_;
    fs::path folder_;
};

Endpoint endpointIn(const Place& place, std::size_t number) { return endpointsIn(place.runtimeFolder()).at(number); }

// The program must not come up, must say where it failed, and must leave everything as it is.
void expectRefusal(const Place& place, const Endpoint& endpoint, const std::string& path, const char* what) {
    const std::string where = endpoint.name + " with " + what;
    struct stat before {
    }, after{};
    require(lstat(path.c_str(), &before) == 0, where + ": it is not there");
    const auto program = place.start();
    require(receiver::waitUntil([&] { return !program->running(); }, receiver::defaultTimeout),
            where + ": it was taken");
    require(program->exitCode() == failed, where + ": the program ended with " + program->failure());
    require(place.said().find(endpoint.path) != std::string::npos, where + ": the program said " + place.said());
    require(lstat(path.c_str(), &after) == 0 && after.st_ino == before.st_ino && after.st_mode == before.st_mode,
            where + ": it is no longer there");
    require(contentOf(place.valuable()) == value, where + ": the file of value has changed");
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
    std::function<void(const Place&, const std::string& path)> put;
    const char* suffix = ""; // of the path where it is put
};

const Obstacle obstacles[] = {
    {"a link to a file", [](const Place& place, const std::string& path) { link(place.valuable(), path); }},
    {"a link to nothing", [](const Place& place, const std::string& path) { link(place.runtimeFolder() / "x", path); }},
    {"a file", [](const Place&, const std::string& path) { write(path, value); }},
    {"a folder", [](const Place&, const std::string& path) { mkdir(path.c_str(), 0700); }},
    {"a pipe", [](const Place&, const std::string& path) { mkfifo(path.c_str(), 0600); }},
    {"a link for its lock", [](const Place& place, const std::string& path) { link(place.valuable(), path); }, ".lock"},
    {"a folder for its lock", [](const Place&, const std::string& path) { mkdir(path.c_str(), 0700); }, ".lock"},
};

void expectRefusals(std::size_t number, Figures& figures) {
    for (const Obstacle& obstacle : obstacles) {
        const Place place(endpointsIn("").at(number).part);
        const Endpoint endpoint = endpointIn(place, number);
        write(place.valuable(), value);
        obstacle.put(place, endpoint.path + obstacle.suffix);
        expectRefusal(place, endpoint, endpoint.path + obstacle.suffix, obstacle.what);
        ++figures.places;
    }
    for (const bool byLink : {false, true}) {
        const Place place(endpointsIn("").at(number).part);
        const Endpoint endpoint = endpointIn(place, number);
        write(place.valuable(), value);
        const int listener = listenAt(byLink ? (place.runtimeFolder() / "other").string() : endpoint.path);
        if (byLink) link(place.runtimeFolder() / "other", endpoint.path);
        expectRefusal(place, endpoint, endpoint.path, byLink ? "a link to another server" : "another server");
        Socket client;
        require(client.connect(endpoint.path) == 0, endpoint.name + ": the other server is no longer there");
        close(listener);
        ++figures.places;
    }
}

void expectReplacement(std::size_t number, Figures& figures) {
    const Place place(endpointsIn("").at(number).part);
    const Endpoint endpoint = endpointIn(place, number);
    close(listenAt(endpoint.path));
    const auto program = place.start();
    const auto served = [&] {
        Socket client;
        return client.connect(endpoint.path) == 0;
    };
    require(receiver::waitUntil(served, receiver::defaultTimeout),
            endpoint.name + ": a left-over socket was not replaced");
    struct stat status {};
    require(lstat(endpoint.path.c_str(), &status) == 0 && status.st_mode == (S_IFSOCK | 0600),
            endpoint.name + " is open");
    program->terminate(receiver::defaultTimeout);
    require(program->failure().empty(), endpoint.name + ": the program ended with " + program->failure());
    ++figures.places;
}

// The runtime folder itself.
void expectRefusedFolders(Part part, Figures& figures) {
    for (const bool linked : {true, false}) {
        const Place place(part);
        const auto folder = place.runtimeFolder();
        const Endpoint endpoint{folder.filename(), part, false, folder.string()};
        write(place.valuable(), value);
        if (linked) {
            fs::rename(folder, folder.string() + "-real");
            link(folder.string() + "-real", folder.string());
        } else {
            require(chmod(folder.c_str(), 0770) == 0, "no such mode");
        }
        expectRefusal(place, endpoint, folder.string(), linked ? "a link for the folder" : "a folder open to others");
        require(fs::is_empty(folder), endpoint.name + ": there is something in the folder");
        ++figures.places;
    }
}

} // namespace

void occupyPlaces(Figures& figures) {
    for (std::size_t endpoint = 0; endpoint < endpointsIn("").size(); ++endpoint) {
        expectRefusals(endpoint, figures);
        expectReplacement(endpoint, figures);
    }
    for (const Part part : receiver::allParts) expectRefusedFolders(part, figures);
}

} // namespace access_check
