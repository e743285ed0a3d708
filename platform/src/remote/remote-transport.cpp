#include "remote/remote-transport.h"

#include "base/endpoint.h"
#include "base/error-text.h"
#include "log/log.h"
#include "sockets/acceptor.h"
#include "tls-stream.h"

#include <host/endpoint.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio/connect.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/system_error.hpp>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <exception>
#include <functional>
#include <iterator>
#include <list>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>
#include <string_view>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread-safety/mutex.h>
#include <thread>
#include <utility>
#include <vector>

namespace host::remote {
namespace {

using namespace std::chrono_literals;
using boost::asio::ip::tcp;
using net::Address;
using Clock = std::chrono::steady_clock;
using Error = boost::system::error_code;

constexpr auto attemptLimit = 5s;    // for a client, from the first step until it is accepted
constexpr auto handshakeLimit = 3s;  // for a client to authenticate
constexpr auto flushTimeout = 500ms; // for peers to read what was sent before the queue ended

// The maximum number of connections in their handshake. With a thousand new ones a second, each still has a quarter of
// a second. They use at most a fraction of the process's descriptors. Each has 32 KiB for received data and at most
// some 170 KiB of the TLS library's memory, most of which is only allocated if it announces a first message of the
// largest size.
std::size_t mostHandshakes() {
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0) return 64;
    return std::clamp<std::size_t>(descriptors.rlim_cur / 4, 16, 256);
}

// A stream until its peer has authenticated, for which the time is limited. Pending operations keep it alive. Calls
// answer, which must not throw, exactly once with the stream or the reason for failure.
class Opening final : public io::StreamUser, public std::enable_shared_from_this<Opening> {
public:
    Opening(boost::asio::io_context& io, std::unique_ptr<TlsStream> stream, io::Connector::Answer answer)
        : stream_(std::move(stream)), timer_(io), answer_(std::move(answer)) {}

    // These two throw when memory runs out.
    void failAfter(std::chrono::seconds limit, const char* reason) {
        timer_.expires_after(limit);
        timer_.async_wait([self = shared_from_this(), reason](const Error& canceled) {
            if (!canceled) self->fail(reason);
        });
    }
    void authenticate() { stream_->authenticate(shared_from_this()); }

    void connectTo(const std::vector<Address>& addresses) noexcept {
        if (!answer_) return; // finding the addresses took too long
        try {
            beginConnecting(addresses);
        } catch (const std::exception& error) {
            fail(textOf(error));
        }
    }

    void fail(const char* reason) noexcept {
        if (!answer_) return;
        stream_->close();
        answer(nullptr, reason);
    }
    bool hasReceived() const { return stream_->hasReceived(); }

    void onWritable() override { answer(std::move(stream_), nullptr); }
    void onFault(const std::string& reason) override { fail(reason.c_str()); }
    void onEnd(const std::string& reason) override { fail(reason.c_str()); }
    void onReceived(std::size_t) override {}

private:
    void beginConnecting(const std::vector<Address>& addresses) {
        boost::asio::async_connect(
            stream_->socket(), addresses, [self = shared_from_this()](const Error& error, const Address&) {
                try {
                    if (self->answer_)
                        error ? self->onFault("connecting failed: " + error.message()) : self->authenticate();
                } catch (const std::exception& shortage) {
                    self->fail(host::textOf(shortage));
                }
            });
    }

    void answer(std::unique_ptr<io::Stream> stream, const char* reason) noexcept {
        const auto self = shared_from_this(); // the answer releases it
        Error ignored;
        timer_.cancel(ignored);
        std::exchange(answer_, nullptr)(std::move(stream), reason);
    }

    std::unique_ptr<TlsStream> stream_;
    boost::asio::steady_timer timer_;
    io::Connector::Answer answer_;
};

// Passes the result of a detached resolver thread to the io_context, unless the connector has gone. One lookup at a
// time.
class ResolverLink {
public:
    explicit ResolverLink(boost::asio::io_context& io) : io_(&io) {}
    bool acquire() { return !busy_.exchange(true); }
    void release() { busy_ = false; }
    template <class Step> void post(Step step) {
        thread_safety::LockGuard lock(mutex_);
        if (io_) boost::asio::post(*io_, std::move(step));
    }
    void cut() {
        thread_safety::LockGuard lock(mutex_);
        io_ = nullptr;
    }

private:
    std::atomic<bool> busy_{false};
    thread_safety::Mutex mutex_;
    boost::asio::io_context* io_ TVSA_GUARDED_BY(mutex_);
};

class RemoteConnector final : public io::Connector {
public:
    RemoteConnector(boost::asio::io_context& io, std::shared_ptr<Shared> shared, const std::string& service,
                    const std::string& endpoint, const std::string& key)
        : io_(io),
          shared_(std::move(shared)),
          keys_(std::make_shared<Keys>(Keys{{key, std::make_shared<const std::string>(key)}})),
          service_(service),
          endpoint_(endpoint),
          hostPort_(hostPortOf(service, endpoint, 1)),
          link_(std::make_shared<ResolverLink>(io)) {
        try {
            fixed_ = net::addressesOf(service_, endpoint_, hostPort_, AI_NUMERICHOST);
        } catch (const std::runtime_error&) {
            (void)net::addressesOf(service_, endpoint_, hostPort_); // a name, which must be resolvable
        }
    }
    ~RemoteConnector() override { link_->cut(); }

    const std::string& address() const override { return endpoint_; }

    void connect(const Answer& answer) override {
        const auto opening =
            std::make_shared<Opening>(io_, std::make_unique<TlsStream>(io_, shared_, keys_, false), answer);
        try {
            opening->failAfter(attemptLimit, "no answer within 5 s");
            fixed_.empty() ? findAddresses(opening) : opening->connectTo(fixed_);
        } catch (const std::exception& error) { // out of memory or threads
            opening->fail(textOf(error));
        }
    }

private:
    // Resolves the name for each attempt, in a thread of its own: this may take many seconds, and the host may have
    // moved. Each attempt starts with another address, because the first one may not be reachable.
    void findAddresses(const std::shared_ptr<Opening>& opening) {
        if (!link_->acquire()) return opening->fail("the address of its host is still being resolved");
        try {
            std::thread([service = service_, endpoint = endpoint_, hostPort = hostPort_, link = link_,
                         first = attempts_++, waiting = std::weak_ptr(opening)] {
                pthread_setname_np(pthread_self(), "resolver");
                try {
                    auto step = outcome(waiting, service, endpoint, hostPort, first);
                    link->release();
                    link->post(std::move(step));
                } catch (const std::exception&) { // out of memory: the attempt ends with its timeout
                    link->release();
                }
            }).detach();
        } catch (...) {
            link_->release();
            throw;
        }
    }

    // On the resolver's thread: resolves the name and returns the next step.
    static std::function<void()> outcome(const std::weak_ptr<Opening>& waiting, const std::string& service,
                                         const std::string& endpoint, const HostPort& hostPort, std::size_t first) {
        std::vector<Address> addresses;
        std::string reason;
        try {
            addresses = net::addressesOf(service, endpoint, hostPort);
            std::rotate(addresses.begin(), addresses.begin() + static_cast<std::ptrdiff_t>(first % addresses.size()),
                        addresses.end());
        } catch (const std::runtime_error& error) {
            reason = error.what();
        }
        return [waiting, addresses = std::move(addresses), reason = std::move(reason)] {
            const auto opening = waiting.lock();
            if (opening) reason.empty() ? opening->connectTo(addresses) : opening->fail(reason.c_str());
        };
    }

    boost::asio::io_context& io_;
    const std::shared_ptr<Shared> shared_;
    const std::shared_ptr<const Keys> keys_; // the service's
    const std::string service_, endpoint_;
    const HostPort hostPort_;
    const std::shared_ptr<ResolverLink> link_;
    std::vector<Address> fixed_; // empty when the host is a name
    std::size_t attempts_ = 0;
};

std::string hostOf(const sockaddr_storage& from) {
    std::array<char, NI_MAXHOST> text{};
    const int error = getnameinfo(reinterpret_cast<const sockaddr*>(&from), sizeof from, text.data(), text.size(),
                                  nullptr, 0, NI_NUMERICHOST);
    constexpr std::string_view mapped = "::ffff:"; // an IPv4 address at an IPv6 socket
    const std::string_view host(error == 0 ? text.data() : "unknown address");
    return std::string(host.starts_with(mapped) ? host.substr(mapped.size()) : host);
}

class RemoteListener final : public io::Listener {
public:
    RemoteListener(boost::asio::io_context& io, std::shared_ptr<Shared> shared, const std::string& service,
                   const Address& address, std::shared_ptr<const Keys> keys)
        : io_(io),
          shared_(std::move(shared)),
          keys_(std::move(keys)),
          service_(service),
          protocol_(address.protocol()),
          socket_(listeningAt(address)),
          acceptor_(io, socket_.get(), [this](io::FileDescriptor connection, const sockaddr_storage& from) {
              take(std::move(connection), from);
          }) {}

    void listen(io::ListenerUser& user) noexcept override {
        user_ = &user;
        acceptor_.listen(user);
    }

private:
    using Openings = std::list<std::shared_ptr<Opening>>;

    io::FileDescriptor listeningAt(const Address& address) const {
        tcp::acceptor acceptor(io_, protocol_);
        acceptor.set_option(tcp::acceptor::reuse_address(true));
        if (protocol_ == tcp::v6()) acceptor.set_option(boost::asio::ip::v6_only(false));
        acceptor.bind(address);
        acceptor.listen();
        acceptor.native_non_blocking(true);
        HOST_LOG(io, vdlDebugProgress, "service %s: offered at %s to %zu known keys\n", service_.c_str(),
                 net::textOf(acceptor.local_endpoint()).c_str(), keys_->size());
        return io::FileDescriptor(acceptor.release());
    }

    void take(io::FileDescriptor connection, const sockaddr_storage& from) noexcept {
        std::shared_ptr<Opening> opening;
        try {
            auto stream = std::make_unique<TlsStream>(io_, shared_, keys_, true);
            stream->socket().assign(protocol_, connection.get());
            (void)connection.release();
            Openings entry(1);
            opening = std::make_shared<Opening>(
                io_, std::move(stream),
                [this, position = entry.begin(), from](std::unique_ptr<io::Stream> proven, const char* reason) {
                    openings_.erase(position);
                    answer(std::move(proven), reason, from);
                });
            entry.front() = opening;
            openings_.splice(openings_.end(), entry);
            opening->failAfter(handshakeLimit, "did not prove a key within 3 s");
            opening->authenticate();
        } catch (const std::exception& error) {
            opening ? opening->fail(textOf(error)) : user_->onRejected(textOf(error));
        }
        if (openings_.size() > most_) evictOne();
    }

    void answer(std::unique_ptr<io::Stream> stream, const char* reason, const sockaddr_storage& from) noexcept {
        std::string text;
        try {
            text = hostOf(from) + (stream ? " authenticated with the " + stream->peer() : std::string(": ") + reason);
        } catch (const std::exception&) { // out of memory
        }
        if (!stream) return user_->onRejected(text.c_str());
        user_->onAuthenticated(text.c_str());
        user_->onClient(std::move(stream));
    }

    // Evicts the oldest connection that has sent nothing, else the oldest of all. Never the newest, which has had no
    // time to send anything.
    void evictOne() noexcept {
        const auto newest = std::prev(openings_.end());
        const auto silent =
            std::find_if(openings_.begin(), newest, [](const auto& opening) { return !opening->hasReceived(); });
        const auto evicted = silent != newest ? *silent : openings_.front();
        evicted->fail("evicted for newer connections before it proved a key");
    }

    boost::asio::io_context& io_;
    const std::shared_ptr<Shared> shared_;
    const std::shared_ptr<const Keys> keys_; // the clients'
    const std::string service_;
    const tcp protocol_;
    const io::FileDescriptor socket_;
    io::Acceptor acceptor_;
    io::ListenerUser* user_ = nullptr;
    const std::size_t most_ = mostHandshakes();
    Openings openings_; // oldest first; at most most_, and for a moment one more
};

// All addresses of this machine: IPv6 and IPv4 where it has both.
Address everyAddress(const std::string& port) {
    const io::FileDescriptor probe(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return {probe ? tcp::v6() : tcp::v4(), static_cast<unsigned short>(std::stoul(port))};
}

// Discards received data. Returns whether the peer has closed the connection.
bool hasEnded(const io::FileDescriptor& socket) {
    std::array<char, 16 * 1024> bytes;
    const ssize_t count = ::recv(socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
}

} // namespace

Transport::Transport(boost::asio::io_context& io, const KeyPair& keys, std::chrono::milliseconds heartbeat)
    : io_(io), shared_(std::make_shared<Shared>(Shared{makeContext(keys), heartbeat})) {}

std::unique_ptr<io::Connector> Transport::connectorTo(const std::string& service, const std::string& endpoint,
                                                      const std::string& key) {
    return std::make_unique<RemoteConnector>(io_, shared_, service, endpoint, key);
}

std::unique_ptr<io::Listener> Transport::listenerAt(const std::string& service, const std::string& endpoint,
                                                    const HostPort& hostPort, const std::set<std::string>& clients) {
    const auto keys = std::make_shared<Keys>();
    for (const std::string& key : clients) keys->emplace(key, std::make_shared<const std::string>(key));
    try {
        const Address address = hostPort.host == "*"
                                    ? everyAddress(hostPort.port)
                                    : net::addressesOf(service, endpoint, hostPort, AI_NUMERICHOST).front();
        return std::make_unique<RemoteListener>(io_, shared_, service, address, keys);
    } catch (const boost::system::system_error& error) {
        throw std::runtime_error("service " + service + ": cannot listen at " + endpoint + ": " +
                                 error.code().message());
    }
}

void Transport::beginShutdown() { shared_->stopping = true; }

void Transport::endShutdown() noexcept {
    constexpr std::chrono::milliseconds interval = 10ms; // between checks of the others while the first peer is slow
    const auto deadline = Clock::now() + flushTimeout;
    auto& sockets = shared_->stopped;
    for (; !sockets.empty() && Clock::now() < deadline; std::erase_if(sockets, hasEnded)) {
        pollfd first{sockets.front().get(), POLLIN, 0};
        (void)::poll(&first, 1, static_cast<int>(interval.count()));
    }
    sockets.clear();
}

} // namespace host::remote
