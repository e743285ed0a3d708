#include "../killed/service-socket.h"
#include "scenarios.h"

#include <host/shell-client.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <kit/receiver-kit.h>
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

// Asks for the run log again and again, until the shell is gone.
class RunLogReader {
public:
    explicit RunLogReader(const std::string& path) : path_(path) {}

    unsigned failures() const { return failures_; }

private:
    void read() {
        try {
            host::ShellClient shell;
            for (shell.connect(path_);;)
                if (shell.run("runlog").status != 0) ++failures_;
        } catch (const host::ShellError&) { // the process ends, or does not answer
        }
    }

    const std::string path_;
    std::atomic<unsigned> failures_{0};
    std::jthread thread_{[this] { read(); }}; // last: it uses the rest
};

std::size_t recorded(ReceiverKit& kit) { return kit.ask(Part::frameHost, {"runlog", "100"}).size(); }

} // namespace

void runOnAStalledDisk(Control& control, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    control.stalledWrites = 0;
    control.disk = Disk::stalled;
    letAPlayFail(kit);
    require(kit.waitFor([&] { return control.stalledWrites > 0; }, receiver::defaultTimeout),
            "nothing wrote to the disk");
    figures.slowestPlay = std::max(figures.slowestPlay, playSome(kit));
    control.disk = Disk::sound;
    require(kit.waitFor([&] { return recorded(kit) == 1; }, receiver::defaultTimeout), "the record is not there");
    // It must also end when the disk never comes back, and while somebody asks for what is to be stored there.
    control.stalledWrites = 0;
    control.disk = Disk::stalled;
    letAPlayFail(kit);
    require(kit.waitFor([&] { return control.stalledWrites > 0; }, receiver::defaultTimeout),
            "nothing wrote to the disk");
    const RunLogReader reader((kit.runtimeFolder() / "frame-host.shell").string());
    require(kit.waitFor([&] { return reader.failures() > 0; }, receiver::defaultTimeout),
            "whoever reads the run log is not told that its disk does not respond");
    const auto begin = Steady::now();
    const std::string complaints = kit.stop(Part::frameHost);
    figures.slowestEnd = since(begin);
    require(complaints.empty(), complaints);
    endOrderly(kit);
    control.disk = Disk::sound;
}

void runOnABadDisk(Control& control, Disk disk, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    control.disk = disk;
    letAPlayFail(kit);
    figures.slowestPlay = std::max(figures.slowestPlay, playSome(kit));
    require(kit.waitFor([&] { return isLogged(kit, "cannot store records, dropping them"); }, receiver::defaultTimeout),
            "nobody told that the record is lost");
    control.disk = Disk::sound;
    letAPlayFail(kit);
    require(recorded(kit) == 1, "the record after the first one is not there, or more than that");
    require(isLogged(kit, "storing works again; 1 records were lost"), "nobody told how many records were lost");
    endOrderly(kit);
}

// Requires that the process whose log it is saw the wall clock jump by so many seconds between the two lines. What took
// place between them took some seconds itself.
void requireJump(const receiver::LogLine& before, const receiver::LogLine& after, std::int64_t jump, Figures& figures) {
    const auto beyond = after.time - before.time - std::chrono::seconds(jump);
    require(beyond >= 0s && beyond < dropLimit, "a jump of " + std::to_string(jump) + " s does not show between \"" +
                                                    before.text + "\" and \"" + after.text + '"');
    ++figures.clockJumps;
}

void runWhileTheClockJumps(Control& control, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    kit.read(Part::tvService, {"fault", "mute", "on"});
    constexpr std::int64_t hour = 3600;
    for (const std::int64_t jump : {hour, -2 * hour, 24 * hour, -24 * hour}) {
        const auto begin = Steady::now();
        const std::string id = kit.play("1:0", live);
        const auto created = kit.waitForStep(id, "created");
        std::this_thread::sleep_for(500ms);
        control.clockOffset += jump;
        const auto dropped = kit.waitForStep(id, dropMark, dropLimit);
        figures.shortestWait = std::min(figures.shortestWait, since(begin));
        figures.longestWait = std::max(figures.longestWait, since(begin));
        requireJump(created, dropped, jump, figures);
    }
    kit.read(Part::tvService, {"fault", "clear"});
    // What waits for a service that is away neither waits for ever nor is given up early.
    for (const std::int64_t jump : {hour, -2 * hour}) {
        kit.kill(Part::tvService);
        const std::string id = kit.play("1:0", live);
        const auto created = kit.waitForStep(id, "created");
        control.clockOffset += jump;
        std::this_thread::sleep_for(500ms);
        kit.start(Part::tvService);
        requireJump(created, kit.waitForStep(id, "finished", 2500ms), jump, figures);
    }
    control.clockOffset = 0;
    endOrderly(kit);
}

namespace {

// A connection to a service, greeted as it must be. Reads nothing.
class DeafClient {
public:
    explicit DeafClient(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const std::string hello = killed::helloOf(path);
        helloSize_ = hello.size();
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

    int socket() const { return socket_; }
    std::size_t helloSize() const { return helloSize_; } // of what the service greets with

private:
    const int socket_;
    std::size_t helloSize_ = 0;
};

// Reads a little at a time, so that the service can hardly ever write a message at once.
class SlowClient {
public:
    explicit SlowClient(const std::string& path) : client_(path) {}
    ~SlowClient() { shutdown(client_.socket(), SHUT_RDWR); } // which ends the reading, too
    SlowClient(const SlowClient&) = delete;
    SlowClient& operator=(const SlowClient&) = delete;

    std::uint64_t alike() const { return alike_; } // messages so far that are byte for byte as the first one

private:
    void read() {
        std::string heard(client_.helloSize(), '\0');
        if (recv(client_.socket(), heard.data(), heard.size(), MSG_WAITALL) != static_cast<ssize_t>(heard.size()))
            return;
        heard.clear();
        std::string first;
        for (char piece[200];;) {
            const ssize_t size = recv(client_.socket(), piece, sizeof piece, 0);
            if (size <= 0) return;
            heard.append(piece, static_cast<std::size_t>(size));
            for (std::size_t whole = 0; (whole = messageAt(heard)) != 0; heard.erase(0, whole)) {
                if (first.empty()) first = heard.substr(0, whole);
                alike_ += heard.compare(0, whole, first) == 0 ? 1 : 0; // plays are told of in between
            }
            std::this_thread::sleep_for(500us);
        }
    }
    // The size of the message that the bytes begin with, 0 as long as it is not whole.
    static std::size_t messageAt(const std::string& bytes) {
        constexpr std::size_t header = 32;
        std::uint32_t body = 0;
        if (bytes.size() < header) return 0;
        std::memcpy(&body, bytes.data(), sizeof body);
        return bytes.size() < header + body ? 0 : header + body;
    }

    const DeafClient client_;
    std::atomic<std::uint64_t> alike_{0};
    std::jthread thread_{[this] { read(); }}; // last: it uses the rest
};

// The framework process's connection to the TV service, and the TV service's to its clients, in numbers.
std::uint64_t receivedFromTv(ReceiverKit& kit) {
    for (const auto& connection : kit.ask(Part::frameHost, {"stats"}))
        if (connection.at("service") == "tvservice") return connection.at("received").get<std::uint64_t>();
    return 0;
}
std::uint64_t atTvService(ReceiverKit& kit, const char* counter) {
    return kit.ask(Part::tvService, {"stats"}).at(0).at(counter).get<std::uint64_t>();
}

void emit(ReceiverKit& kit, std::uint64_t notifications) {
    const std::string info = R"({"info":{"strParam1":")" + std::string(1000, 'x') + R"("}})";
    for (std::uint64_t i = 0; i < notifications; ++i) kit.read(Part::tvService, {"emit", "TvServicePlayInfo", info});
}

// Sends so many to all clients, of which the framework process has to get each.
void emitAllToTheHost(ReceiverKit& kit, std::uint64_t notifications) {
    const auto before = receivedFromTv(kit);
    emit(kit, notifications);
    require(kit.waitFor([&] { return receivedFromTv(kit) == before + notifications; }, receiver::defaultTimeout),
            "the honest client got " + std::to_string(receivedFromTv(kit) - before) + " notifications");
}

} // namespace

void runWithClientsThatDoNotRead(Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const DeafClient deaf((kit.runtimeFolder() / "tvservice.sock").string());
    constexpr std::uint64_t notifications = 2000; // beyond what one queue holds
    emitAllToTheHost(kit, notifications);
    require(atTvService(kit, "refused") > 0, "the deaf client's queue never filled");
    figures.notifications = notifications;
    // The framework process itself as a client that does not read for a while.
    const auto forTheDeaf = atTvService(kit, "queued");
    kit.freeze(Part::frameHost);
    try {
        emit(kit, notifications);
        throw std::logic_error("two clients that do not read were sent all");
    } catch (const ReceiverError&) { // which is how the service tells that nobody takes any more
    }
    kit.thaw(Part::frameHost);
    // Until its queue has room an answer would be refused like everything else.
    require(kit.waitFor([&] { return atTvService(kit, "queued") == forTheDeaf; }, receiver::defaultTimeout),
            "what waited for the framework process did not reach it");
    const auto begin = Steady::now();
    const std::string id = kit.play("1:0", live);
    kit.waitForStep(id, "finished");
    require(since(begin) < 1s, "the play after the pause took " + std::to_string(since(begin).count()) + " ms");
    endOrderly(kit);
}

void runWithAClientThatReadsSlowly(Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const SlowClient slow((kit.runtimeFolder() / "tvservice.sock").string());
    constexpr std::uint64_t notifications = 1000; // all of which one queue holds
    emitAllToTheHost(kit, notifications);
    figures.playBesideSlowReader = playSome(kit);
    require(atTvService(kit, "queued") > 0, "the slow client has read everything before the last play");
    require(kit.waitFor([&] { return slow.alike() == notifications; }, 3 * receiver::defaultTimeout),
            "the slow client got " + std::to_string(slow.alike()) + " notifications");
    figures.slowlyRead = slow.alike();
    endOrderly(kit);
}

} // namespace surroundings
