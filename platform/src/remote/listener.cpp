#include "remote/listener.h"

#include "io/log.h"
#include "remote/negotiation.h"
#include "remote/tls-stream.h"

#include <algorithm>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/system_error.hpp>
#include <cerrno>
#include <chrono>
#include <deque>
#include <list>
#include <map>
#include <new>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/socket.h>
#include <utility>

namespace host::remote {
namespace {

using namespace std::chrono_literals;
using boost::asio::ip::tcp;

constexpr auto handshakeLimit = 3s; // for a client to prove its key
// Accepted in one turn, so that clients which are there already are served between them, however fast others come.
constexpr int mostAtOnce = 16;
// Many more than an honest host has, even while streams that broke are not known to have.
constexpr long mostStreams = 64; // with one key

// How many connections may be in their handshake. At a thousand new ones in a second each still has a quarter of a
// second. They never have more than a part of the process's descriptors. Each has 32 KiB for what arrives and at most
// some 170 KiB of the TLS library's memory, most of that only if it announces a first message of the longest kind.
std::size_t placesForHandshakes() {
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0) return 64;
    return std::clamp<std::size_t>(descriptors.rlim_cur / 4, 16, 256);
}

class RemoteListener;

class Newcomer final : public Negotiation {
public:
    Newcomer(boost::asio::io_context& io, RemoteListener& listener, int connection, const Address& from)
        : Negotiation(io), listener_(listener), from_(from) {
        socket.assign(from.protocol(), connection);
    }

    void begin() {
        failAfter(handshakeLimit, "did not prove a key within 3 s");
        awaitBytes();
    }
    bool hasSpoken() const { return session != nullptr; }

private:
    Answer check(const std::string& publicKey) override;
    Session::Progress advance() override;
    void onDone() override;
    void onFailed(const char* reason) noexcept override;
    std::string whyOver() const override;
    std::string from() const;

    RemoteListener& listener_;
    const Address from_;
    std::shared_ptr<const std::string> key_; // once it is known
    std::string refusal_;
};

class RemoteListener final : public io::Listener {
public:
    RemoteListener(boost::asio::io_context& io, std::shared_ptr<Common> common_, std::string service_,
                   const Address& address, const std::set<std::string>& clientKeys)
        : common(std::move(common_)),
          service(std::move(service_)),
          io_(io),
          places_(placesForHandshakes()),
          acceptor_(io, address.protocol()) {
        for (const std::string& key : clientKeys) keys.emplace(key, std::make_shared<const std::string>(key));
        acceptor_.set_option(tcp::acceptor::reuse_address(true));
        if (address.protocol() == tcp::v6()) acceptor_.set_option(boost::asio::ip::v6_only(false));
        acceptor_.bind(address);
        acceptor_.listen();
        acceptor_.native_non_blocking(true);
        IO_LOG(vdlDebugProgress, "service %s: offered at %s to %zu known keys\n", service.c_str(),
               textOf(acceptor_.local_endpoint()).c_str(), keys.size());
    }

    void wait(std::function<void()> ready) override {
        ready_ = std::move(ready);
        if (!outcomes_.empty() || lost_ > 0 || error_ != 0) boost::asio::post(io_, [this] { tell(); });
        watch();
    }

    std::unique_ptr<io::Stream> accept(std::error_code& error) override {
        if (std::exchange(stalled_, false)) takeClients();
        if (lost_ > 0) {
            --lost_;
            throw std::bad_alloc();
        }
        if (!outcomes_.empty()) {
            Outcome first = std::move(outcomes_.front());
            outcomes_.pop_front();
            if (!first.stream) throw std::runtime_error(first.reason);
            return std::move(first.stream);
        }
        if (error_ != 0) {
            error.assign(std::exchange(error_, 0), std::system_category());
            stalled_ = true; // until the next call
        }
        return nullptr;
    }

    // What became of a newcomer.
    void leave(const Newcomer& newcomer, std::unique_ptr<io::Stream> stream, const std::string& reason) noexcept {
        newcomers_.remove_if([&](const auto& one) { return one.get() == &newcomer; });
        try {
            outcomes_.push_back({std::move(stream), reason});
        } catch (const std::exception&) {
            return lose();
        }
        tell();
    }

    const std::shared_ptr<Common> common;
    const std::string service;
    std::map<std::string, std::shared_ptr<const std::string>> keys; // each held by those who have proven it

private:
    struct Outcome {
        std::unique_ptr<io::Stream> stream;
        std::string reason; // when there is none
    };

    void lose() noexcept {
        ++lost_;
        tell();
    }

    void tell() noexcept {
        if (ready_) std::exchange(ready_, nullptr)();
    }

    void watch() {
        if (watching_ || stalled_ || outcomes_.size() >= places_) return; // wait comes again when some are taken
        acceptor_.async_wait(acceptor_.wait_read, [this](const boost::system::error_code& error) {
            watching_ = false;
            if (error) return;
            takeClients();
            if (error_ != 0) tell();
        });
        watching_ = true;
    }

    void takeClients() noexcept {
        try {
            for (int i = 0; i < mostAtOnce && outcomes_.size() < places_ && takeClient(); ++i) {
            }
            if (error_ == 0) watch();
        } catch (const std::exception&) {
            error_ = ENOMEM;
        }
    }

    // Returns whether another one may be waiting.
    bool takeClient() {
        Address from;
        auto size = static_cast<socklen_t>(from.capacity());
        io::FileDescriptor connection(
            ::accept4(acceptor_.native_handle(), from.data(), &size, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!connection) {
            if (errno == EINTR || errno == ECONNABORTED) return true;
            if (errno != EAGAIN) error_ = errno;
            return false;
        }
        from.resize(size);
        std::shared_ptr<Newcomer> newcomer;
        try {
            newcomer = std::make_shared<Newcomer>(io_, *this, connection.get(), from);
            (void)connection.release();
            newcomers_.push_back(newcomer);
            newcomer->begin();
        } catch (const std::exception& error) {
            newcomer ? newcomer->fail(io::textOf(error)) : lose();
        }
        if (newcomers_.size() > places_) evictOne();
        return true;
    }

    // The oldest of those that have said nothing, else the oldest of all.
    void evictOne() {
        const auto silent =
            std::find_if(newcomers_.begin(), newcomers_.end(), [](const auto& one) { return !one->hasSpoken(); });
        const auto evicted = silent != newcomers_.end() ? *silent : newcomers_.front();
        evicted->fail("evicted for newer connections before it had proven a key");
    }

    boost::asio::io_context& io_;
    const std::size_t places_;
    tcp::acceptor acceptor_;
    std::list<std::shared_ptr<Newcomer>> newcomers_; // the oldest first; at most places_
    std::deque<Outcome> outcomes_;                   // at most twice as many
    std::size_t lost_ = 0;                           // clients for whom there was no memory
    std::function<void()> ready_;
    int error_ = 0; // why no client can be accepted
    bool watching_ = false, stalled_ = false;
};

KeyCheck::Answer Newcomer::check(const std::string& publicKey) {
    const auto found = listener_.keys.find(publicKey);
    if (found == listener_.keys.end()) {
        refusal_ = "its key is not among the known ones: " + publicKey;
        return Answer::unknown;
    }
    if (found->second.use_count() > mostStreams) {
        refusal_ = "a key has at most " + std::to_string(mostStreams) + " streams: " + publicKey;
        return Answer::tooMany;
    }
    key_ = found->second;
    return Answer::welcome;
}

Session::Progress Newcomer::advance() {
    if (!session) session = std::make_unique<Session>(*listener_.common->tls, socket.native_handle(), true, *this);
    return session->handshake();
}

void Newcomer::onDone() {
    LIMITED_DEBUG_LINE(io::debugModule << 16 | vdlDebugProgress, debug::tellHeldBackLater(),
                       "service %s: %s came with the key %s\n", listener_.service.c_str(), from().c_str(),
                       key_->c_str());
    listener_.leave(*this, makeStream(listener_.common, std::move(socket), std::move(session), std::move(key_)), {});
}

void Newcomer::onFailed(const char* reason) noexcept {
    const auto self = shared_from_this();
    std::string told;
    try {
        told = from() + ": " + reason;
    } catch (const std::exception&) { // no memory
    }
    listener_.leave(*this, nullptr, told);
}

std::string Newcomer::whyOver() const {
    if (!refusal_.empty()) return refusal_;
    return std::string("broke off before it had proven a key: ") + session->reason();
}

std::string Newcomer::from() const {
    const auto address = from_.address();
    if (!address.is_v6() || !address.to_v6().is_v4_mapped()) return address.to_string();
    return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, address.to_v6()).to_string();
}

} // namespace

std::unique_ptr<io::Listener> makeListenerAt(boost::asio::io_context& io, std::shared_ptr<Common> common,
                                             const std::string& service, const Address& address,
                                             const std::set<std::string>& clientKeys) {
    return std::make_unique<RemoteListener>(io, std::move(common), service, address, clientKeys);
}

} // namespace host::remote
