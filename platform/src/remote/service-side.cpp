#include "remote/service-side.h"

#include "remote/log.h"
#include "remote/socket-pair.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <utility>

namespace host::remote {
namespace {

using namespace std::chrono_literals;

// Messages, besides one for each connection; others want to be looked after, too.
constexpr std::size_t mostAtOnce = 256;
// Many more than an honest machine has, even while those that broke are not known to have; each takes three
// descriptors.
constexpr std::ptrdiff_t mostStreams = 64; // with one key
// The library tells of a connection's end a moment before it knows itself that nothing can be delivered any more.
constexpr int probesAfterAnEnd = 5;
constexpr auto probePause = 10ms;
constexpr std::size_t mostEventsAtOnce = 1024;
constexpr int kindsOfEvents = ZMQ_EVENT_ACCEPTED | ZMQ_EVENT_ACCEPT_FAILED | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH |
                              ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                              ZMQ_EVENT_DISCONNECTED;

// How many connections may be there without a stream. At a thousand new ones in a second each still has a quarter of a
// second to prove its key. They never have more than a part of the process's descriptors.
std::size_t placesForStrangers() {
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0) return 64;
    return std::clamp<std::size_t>(descriptors.rlim_cur / 4, 16, 256);
}

// A property of the connection that a message came by.
std::string property(const zmq::message_t& message, const char* name) {
    const char* value = zmq_msg_gets(message.handle(), name);
    return value ? value : "";
}

} // namespace

ServiceSide::ServiceSide(const Common& common, const std::string& service, const std::string& address,
                         std::set<std::string> clientKeys, std::shared_ptr<Mailbox> mailbox)
    : service_(service),
      heartbeat_(common.heartbeat),
      clientKeys_(std::move(clientKeys)),
      mailbox_(std::move(mailbox)),
      places_(placesForStrangers()),
      socket_(makeSocket(common, zmq::socket_type::router)),
      monitor_(common, socket_, kindsOfEvents),
      probedAt_(Clock::now()),
      probeDue_(probedAt_ + heartbeat_) {
    socket_.set(zmq::sockopt::curve_server, true);
    socket_.set(zmq::sockopt::zap_domain, service_);
    socket_.set(zmq::sockopt::router_mandatory, true);
    socket_.bind(address);
}

bool ServiceSide::lets(const std::string& key, const std::string& from) {
    if (clientKeys_.count(key) != 0) return true;
    whyRefused_.push_back(from + ": its key is not among the known ones: " + key);
    return false;
}

void ServiceSide::collect(std::vector<zmq_pollitem_t>& items) {
    items.push_back(readable(socket_));
    items.push_back(readable(monitor_.socket()));
    for (const auto& [identity, client] : clients_) {
        client->polled = client->link.wanted() != 0;
        if (client->polled) items.push_back(pollItem(client->link.socket(), client->link.wanted()));
    }
}

void ServiceSide::handle(const zmq_pollitem_t* items) {
    const zmq_pollitem_t* item = items + 2;
    for (const auto& [identity, client] : clients_)
        if (client->polled) client->link.onSocket(pollEvents(*item++));
    // A client's first words come before its end: what is reported by now is looked at after what was said by then. The
    // library takes from the connections in turn, so that however much one of them says, each is heard.
    if ((items[1].revents & ZMQ_POLLIN) != 0) takeEvents();
    drained_ = false;
    for (std::size_t most = mostAtOnce + accepted_.size(); most > 0 && !drained_; --most) drained_ = !receive();
    if (!events_.empty()) {
        for (; !events_.empty(); events_.pop_front()) onEvent(events_.front());
        forgetReasonsOfNobody();
        makeRoomForOthers();
    }
    forgetThoseWhoLeft();
}

void ServiceSide::lookAfter(Clock::time_point now) {
    if (now >= leaveDue_) shutDownThoseWhoStay(now);
    if (now < probeDue_) return;
    debug::LineLimit::tellHeldBack();
    for (const auto& [identity, client] : clients_) {
        client->link.probe();
        if (client->link.isOver()) leaveDue_ = now; // once more, as it may have spoken meanwhile
    }
    probes_ = std::max(probes_ - 1, 0);
    probedAt_ = now;
    probeDue_ = now + (probes_ > 0 ? std::min<Clock::duration>(probePause, heartbeat_) : heartbeat_);
}

void ServiceSide::speakOut() {
    for (const auto& [identity, client] : clients_) client->link.drain();
}

bool ServiceSide::Client::send(FrameKind kind, const char* data, std::size_t size) noexcept {
    return side.sendTo(identity, kind, data, size);
}

bool ServiceSide::sendTo(const std::string& identity, FrameKind kind, const char* data, std::size_t size) noexcept {
    try {
        auto frame = messageOf(kind, data, size);
        zmq::message_t to(identity);
        return socket_.send(to, zmq::send_flags::sndmore | zmq::send_flags::dontwait).has_value() &&
               socket_.send(frame, zmq::send_flags::dontwait).has_value();
    } catch (const std::exception&) { // no memory, or no such connection
        return false;
    }
}

// Returns whether there may be more.
bool ServiceSide::receive() {
    zmq::message_t from, frame;
    if (!socket_.recv(from, zmq::recv_flags::dontwait)) return false;
    bool whole = from.more() && socket_.recv(frame, zmq::recv_flags::none).has_value();
    while (whole && frame.more()) { // nobody of us sends that
        zmq::message_t rest;
        (void)socket_.recv(rest, zmq::recv_flags::none);
        if (!rest.more()) whole = false;
    }
    const std::string identity = from.to_string();
    if (whole && frame.size() > 0)
        onFrame(identity, frame);
    else
        sendTo(identity, FrameKind::End, nullptr, 0);
    return true;
}

void ServiceSide::onFrame(const std::string& identity, const zmq::message_t& frame) {
    const auto* data = static_cast<const char*>(frame.data());
    const auto kind = static_cast<FrameKind>(data[0]);
    const auto found = clients_.find(identity);
    if (found != clients_.end()) return found->second->link.onFrame(kind, data + 1, frame.size() - 1);
    if (kind == FrameKind::Open) return open(identity, frame);
    // The rest of what somebody said who has been told that it is over; or else there is no beginning to wait for.
    const int descriptor = zmq_msg_get(frame.handle(), ZMQ_SRCFD);
    if (opened_.count(descriptor) == 0) shutDown(descriptor);
}

void ServiceSide::open(const std::string& identity, const zmq::message_t& frame) {
    const int descriptor = zmq_msg_get(frame.handle(), ZMQ_SRCFD);
    const auto [first, last] = opened_.equal_range(descriptor);
    if (std::any_of(first, last, [&](const auto& one) { return one.second.identity == identity; })) {
        constexpr char why[] = "a connection has one stream";
        sendTo(identity, FrameKind::End, why, sizeof why - 1);
        return;
    }
    const std::string key = property(frame, "User-Id");
    if (frame.size() != 2 || static_cast<const char*>(frame.data())[1] != protocolVersion)
        return turnAway(descriptor, identity, key, "client and service speak different versions");
    if (std::count_if(clients_.begin(), clients_.end(), [&](const auto& one) { return one.second->key == key; }) >=
        mostStreams)
        return turnAway(descriptor, identity, key, "a key has at most " + std::to_string(mostStreams) + " streams");
    auto [ours, theirs] = socketPair();
    auto client = std::make_unique<Client>(*this, identity, key, std::move(ours));
    if (!client->send(FrameKind::Open, &protocolVersion, 1)) return;
    REMOTE_LOG_LIMITED(vdlDebugProgress, "service %s: %s came with the key %s\n", service_.c_str(),
                       property(frame, "Peer-Address").c_str(), client->key.c_str());
    opened_.emplace(descriptor, Opened{identity});
    clients_.emplace(identity, std::move(client));
    mailbox_->put({std::move(theirs), {}});
}

// One whose key is known.
void ServiceSide::turnAway(int descriptor, const std::string& identity, const std::string& key,
                           const std::string& why) {
    askToLeave(opened_.emplace(descriptor, Opened{identity})->second);
    refuse("the client with the key " + key + ": " + why);
    sendTo(identity, FrameKind::End, why.data(), why.size());
}

// Into the place that each is to have, so that none is lost for want of memory.
void ServiceSide::takeEvents() {
    while (events_.size() < mostEventsAtOnce) {
        events_.emplace_back();
        events_.back() = monitor_.next();
        if (events_.back().kind == 0) return events_.pop_back();
    }
}

// A connection's end is reported last, after what was wrong with it. One that nobody has opened a stream on belonged to
// a stranger. What was wrong is reported without saying whose it was, so of several strangers that are about to end,
// one may be given another's reason; each reason is given once.
void ServiceSide::onEvent(const Event& event) {
    switch (event.kind) {
        case ZMQ_EVENT_ACCEPTED:
            accepted_.push_back({static_cast<int>(event.value)});
            break;
        case ZMQ_EVENT_ACCEPT_FAILED:
            REMOTE_LOG_LIMITED(vdlDebugFailure, "service %s: cannot accept clients from other hosts: %s\n",
                               service_.c_str(), zmq_strerror(static_cast<int>(event.value)));
            break;
        case ZMQ_EVENT_HANDSHAKE_FAILED_AUTH: // else the doorkeeper has said why
            if (event.value == cannotTell)
                whyRefused_.emplace_back("a stranger whose key could not be looked up for want of memory");
            break;
        case ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL:
            whyRefused_.emplace_back("a stranger that does not know this service's key, or speaks no CURVE");
            break;
        case ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL:
            whyRefused_.emplace_back("a stranger that left, or said nothing for 3 s, before it had proven its key");
            break;
        case ZMQ_EVENT_DISCONNECTED:
            onEnd(static_cast<int>(event.value));
            break;
        default:
            break;
    }
}

void ServiceSide::onEnd(int descriptor) {
    bool madeWay = false;
    if (const auto ended = std::find_if(accepted_.begin(), accepted_.end(),
                                        [&](const Accepted& one) { return one.descriptor == descriptor; });
        ended != accepted_.end()) {
        madeWay = ended->madeWay;
        accepted_.erase(ended);
    }
    if (const auto known = opened_.lower_bound(descriptor); known != opened_.end() && known->first == descriptor) {
        opened_.erase(known); // the oldest
        probes_ = probesAfterAnEnd;
        probeDue_ = std::min(probeDue_, probedAt_ + std::min<Clock::duration>(probePause, heartbeat_));
        return;
    }
    std::string reason = "a stranger that speaks another protocol";
    if (!whyRefused_.empty()) {
        reason = std::move(whyRefused_.front());
        whyRefused_.pop_front();
    }
    refuse(madeWay ? "a stranger that made way for others before it had proven its key" : reason);
}

void ServiceSide::refuse(const std::string& reason) { mailbox_->putRefusal(reason); }

// Something can be wrong with an honest client's connection, too, whose end takes no reason.
void ServiceSide::forgetReasonsOfNobody() {
    while (!whyRefused_.empty() && whyRefused_.size() + opened_.size() > accepted_.size()) whyRefused_.pop_front();
}

// The oldest of those without a stream make way.
void ServiceSide::makeRoomForOthers() {
    const auto streams =
        std::count_if(opened_.begin(), opened_.end(), [](const auto& one) { return one.second.hasStream; });
    const std::size_t most = static_cast<std::size_t>(streams) + places_;
    if (accepted_.size() <= most) return;
    std::size_t tooMany = accepted_.size() - most;
    for (auto one = accepted_.begin(); one != accepted_.end() && tooMany > 0; ++one) {
        const auto [first, last] = opened_.equal_range(one->descriptor);
        if (std::any_of(first, last, [](const auto& opened) { return opened.second.hasStream; })) continue;
        --tooMany;
        if (!std::exchange(one->madeWay, true)) shutDown(one->descriptor);
    }
}

// The library has no word for it, but a connection that is shut down it ends by itself.
void ServiceSide::shutDown(int descriptor) {
    if (isOwnConnection(descriptor)) ::shutdown(descriptor, SHUT_RDWR);
}

// Whether a descriptor, whose connection may have ended meanwhile, is that of a connection to this service.
bool ServiceSide::isOwnConnection(int descriptor) const {
    sockaddr_storage own{};
    socklen_t size = sizeof own;
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size) != 0) return false;
    in_port_t port = 0;
    if (own.ss_family == AF_INET) port = reinterpret_cast<const sockaddr_in&>(own).sin_port;
    if (own.ss_family == AF_INET6) port = reinterpret_cast<const sockaddr_in6&>(own).sin6_port;
    const std::string address = this->address();
    return address.substr(address.rfind(':') + 1) == std::to_string(ntohs(port));
}

void ServiceSide::forgetThoseWhoLeft() {
    for (auto entry = clients_.begin(); entry != clients_.end();) {
        const Link& link = entry->second->link;
        if (!link.isOver() || (link.mayStillSpeak() && !drained_)) {
            ++entry;
            continue;
        }
        if (!link.fault().empty()) refuse("the client with the key " + entry->second->key + ": it " + link.fault());
        for (auto& [descriptor, opened] : opened_)
            if (opened.identity == entry->first) askToLeave(opened);
        entry = clients_.erase(entry);
    }
}

// It has heard, or is about to, that its stream is over. One that stays all the same is shut down, as it would keep a
// descriptor.
void ServiceSide::askToLeave(Opened& opened) {
    opened.hasStream = false;
    opened.leaveBy = Clock::now() + lastWords;
    leaveDue_ = std::min(leaveDue_, opened.leaveBy);
}

void ServiceSide::shutDownThoseWhoStay(Clock::time_point now) {
    leaveDue_ = Clock::time_point::max();
    for (auto one = opened_.begin(); one != opened_.end(); ++one) {
        auto& [descriptor, opened] = *one;
        if (opened.leaveBy <= now) {
            opened.leaveBy = Clock::time_point::max();
            const auto next = std::next(one);
            if (next == opened_.end() || next->first != descriptor) shutDown(descriptor); // else it has ended already
        }
        leaveDue_ = std::min(leaveDue_, opened.leaveBy);
    }
}

void ServiceSide::onFault(const std::string& reason) {
    REMOTE_LOG_LIMITED(vdlDebugFailure, "service %s: a client on another host was lost: %s\n", service_.c_str(),
                       reason.c_str());
}

} // namespace host::remote
