// How the sockets of this transport are set up, and the small steps that both of its sides take with them.
#pragma once

#include "remote/frames.h"

#include <host/keys.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <zmq.hpp>

namespace host::remote {

constexpr auto lastWords = std::chrono::milliseconds(500); // for what is under way when a stream is over
// The doorkeeper's word to the library, and the library's to both sides, when it cannot say whether a key is known.
constexpr std::uint32_t cannotTell = 500;

// What all connections of a process share.
struct Common {
    zmq::context_t& context;
    KeyPair keys;
    std::chrono::milliseconds heartbeat;
};

// A ROUTER or DEALER with this machine's keys and all limits set; it is neither bound nor connected.
zmq::socket_t makeSocket(const Common& common, zmq::socket_type type);
// What happened to a connection of a socket.
struct Event {
    std::uint16_t kind = 0;  // ZMQ_EVENT_...; 0 when there is none
    std::uint32_t value = 0; // a descriptor, or an error
};

// Hears of what happens to the connections of a socket, which it must not outlast: of those kinds of events.
class Monitor {
public:
    Monitor(const Common& common, zmq::socket_t& watched, int kinds);
    ~Monitor();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    zmq::socket_t& socket() { return socket_; }
    Event next();

private:
    zmq::socket_t& watched_;
    zmq::socket_t socket_;
};

// A frame as a message; throws zmq::error_t without memory for it.
zmq::message_t messageOf(FrameKind kind, const char* data, std::size_t size);

zmq_pollitem_t readable(zmq::socket_t& socket);
// A link's socket; of both, the events in poll's terms.
zmq_pollitem_t pollItem(int descriptor, short wanted);
short pollEvents(const zmq_pollitem_t& item);

} // namespace host::remote
