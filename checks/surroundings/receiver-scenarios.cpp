#include "../killed/service-socket.h"
#include "scenarios.h"

#include <algorithm>
#include <receiver-kit/receiver-kit.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace surroundings {
namespace {

using namespace std::chrono_literals;
using receiver::Part;
using receiver::ReceiverError;
using receiver::ReceiverKit;
using std::chrono::milliseconds;
using Steady = std::chrono::steady_clock;

constexpr const char* live = "dvb://1.1.1";
constexpr const char* media = "rtp://239.0.0.1:5004";
constexpr const char* dropMark = "timeout 5s, erase it";
constexpr milliseconds dropLimit{9000};

milliseconds since(Steady::time_point begin) { return std::chrono::duration_cast<milliseconds>(Steady::now() - begin); }

void require(bool condition, const std::string& otherwise) {
    if (!condition) throw ReceiverError(otherwise);
}

void endOrderly(ReceiverKit& kit) {
    const std::string complaints = kit.stop();
    require(complaints.empty(), complaints);
}

// The main terminal's picture does not come, of which the run log is told.
void letAPlayFail(ReceiverKit& kit) {
    kit.read(Part::tvService, {"fault", "mute", "on"});
    const std::string id = kit.play("0:0", live);
    kit.waitForStep(id, dropMark, dropLimit);
    kit.read(Part::tvService, {"fault", "clear"});
}

// Plays one after the other; the longest time that one took, by the log.
milliseconds playSome(ReceiverKit& kit) {
    milliseconds slowest{0};
    for (int i = 0; i < 30; ++i) {
        const std::string id = kit.play("1:0", i % 2 == 0 ? live : media);
        const auto end = kit.waitForStep(id, "finished").time;
        const auto begin = kit.waitForStep(id, "created").time;
        slowest = std::max(slowest, std::chrono::duration_cast<milliseconds>(end - begin));
    }
    return slowest;
}

bool isLogged(const ReceiverKit& kit, const std::string& text) {
    for (const receiver::LogLine& line : receiver::readLog(kit.folder() / "frame-host.log"))
        if (line.text.find(text) != std::string::npos) return true;
    return false;
}

std::size_t recorded(ReceiverKit& kit) { return kit.ask(Part::frameHost, {"runlog", "100"}).size(); }

} // namespace

void runOnAStalledDisk(Control& control, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    control.stalledWrites = 0;
    control.disk = Disk::stalled;
    letAPlayFail(kit);
    require(kit.waitFor([&] { return control.stalledWrites > 0; }, receiver::patience), "nothing wrote to the disk");
    figures.slowestPlay = std::max(figures.slowestPlay, playSome(kit));
    control.disk = Disk::sound;
    require(kit.waitFor([&] { return recorded(kit) == 1; }, receiver::patience), "the record is not there");
    // It must also end when the disk never comes back.
    control.disk = Disk::stalled;
    letAPlayFail(kit);
    endOrderly(kit);
    control.disk = Disk::sound;
}

void runOnABadDisk(Control& control, Disk disk, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    control.disk = disk;
    letAPlayFail(kit);
    figures.slowestPlay = std::max(figures.slowestPlay, playSome(kit));
    require(kit.waitFor([&] { return isLogged(kit, "cannot store records, dropping them"); }, receiver::patience),
            "nobody told that the record is lost");
    control.disk = Disk::sound;
    letAPlayFail(kit);
    require(recorded(kit) == 1, "the record after the first one is not there, or more than that");
    require(isLogged(kit, "storing works again; 1 records were lost"), "nobody told how many records were lost");
    endOrderly(kit);
}

void runWhileTheClockJumps(Control& control, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    kit.read(Part::tvService, {"fault", "mute", "on"});
    constexpr std::int64_t hour = 3600;
    for (const std::int64_t jump : {hour, -2 * hour, 24 * hour, -24 * hour}) {
        const auto begin = Steady::now();
        const std::string id = kit.play("1:0", live);
        std::this_thread::sleep_for(500ms);
        control.clockOffset += jump;
        kit.waitForStep(id, dropMark, dropLimit);
        figures.shortestWait = std::min(figures.shortestWait, since(begin));
        figures.longestWait = std::max(figures.longestWait, since(begin));
    }
    kit.read(Part::tvService, {"fault", "clear"});
    // What waits for a service that is away neither waits for ever nor is given up early.
    for (const std::int64_t jump : {hour, -2 * hour}) {
        kit.kill(Part::tvService);
        const std::string id = kit.play("1:0", live);
        control.clockOffset += jump;
        std::this_thread::sleep_for(500ms);
        kit.start(Part::tvService);
        kit.waitForStep(id, "finished", 2500ms);
    }
    control.clockOffset = 0;
    endOrderly(kit);
}

namespace {

// A client of a service that greets it as it must be, and never reads again.
class DeafClient {
public:
    explicit DeafClient(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const std::string hello = killed::helloOf(path);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const bool greeted = connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                             send(socket_, hello.data(), hello.size(), MSG_NOSIGNAL) > 0;
        require(greeted, "no connection to " + path);
    }
    ~DeafClient() { close(socket_); }
    DeafClient(const DeafClient&) = delete;
    DeafClient& operator=(const DeafClient&) = delete;

private:
    const int socket_;
};

} // namespace

void runWithClientsThatDoNotRead(Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const DeafClient deaf((kit.runtimeFolder() / "tvservice.sock").string());
    const auto received = [&] {
        for (const auto& connection : kit.ask(Part::frameHost, {"stats"}))
            if (connection.at("service") == "tvservice") return connection.at("received").get<std::uint64_t>();
        return std::uint64_t{0};
    };
    const auto atService = [&](const char* counter) {
        return kit.ask(Part::tvService, {"stats"}).at(0).at(counter).get<std::uint64_t>();
    };
    constexpr std::uint64_t notifications = 2000; // beyond what one queue holds
    const std::string info = R"({"info":{"strParam1":")" + std::string(1000, 'x') + R"("}})";
    const auto emitAll = [&] {
        for (std::uint64_t i = 0; i < notifications; ++i)
            kit.read(Part::tvService, {"emit", "TvServicePlayInfo", info});
    };
    const auto before = received();
    emitAll();
    require(kit.waitFor([&] { return received() == before + notifications; }, receiver::patience),
            "the honest client got " + std::to_string(received() - before) + " notifications");
    require(atService("refused") > 0, "the deaf client's queue never filled");
    figures.notifications = notifications;
    // The framework process itself as a client that does not read for a while.
    const auto forTheDeaf = atService("queued");
    kit.freeze(Part::frameHost);
    try {
        emitAll();
        throw std::logic_error("two clients that do not read were sent all");
    } catch (const ReceiverError&) { // which is how the service tells that nobody takes any more
    }
    kit.thaw(Part::frameHost);
    // Until its queue has room an answer would be refused like everything else.
    require(kit.waitFor([&] { return atService("queued") == forTheDeaf; }, receiver::patience),
            "what waited for the framework process did not reach it");
    const auto begin = Steady::now();
    const std::string id = kit.play("1:0", live);
    kit.waitForStep(id, "finished");
    require(since(begin) < 1s, "the play after the pause took " + std::to_string(since(begin).count()) + " ms");
    endOrderly(kit);
}

} // namespace surroundings
