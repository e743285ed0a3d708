#include "remote/client-side.h"

#include "remote/socket-pair.h"

#include <exception>
#include <utility>

namespace host::remote {
namespace {
using namespace std::chrono_literals;
constexpr auto attemptPatience = 5s; // for everything that it takes to open a stream
constexpr int mostAtOnce = 64;       // messages; others want to be looked after, too
constexpr int kindsOfEvents = ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH |
                              ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                              ZMQ_EVENT_CLOSED | ZMQ_EVENT_DISCONNECTED;
} // namespace

ClientSide::ClientSide(const Common& common, const std::string& address, const std::string& serviceKey,
                       std::shared_ptr<Mailbox> mailbox)
    : socket_(makeSocket(common, zmq::socket_type::dealer)),
      monitor_(common, socket_, kindsOfEvents),
      mailbox_(std::move(mailbox)),
      heartbeat_(common.heartbeat),
      due_(Clock::now() + attemptPatience) {
    socket_.set(zmq::sockopt::curve_serverkey, serviceKey);
    socket_.set(zmq::sockopt::reconnect_ivl, -1); // a stream that broke is not the same stream again
    socket_.connect(address);
}

void ClientSide::collect(std::vector<zmq_pollitem_t>& items) {
    items.push_back(readable(socket_));
    items.push_back(readable(monitor_.socket()));
    polled_ = link_ && link_->wanted() != 0;
    if (polled_) items.push_back(pollItem(link_->socket(), link_->wanted()));
}

void ClientSide::handle(const zmq_pollitem_t* items) {
    if (polled_) link_->onSocket(pollEvents(items[2]));
    // What the peer has said comes before its end: what is reported by now is looked at after what was said by then.
    drained_ = false;
    zmq::message_t message;
    for (int i = 0; i < mostAtOnce && !isOver() && !drained_; ++i) {
        drained_ = !socket_.recv(message, zmq::recv_flags::dontwait);
        if (!drained_) onMessage(message);
    }
    if (drained_ && (items[1].revents & ZMQ_POLLIN) != 0) onEvent(monitor_.next());
}

void ClientSide::lookAfter(Clock::time_point now) {
    if (now < due_) return;
    due_ = now + heartbeat_;
    if (!link_) return fail("no answer within 5 s");
    link_->probe();
    if (!link_->isOver()) return;
    drained_ = false; // once more, as the peer may have spoken meanwhile
    due_ = now;
}

void ClientSide::speakOut() {
    if (link_) link_->drain();
}

bool ClientSide::send(FrameKind kind, const char* data, std::size_t size) noexcept {
    try {
        return socket_.send(messageOf(kind, data, size), zmq::send_flags::dontwait).has_value();
    } catch (const std::exception&) { // no memory, or no connection
        return false;
    }
}

void ClientSide::onEvent(const Event& event) {
    switch (event.kind) {
        case ZMQ_EVENT_HANDSHAKE_SUCCEEDED:
            if (!send(FrameKind::Open, &protocolVersion, 1)) fail("the connection broke at once");
            break;
        case ZMQ_EVENT_HANDSHAKE_FAILED_AUTH:
            return fail(event.value == cannotTell ? "it cannot tell now whether it lets this machine's key in"
                                                  : "it does not let this machine's key in");
        case ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL:
            return fail("whoever is there has not the service's key");
        case ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL:
            return fail("it broke off while the keys were proven");
        case ZMQ_EVENT_CLOSED:
            return fail("nobody answers there");
        case ZMQ_EVENT_DISCONNECTED:
            return link_ ? link_->onPeerGone() : fail("the connection was broken off");
        default:
            break;
    }
}

void ClientSide::onMessage(const zmq::message_t& message) {
    const auto* data = static_cast<const char*>(message.data());
    if (message.size() == 0 || message.more()) return fail("the peer speaks another protocol");
    const auto kind = static_cast<FrameKind>(data[0]);
    if (link_) return link_->onFrame(kind, data + 1, message.size() - 1);
    if (kind == FrameKind::Open) return onOpened(data + 1, message.size() - 1);
    fail(kind == FrameKind::End ? "turned away: " + std::string(data + 1, message.size() - 1)
                                : "the peer speaks another protocol");
}

void ClientSide::onOpened(const char* data, std::size_t size) {
    if (size != 1 || data[0] != protocolVersion) return fail("the peer speaks another version");
    auto [ours, theirs] = socketPair();
    mailbox_->put({std::move(theirs), {}});
    link_.emplace(std::move(ours), static_cast<Route&>(*this));
    due_ = Clock::now() + heartbeat_;
}

void ClientSide::fail(const std::string& reason) noexcept {
    if (over_) return;
    try {
        if (!link_) mailbox_->put({io::FileDescriptor{}, reason});
        over_ = true;
    } catch (const std::exception&) { // no memory; somebody waits for the answer all the same
        due_ = Clock::now() + 100ms;
    }
}

} // namespace host::remote
