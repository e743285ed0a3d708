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

constexpr auto attemptLimit = 5s;    // for everything that it takes a client to be accepted
constexpr auto handshakeLimit = 3s;  // for a client to prove its key to a service
constexpr auto flushTimeout = 500ms; // for peers to read what was sent before the queue ended

// How many connections may be in their handshake. At a thousand new ones in a second each still has a quarter of a
// second. They never have more than a part of the process's descriptors. Each has 32 KiB for what arrives and at most
// some 170 KiB of the TLS library's memory, most of that only if it announces a first message of the longest kind.
std::size_t mostHandshakes() {
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0) return 64;
    return std::clamp<std::size_t>(descriptors.rlim_cur / 4, 16, 256);
}

// A stream until its peer has proven its key, for which there is a limited time. What is under way keeps it in
// existence. The answer, which does not throw, gets the stream or the reason why there is none, once.
class Opening final : public io::StreamUser, public std::enable_shared_from_this<Opening> {
public:
    Opening(boost::asio::io_context& io, std::unique_ptr<TlsStream> stream, io::Connector::Answer answer)
        : stream_(std::move(stream)), timer_(io), answer_(std::move(answer)) {}

    // These two throw when there is no memory.
    void failAfter(std::chrono::seconds limit, const char* reason) {
        timer_.expires_after(limit);
        timer_.async_wait([self = shared_from_this(), reason](const Error& canceled) {
            if (!canceled) self->fail(reason);
        });
    }
    void prove() { stream_->prove(shared_from_this()); }

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
    bool hasSpoken() const { return stream_->hasSpoken(); }

    void onWritable() override { answer(std::move(stream_), nullptr); }
    void onFault(const std::string& reason) override { fail(reason.c_str()); }
    void onEnd(const std::string& reason) override { fail(reason.c_str()); }
    void onReceived(std::size_t) override {}

private:
    void beginConnecting(const std::vector<Address>& addresses) {
        boost::asio::async_connect(
            stream_->socket(), addresses, [self = shared_from_this()](const Error& error, const Address&) {
                try {
                    if (self->answer_) error ? self->onFault("connecting failed: " + error.message()) : self->prove();
                } catch (const std::exception& shortage) {
                    self->fail(host::textOf(shortage));
                }
            });
    }

    void answer(std::unique_ptr<io::Stream> stream, const char* reason) noexcept {
        const auto self = shared_from_this(); // the answer lets go of it
        Error ignored;
        timer_.cancel(ignored);
        std::exchange(answer_, nullptr)(std::move(stream), reason);
    }

    std::unique_ptr<TlsStream> stream_;
    boost::asio::steady_timer timer_;
    io::Connector::Answer answer_;
};

// By which a thread that nobody waits for hands over what it found, as long as somebody may want it. One at a time.
class Line {
public:
    explicit Line(boost::asio::io_context& io) : io_(&io) {}
    bool take() { return !busy_.exchange(true); }
    void free() { busy_ = false; }
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
          place_(placeOf(service, endpoint, 1)),
          line_(std::make_shared<Line>(io)) {
        try {
            fixed_ = net::addressesOf(service_, endpoint_, place_, AI_NUMERICHOST);
        } catch (const std::runtime_error&) {
            (void)net::addressesOf(service_, endpoint_, place_); // a name, which somebody has to know
        }
    }
    ~RemoteConnector() override { line_->cut(); }

    const std::string& address() const override { return endpoint_; }

    void connect(const Answer& answer) override {
        const auto opening =
            std::make_shared<Opening>(io_, std::make_unique<TlsStream>(io_, shared_, keys_, false), answer);
        try {
            opening->failAfter(attemptLimit, "no answer within 5 s");
            fixed_.empty() ? findAddresses(opening) : opening->connectTo(fixed_);
        } catch (const std::exception& error) { // no memory, or no thread
            opening->fail(textOf(error));
        }
    }

private:
    // Asked anew for each attempt, on a thread of its own: the answer may take many seconds, and the host may have
    // moved. Each attempt begins with another address, as the first one may not be within reach.
    void findAddresses(const std::shared_ptr<Opening>& opening) {
        if (!line_->take()) return opening->fail("the address of its host is still asked for");
        try {
            std::thread([service = service_, endpoint = endpoint_, place = place_, line = line_, first = attempts_++,
                         waiting = std::weak_ptr(opening)] {
                pthread_setname_np(pthread_self(), "resolver");
                try {
                    auto step = outcome(waiting, service, endpoint, place, first);
                    line->free();
                    line->post(std::move(step));
                } catch (const std::exception&) { // no memory: the attempt ends when its time is over
                    line->free();
                }
            }).detach();
        } catch (...) {
            line_->free();
            throw;
        }
    }

    // On the resolver's thread: what is to be done with what it finds.
    static std::function<void()> outcome(const std::weak_ptr<Opening>& waiting, const std::string& service,
                                         const std::string& endpoint, const Place& place, std::size_t first) {
        std::vector<Address> addresses;
        std::string reason;
        try {
            addresses = net::addressesOf(service, endpoint, place);
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
    const Place place_;
    const std::shared_ptr<Line> line_;
    std::vector<Address> fixed_; // none when the host is a name
    std::size_t attempts_ = 0;
};

std::string hostOf(const sockaddr_storage& from) {
    std::array<char, NI_MAXHOST> text{};
    const int error = getnameinfo(reinterpret_cast<const sockaddr*>(&from), sizeof from, text.data(), text.size(),
                                  nullptr, 0, NI_NUMERICHOST);
    constexpr std::string_view mapped = "::ffff:"; // an IPv4 address at a socket for both kinds
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
            Openings one(1);
            opening = std::make_shared<Opening>(
                io_, std::move(stream),
                [this, place = one.begin(), from](std::unique_ptr<io::Stream> proven, const char* reason) {
                    openings_.erase(place);
                    answer(std::move(proven), reason, from);
                });
            one.front() = opening;
            openings_.splice(openings_.end(), one);
            opening->failAfter(handshakeLimit, "did not prove a key within 3 s");
            opening->prove();
        } catch (const std::exception& error) {
            opening ? opening->fail(textOf(error)) : user_->onRejected(textOf(error));
        }
        if (openings_.size() > most_) evictOne();
    }

    void answer(std::unique_ptr<io::Stream> stream, const char* reason, const sockaddr_storage& from) noexcept {
        std::string text;
        try {
            text = hostOf(from) + (stream ? " came with the " + stream->peer() : std::string(": ") + reason);
        } catch (const std::exception&) { // no memory
        }
        if (!stream) return user_->onRejected(text.c_str());
        user_->onProven(text.c_str());
        user_->onClient(std::move(stream));
    }

    // The oldest of those that have said nothing, else the oldest of all: in no case the newest, which has had no time
    // to say anything.
    void evictOne() noexcept {
        const auto newest = std::prev(openings_.end());
        const auto silent = std::find_if(openings_.begin(), newest, [](const auto& one) { return !one->hasSpoken(); });
        const auto evicted = silent != newest ? *silent : openings_.front();
        evicted->fail("evicted for newer connections before it had proven a key");
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
    Openings openings_; // the oldest first; at most so many, and the newest one for a moment
};

// Every address of this machine: of both kinds, where it has both.
Address everyAddress(const std::string& port) {
    const io::FileDescriptor probe(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return {probe ? tcp::v6() : tcp::v4(), static_cast<unsigned short>(std::stoul(port))};
}

// Reads what nobody wants any more; whether the peer has ended.
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
                                                    const Place& place, const std::set<std::string>& clients) {
    const auto keys = std::make_shared<Keys>();
    for (const std::string& key : clients) keys->emplace(key, std::make_shared<const std::string>(key));
    try {
        const Address address = place.host == "*" ? everyAddress(place.port)
                                                  : net::addressesOf(service, endpoint, place, AI_NUMERICHOST).front();
        return std::make_unique<RemoteListener>(io_, shared_, service, address, keys);
    } catch (const boost::system::system_error& error) {
        throw std::runtime_error("service " + service + ": cannot listen at " + endpoint + ": " +
                                 error.code().message());
    }
}

void Transport::beginFarewell() { shared_->stopping = true; }

void Transport::endFarewell() noexcept {
    constexpr std::chrono::milliseconds look = 10ms; // at the others, while the first one's peer is slow
    const auto deadline = Clock::now() + flushTimeout;
    auto& sockets = shared_->stopped;
    for (; !sockets.empty() && Clock::now() < deadline; std::erase_if(sockets, hasEnded)) {
        pollfd first{sockets.front().get(), POLLIN, 0};
        (void)::poll(&first, 1, static_cast<int>(look.count()));
    }
    sockets.clear();
}

} // namespace host::remote
