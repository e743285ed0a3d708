// What the demonstration's receiver receives and plays: two broadcasts and a film, which the transmitter makes.
#pragma once

#include "transmitter/broadcast.h"

#include <cstdint>
#include <filesystem>
#include <kit/child-process.h>
#include <kit/receiver-kit.h>
#include <map>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace demo {

// There is no broadcast on this machine: what() says why.
class NoBroadcasts : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Broadcasts {
public:
    // Returns when the first broadcast is on the air. The kit must live longer. Throws NoBroadcasts when a part of the
    // build is missing or does not work here.
    Broadcasts(receiver::ReceiverKit& kit, const receiver::Places& places);

    const std::filesystem::path& channels() const { return channels_; } // a channel list
    std::string film() const { return "file://" + film_.string(); }
    // What a channel or the film shows; nullptr for something else.
    const transmitter::Program* programOf(const std::string& uri) const;

    // To be called in this order: the second broadcast begins after the film, as each takes much of a processor.
    void waitForFilm();
    void waitForSecond(); // broadcast

    std::string problem(); // of a transmitter that has failed, for people; empty: none

    Broadcasts(const Broadcasts&) = delete;
    Broadcasts& operator=(const Broadcasts&) = delete;

private:
    // A bound UDP socket.
    class Port {
    public:
        Port(const char* address, std::uint16_t number); // 0: a free one
        ~Port();
        Port(const Port&) = delete;
        Port& operator=(const Port&) = delete;
        std::uint16_t number() const;
        bool hasReceived() const;

    private:
        const int socket_;
    };
    struct Transmitter {
        explicit Transmitter(const receiver::ChildCommand& command) : process(command), log(command.errorLog) {}
        receiver::ChildProcess process;
        const std::filesystem::path log;
    };
    struct Broadcast {
        explicit Broadcast(int number);
        std::string place() const;
        const int stream;
        const Port reserved;           // so that no other process takes the port while the receiver does not use it
        std::optional<Port> receiving; // until something has come
        std::optional<Transmitter> transmitter;
    };

    void add(const Broadcast& broadcast, std::ostream& list);
    receiver::ChildCommand commandOf(const std::string& name, const std::vector<std::string>& arguments) const;
    void start(Broadcast& broadcast);
    void waitFor(Broadcast& broadcast);

    receiver::ReceiverKit& kit_;
    const std::filesystem::path program_, channels_, film_;
    std::map<std::string, transmitter::Program> programs_;
    Broadcast first_{1}, second_{2};
    std::optional<Transmitter> filmMaker_;
};

} // namespace demo
