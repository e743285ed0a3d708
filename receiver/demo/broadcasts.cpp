#include "broadcasts.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace demo {
namespace {

using receiver::ReceiverError;

constexpr receiver::Milliseconds longest{20000}; // a machine under load is slow to begin
// A port is reserved on one address of this machine, and used on another one: so that it stays reserved while the
// receiver opens and closes it.
constexpr const char *reservedOn = "127.0.0.1", *usedOn = "127.0.0.2";
constexpr int filmStream = 2, filmProgram = 2, filmSeconds = 5;

std::filesystem::path existing(const std::filesystem::path& file) {
    if (!std::filesystem::exists(file)) throw NoBroadcasts("this build has no " + file.filename().string());
    return file;
}

sockaddr_in addressOf(const char* address, std::uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    inet_pton(AF_INET, address, &result.sin_addr);
    return result;
}

} // namespace

Broadcasts::Port::Port(const char* address, std::uint16_t number)
    : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in name = addressOf(address, number);
    if (socket_ >= 0 && ::bind(socket_, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0) return;
    const int error = errno;
    ::close(socket_);
    throw std::system_error(error, std::generic_category(), std::string("cannot use a port of ") + address);
}

Broadcasts::Port::~Port() { ::close(socket_); }

std::uint16_t Broadcasts::Port::number() const {
    sockaddr_in name{};
    socklen_t size = sizeof name;
    ::getsockname(socket_, reinterpret_cast<sockaddr*>(&name), &size);
    return ntohs(name.sin_port);
}

bool Broadcasts::Port::hasReceived() const {
    char byte;
    return ::recv(socket_, &byte, sizeof byte, MSG_DONTWAIT | MSG_PEEK) >= 0;
}

Broadcasts::Broadcast::Broadcast(int number) : stream(number), reserved(reservedOn, 0) {}

std::string Broadcasts::Broadcast::place() const {
    return std::string("udp://") + usedOn + ':' + std::to_string(reserved.number());
}

Broadcasts::Broadcasts(receiver::ReceiverKit& kit, const receiver::Places& places)
    : kit_(kit),
      program_(existing(places.programs / "tvsa-transmitter")),
      channels_(kit.folder() / "channels.toml"),
      film_(kit.folder() / "film.ts") {
    existing(places.libraries / "libmedia-gstreamer.so");
    std::ofstream list(channels_);
    add(first_, list);
    add(second_, list);
    const auto programs = transmitter::broadcastOf(filmStream).programs;
    programs_[film()] = *std::ranges::find(programs, filmProgram, &transmitter::Program::number);

    start(first_);
    filmMaker_.emplace(
        commandOf("film", {"--stream", std::to_string(filmStream), "--program", std::to_string(filmProgram),
                           "--seconds", std::to_string(filmSeconds), film_.string()}));
    try {
        waitFor(first_);
    } catch (const ReceiverError& error) {
        throw NoBroadcasts(error.what());
    }
}

// Its channels have the addresses of the TV service's built-in list.
void Broadcasts::add(const Broadcast& broadcast, std::ostream& list) {
    for (const auto& program : transmitter::broadcastOf(broadcast.stream).programs) {
        const std::string uri = "dvb://1." + std::to_string(broadcast.stream) + '.' + std::to_string(program.number);
        list << "[[channel]]\nuri = \"" << uri << "\"\nname = \"" << program.name << "\"\nsource = \""
             << broadcast.place() << "\"\nprogram = " << program.number << "\n\n";
        programs_[uri] = program;
    }
}

receiver::ChildCommand Broadcasts::commandOf(const std::string& name, const std::vector<std::string>& arguments) const {
    return {program_, arguments, {}, kit_.folder() / (name + ".log")};
}

void Broadcasts::start(Broadcast& broadcast) {
    const std::string stream = std::to_string(broadcast.stream);
    broadcast.receiving.emplace(usedOn, broadcast.reserved.number());
    // Twice as many key frames as usual: a play waits for one, and long where the transmitter gets little of a
    // processor.
    broadcast.transmitter.emplace(
        commandOf("broadcast-" + stream, {"--stream", stream, "--key-frames", "6", broadcast.place()}));
}

void Broadcasts::waitFor(Broadcast& broadcast) {
    const auto hasCome = [&] {
        if (const std::string reason = problem(); !reason.empty()) throw ReceiverError(reason);
        return broadcast.receiving->hasReceived();
    };
    if (!kit_.waitFor(hasCome, longest)) throw ReceiverError("tvsa-transmitter sends nothing");
    broadcast.receiving.reset();
}

void Broadcasts::waitForFilm() {
    const auto isThere = [&] {
        if (const std::string reason = problem(); !reason.empty()) throw ReceiverError("no film: " + reason);
        return std::filesystem::exists(film_);
    };
    if (!kit_.waitFor(isThere, longest))
        throw ReceiverError("no film within " + std::to_string(longest.count()) + " ms");
    start(second_);
}

void Broadcasts::waitForSecond() { waitFor(second_); }

std::string Broadcasts::problem() {
    for (auto* const transmitter : {&first_.transmitter, &filmMaker_, &second_.transmitter}) {
        if (!*transmitter || (*transmitter)->process.running()) continue;
        if (transmitter == &filmMaker_ && std::filesystem::exists(film_)) continue;
        std::string reason = receiver::tailOf((*transmitter)->log, 1);
        while (reason.ends_with('\n')) reason.pop_back();
        return reason.empty() ? "tvsa-transmitter: " + (*transmitter)->process.failure() : reason;
    }
    return {};
}

const transmitter::Program* Broadcasts::programOf(const std::string& uri) const {
    const auto program = programs_.find(uri);
    return program == programs_.end() ? nullptr : &program->second;
}

} // namespace demo
