#include "remote/sockets.h"

#include <atomic>
#include <cstring>
#include <poll.h>

namespace host::remote {
namespace {

using namespace std::chrono_literals;

constexpr auto handshakePatience = 3s; // for a peer to prove its key
constexpr auto connectPatience = 2s;   // for its host to answer at all
// Credit bounds the bytes; these bound the frames, which a peer that keeps to its credit never reaches.
constexpr int mostToSend = 2 * window / frameCost;
// Nor does one that does not: it is shut down before. The library would stop reading, and it fails an assertion of its
// own when a connection breaks meanwhile.
constexpr int mostToReceive = 1 << 20;

int milliseconds(std::chrono::milliseconds time) { return static_cast<int>(time.count()); }

} // namespace

zmq::socket_t makeSocket(const Common& common, zmq::socket_type type) {
    zmq::socket_t socket(common.context, type);
    socket.set(zmq::sockopt::curve_publickey, common.keys.publicKey);
    socket.set(zmq::sockopt::curve_secretkey, common.keys.secretKey);
    socket.set(zmq::sockopt::sndhwm, mostToSend);
    socket.set(zmq::sockopt::rcvhwm, mostToReceive);
    socket.set(zmq::sockopt::maxmsgsize, static_cast<std::int64_t>(longestData + frameCost));
    socket.set(zmq::sockopt::linger, milliseconds(lastWords));
    socket.set(zmq::sockopt::handshake_ivl, milliseconds(handshakePatience));
    socket.set(zmq::sockopt::connect_timeout, milliseconds(connectPatience));
    // A peer that has not answered for three heartbeats has gone, and expects the same of us.
    socket.set(zmq::sockopt::heartbeat_ivl, milliseconds(common.heartbeat));
    socket.set(zmq::sockopt::heartbeat_timeout, milliseconds(3 * common.heartbeat));
    socket.set(zmq::sockopt::heartbeat_ttl, milliseconds(3 * common.heartbeat));
    socket.set(zmq::sockopt::ipv6, true);
    socket.set(zmq::sockopt::immediate, true);
    return socket;
}

Monitor::Monitor(const Common& common, zmq::socket_t& watched, int kinds)
    : watched_(watched), socket_(common.context, zmq::socket_type::pair) {
    static std::atomic<unsigned> number{0};
    const std::string place = "inproc://monitor-" + std::to_string(++number);
    socket_.set(zmq::sockopt::linger, 0);
    socket_.set(zmq::sockopt::rcvhwm, 0); // the library's own thread waits until an event is taken
    if (zmq_socket_monitor(watched.handle(), place.c_str(), kinds) != 0) throw zmq::error_t();
    socket_.connect(place);
}

// Before its socket is closed, as the library's own thread would wait for another one for ever.
Monitor::~Monitor() { zmq_socket_monitor(watched_.handle(), nullptr, 0); }

Event Monitor::next() {
    zmq::message_t what, address;
    Event event;
    if (!socket_.recv(what, zmq::recv_flags::dontwait)) return event;
    if (what.more()) (void)socket_.recv(address, zmq::recv_flags::none); // the parts of a message come together
    if (what.size() < sizeof event.kind + sizeof event.value) return event;
    std::memcpy(&event.kind, what.data(), sizeof event.kind);
    std::memcpy(&event.value, static_cast<const char*>(what.data()) + sizeof event.kind, sizeof event.value);
    return event;
}

zmq::message_t messageOf(FrameKind kind, const char* data, std::size_t size) {
    zmq::message_t message(1 + size);
    auto* bytes = static_cast<char*>(message.data());
    bytes[0] = static_cast<char>(kind);
    if (size > 0) std::memcpy(bytes + 1, data, size);
    return message;
}

zmq_pollitem_t readable(zmq::socket_t& socket) { return {socket.handle(), 0, ZMQ_POLLIN, 0}; }

zmq_pollitem_t pollItem(int descriptor, short wanted) {
    const int events = ((wanted & POLLIN) != 0 ? ZMQ_POLLIN : 0) | ((wanted & POLLOUT) != 0 ? ZMQ_POLLOUT : 0);
    return {nullptr, descriptor, static_cast<short>(events), 0};
}

short pollEvents(const zmq_pollitem_t& item) {
    return static_cast<short>(((item.revents & ZMQ_POLLIN) != 0 ? POLLIN : 0) |
                              ((item.revents & ZMQ_POLLOUT) != 0 ? POLLOUT : 0) |
                              ((item.revents & ZMQ_POLLERR) != 0 ? POLLERR : 0));
}

} // namespace host::remote
