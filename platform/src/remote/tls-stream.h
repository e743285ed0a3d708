// Streams to peers that prove their keys.
#pragma once

#include "base/file-descriptor.h"
#include "tls.h"
#include "transport/transport.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <thread-safety/mutex.h>
#include <vector>

namespace host::remote {

// What all streams of a process have in common.
struct Shared {
    Context tls;
    std::chrono::milliseconds heartbeat;
    // Whether the queue stops. The peers of the streams that end with it have still to read what was sent: were such a
    // socket closed while its peer goes on sending, the system would break the connection and drop what is under way.
    bool stopping = false;
    std::vector<io::FileDescriptor> stopped{}; // shut down for sending; at most as many as there were streams
};

// The keys that a side accepts. Each is held by the streams whose peers have proven it, which counts them.
using Keys = std::map<std::string, std::shared_ptr<const std::string>>;

class TlsStream final : public io::Stream, private KeyCheck {
public:
    using User = std::shared_ptr<io::StreamUser>;

    // Throws std::bad_alloc.
    TlsStream(boost::asio::io_context& io, std::shared_ptr<Shared> shared, std::shared_ptr<const Keys> keys,
              bool serving);

    // To connect it, or to take over a connection. The receiving thread's, as everything until the key is proven.
    boost::asio::ip::tcp::socket& socket() { return socket_; }
    // Has the peer prove its key. Then, and for a client once the service has accepted it, the user is told by
    // onWritable that the stream can be used; or else by onFault why not, perhaps before this returns. May throw.
    void prove(const User& user);
    // Whether the peer has said anything, perhaps what has still to be read.
    bool hasSpoken() const TVSA_NO_THREAD_SAFETY_ANALYSIS; // before the key is proven

    bool isOwn() const override { return true; }
    // With a proven key, which goes only when the stream is closed.
    std::string peer() const override TVSA_NO_THREAD_SAFETY_ANALYSIS { return "key " + *key_; }
    void receive(char* room, std::size_t size, User user) override;
    std::size_t send(const char* data, std::size_t size, std::error_code& error) noexcept override;
    void waitWritable(User user) noexcept override;
    void breakOff() noexcept override;
    void close() noexcept override;

private:
    Answer check(const std::string& publicKey) override;
    void step(const User& user) noexcept;
    void comeBack(Session::Progress progress, const User& user);
    void stepWhenThereIsInput(const User& user) TVSA_NO_THREAD_SAFETY_ANALYSIS; // the session's room never moves
    void shakeHands(const User& user) TVSA_NO_THREAD_SAFETY_ANALYSIS;           // before the key is proven
    std::string tooManyStreams() const;
    void read(const User& user);
    void end(io::StreamUser& user);
    void watch(const std::weak_ptr<io::StreamUser>& user);
    bool isSilent() const;

    const std::shared_ptr<Shared> shared_;
    const std::shared_ptr<const Keys> keys_;
    const bool serving_;
    boost::asio::ip::tcp::socket socket_; // the receiving thread's, as is what follows
    boost::asio::steady_timer heartbeat_;
    const std::shared_ptr<const std::string>* shown_ = nullptr; // the key that the peer claims, not proven yet
    std::string refusal_;                                       // why the peer's key is not accepted
    bool proven_ = false, silent_ = false;
    bool over_ = false; // the session will give nothing more
    char* room_ = nullptr;
    std::size_t size_ = 0;

    int descriptor_ = -1; // the socket's, for any thread once the key is proven

    thread_safety::Mutex mutex_;
    // Until the key is proven, these are the receiving thread's, without the mutex. clang knows no such time.
    std::unique_ptr<Session> session_ TVSA_GUARDED_BY(mutex_);
    std::shared_ptr<const std::string> key_ TVSA_GUARDED_BY(mutex_);
    bool spoke_ TVSA_GUARDED_BY(mutex_) = false; // since the last heartbeat
};

} // namespace host::remote
