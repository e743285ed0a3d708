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

void require(bool condition, const std::string& problem) {
    if (!condition) throw ReceiverError(problem);
}

void endOrderly(ReceiverKit& kit) {
    const std::string problems = kit.stop();
    require(problems.empty(), problems);
}

// A play on the main terminal fails, which is recorded in the run log.
void failAPlay(ReceiverKit& kit) {
    kit.read(Part::tvService, {"fault", "mute", "on"});
    const std::string id = kit.play("0:0", live);
    kit.waitForStep(id, dropMark, dropLimit);
    kit.read(Part::tvService, {"fault", "clear"});
}

// Plays several times and returns the longest duration according to the log.
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

// Reads the run log through the shell again and again, until the shell closes the connection.
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
        } catch (const host::ShellError&) { // the process has ended, or does not answer
        }
    }

    const std::string path_;
    std::atomic<unsigned> failures_{0};
    std::jthread thread_{[this] { read(); }}; // last: it uses the rest
};

std::size_t recordCount(ReceiverKit& kit) { return kit.ask(Part::frameHost, {"runlog", "100"}).size(); }

} // namespace

void runOnAStalledDisk(Control& control, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    control.stalledWrites = 0;
    control.disk = Disk::stalled;
    failAPlay(kit);
    require(kit.waitFor([&] { return control.stalledWrites > 0; }, receiver::defaultTimeout),
            "there was no write to the disk");
    figures.slowestPlay = std::max(figures.slowestPlay, playSome(kit));
    control.disk = Disk::working;
    require(kit.waitFor([&] { return recordCount(kit) == 1; }, receiver::defaultTimeout), "the record is missing");
    // The process must also end if the disk never recovers, and while a client reads the run log.
    control.stalledWrites = 0;
    control.disk = Disk::stalled;
    failAPlay(kit);
    require(kit.waitFor([&] { return control.stalledWrites > 0; }, receiver::defaultTimeout),
            "there was no write to the disk");
    const RunLogReader reader((kit.runtimeFolder() / "frame-host.shell").string());
    require(kit.waitFor([&] { return reader.failures() > 0; }, receiver::defaultTimeout),
            "reading the run log does not report that its disk does not respond");
    const auto begin = Steady::now();
    const std::string problems = kit.stop(Part::frameHost);
    figures.slowestEnd = since(begin);
    require(problems.empty(), problems);
    endOrderly(kit);
    control.disk = Disk::working;
}

void runOnABadDisk(Control& control, Disk disk, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    control.disk = disk;
    failAPlay(kit);
    figures.slowestPlay = std::max(figures.slowestPlay, playSome(kit));
    require(kit.waitFor([&] { return isLogged(kit, "cannot store records, dropping them"); }, receiver::defaultTimeout),
            "the loss of the record is not logged");
    control.disk = Disk::working;
    failAPlay(kit);
    require(recordCount(kit) == 1, "the run log does not have exactly the second record");
    require(isLogged(kit, "storing works again; 1 records were lost"), "the number of lost records is not logged");
    endOrderly(kit);
}

// Requires that the wall clock jumped by that many seconds between the two lines of a log. Some seconds have passed
// between them, too.
void requireJump(const receiver::LogLine& before, const receiver::LogLine& after, std::int64_t jump, Figures& figures) {
    const auto elapsed = after.time - before.time - std::chrono::seconds(jump);
    require(elapsed >= 0s && elapsed < dropLimit, "a jump of " + std::to_string(jump) + " s does not show between \"" +
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
    // A request to a service that is down must neither wait forever nor be dropped early.
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

// A connection to a service that sends its hello and reads nothing.
class NonReadingClient {
public:
    explicit NonReadingClient(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const std::string hello = killed::helloOf(path);
        helloSize_ = hello.size();
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const bool connected = connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                               send(socket_, hello.data(), hello.size(), MSG_NOSIGNAL) > 0;
        require(connected, "no connection to " + path);
    }
    ~NonReadingClient() { close(socket_); }
    NonReadingClient(const NonReadingClient&) = delete;
    NonReadingClient& operator=(const NonReadingClient&) = delete;

    int socket() const { return socket_; }
    std::size_t helloSize() const { return helloSize_; } // of the service's hello

private:
    const int socket_;
    std::size_t helloSize_ = 0;
};

// Reads a few bytes at a time, so that the service can rarely write a whole message at once.
class SlowClient {
public:
    explicit SlowClient(const std::string& path) : client_(path) {}
    ~SlowClient() { shutdown(client_.socket(), SHUT_RDWR); } // also ends the reading thread
    SlowClient(const SlowClient&) = delete;
    SlowClient& operator=(const SlowClient&) = delete;

    std::uint64_t identical() const { return identical_; } // messages so far that equal the first one

private:
    void read() {
        std::string received(client_.helloSize(), '\0');
        if (recv(client_.socket(), received.data(), received.size(), MSG_WAITALL) !=
            static_cast<ssize_t>(received.size()))
            return;
        received.clear();
        std::string first;
        for (char piece[200];;) {
            const ssize_t size = recv(client_.socket(), piece, sizeof piece, 0);
            if (size <= 0) return;
            received.append(piece, static_cast<std::size_t>(size));
            for (std::size_t whole = 0; (whole = messageAt(received)) != 0; received.erase(0, whole)) {
                if (first.empty()) first = received.substr(0, whole);
                identical_ += received.compare(0, whole, first) == 0 ? 1 : 0; // notifications of plays differ
            }
            std::this_thread::sleep_for(500us);
        }
    }
    // The size of the first message in the bytes; 0 while it is incomplete.
    static std::size_t messageAt(const std::string& bytes) {
        constexpr std::size_t header = 32;
        std::uint32_t body = 0;
        if (bytes.size() < header) return 0;
        std::memcpy(&body, bytes.data(), sizeof body);
        return bytes.size() < header + body ? 0 : header + body;
    }

    const NonReadingClient client_;
    std::atomic<std::uint64_t> identical_{0};
    std::jthread thread_{[this] { read(); }}; // last: it uses the rest
};

// Counters of the framework process's connection to the TV service, and of the TV service's connections to its clients.
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

// Sends notifications to all clients, and requires that the framework process receives each.
void emitAllToTheHost(ReceiverKit& kit, std::uint64_t notifications) {
    const auto before = receivedFromTv(kit);
    emit(kit, notifications);
    const bool all =
        kit.waitFor([&] { return receivedFromTv(kit) == before + notifications; }, receiver::defaultTimeout);
    require(all, "the framework process received " + std::to_string(receivedFromTv(kit) - before) + " notifications");
}

} // namespace

void runWithClientsThatDoNotRead(Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const NonReadingClient nonReading((kit.runtimeFolder() / "tvservice.sock").string());
    constexpr std::uint64_t notifications = 2000; // more than one queue holds
    emitAllToTheHost(kit, notifications);
    require(atTvService(kit, "refused") > 0, "the queue of the client that does not read never filled");
    figures.notifications = notifications;
    // The framework process itself does not read for a while.
    const auto queuedForNonReading = atTvService(kit, "queued");
    kit.freeze(Part::frameHost);
    try {
        emit(kit, notifications);
        throw std::logic_error("all notifications were sent although no client reads");
    } catch (const ReceiverError&) { // the service's command fails if no client's queue has room
    }
    kit.thaw(Part::frameHost);
    // While its queue is full an answer would be refused like everything else.
    require(kit.waitFor([&] { return atTvService(kit, "queued") == queuedForNonReading; }, receiver::defaultTimeout),
            "the messages queued for the framework process did not reach it");
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
    constexpr std::uint64_t notifications = 600; // one queue holds all of them and those of the plays
    emitAllToTheHost(kit, notifications);
    figures.playBesideSlowReader = playSome(kit);
    require(atTvService(kit, "queued") > 0, "the slow client has read everything before the last play");
    const bool all = kit.waitFor([&] { return slow.identical() == notifications; }, 3 * receiver::defaultTimeout);
    require(all, "the slow client received " + std::to_string(slow.identical()) + " notifications");
    figures.slowlyRead = slow.identical();
    endOrderly(kit);
}

} // namespace surroundings
