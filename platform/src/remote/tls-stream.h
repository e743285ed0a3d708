// Streams to peers that authenticate with their keys.
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

// State shared by all streams of a process.
struct Shared {
    Context tls;
    std::chrono::milliseconds heartbeat;
    // Whether the queue is stopping. The peers of the streams that end with it must still read what was sent to them:
    // if such a socket were closed while its peer goes on sending, the system would reset the connection and discard
    // the data in transit.
    bool stopping = false;
    std::vector<io::FileDescriptor> stopped{}; // shut down for sending; at most as many as there were streams
};

// The keys that a side accepts. The streams whose peers authenticated with a key share its pointer, which counts them.
using Keys = std::map<std::string, std::shared_ptr<const std::string>>;

class TlsStream final : public io::Stream, private KeyCheck {
public:
    using User = std::shared_ptr<io::StreamUser>;

    // Throws std::bad_alloc.
    TlsStream(boost::asio::io_context& io, std::shared_ptr<Shared> shared, std::shared_ptr<const Keys> keys,
              bool serving);

    // For connecting it, or for assigning a connection. Used by the receiving thread, like everything until the peer
    // has authenticated.
    boost::asio::ip::tcp::socket& socket() { return socket_; }
    // Authenticates the peer by its key. When done, and for a client once the service has accepted it, calls the user's
    // onWritable; on failure, calls onFault, possibly before this returns. May throw.
    void authenticate(const User& user);
    // Whether the peer has sent anything, even if it has not been read yet.
    bool hasReceived() const TVSA_NO_THREAD_SAFETY_ANALYSIS; // before authentication

    bool isOwn() const override { return true; }
    // After authentication; the key is only reset when the stream is closed.
    std::string peer() const override TVSA_NO_THREAD_SAFETY_ANALYSIS { return "key " + *key_; }
    void receive(char* room, std::size_t size, User user) override;
    std::size_t send(const char* data, std::size_t size, std::error_code& error) noexcept override;
    void waitWritable(User user) noexcept override;
    void breakOff() noexcept override;
    void close() noexcept override;

private:
    Answer check(const std::string& publicKey) override;
    void step(const User& user) noexcept;
    void continueAfter(Session::Progress progress, const User& user);
    void stepOnInput(const User& user) TVSA_NO_THREAD_SAFETY_ANALYSIS; // the session's room never moves
    void shakeHands(const User& user) TVSA_NO_THREAD_SAFETY_ANALYSIS;  // before authentication
    std::string tooManyStreams() const;
    void read(const User& user);
    void end(io::StreamUser& user);
    void watch(const std::weak_ptr<io::StreamUser>& user);
    bool isSilent() const;

    const std::shared_ptr<Shared> shared_;
    const std::shared_ptr<const Keys> keys_;
    const bool serving_;
    boost::asio::ip::tcp::socket socket_; // used by the receiving thread, like the members that follow
    boost::asio::steady_timer heartbeat_;
    const std::shared_ptr<const std::string>* claimedKey_ = nullptr; // not authenticated yet
    std::string refusal_;                                            // why the peer's key is not accepted
    bool proven_ = false, silent_ = false;
    bool over_ = false; // nothing more will come from the session
    char* room_ = nullptr;
    std::size_t size_ = 0;

    int descriptor_ = -1; // the socket's; for any thread after authentication

    thread_safety::Mutex mutex_;
    // Until authentication the receiving thread uses these without the mutex, which clang cannot know.
    std::unique_ptr<Session> session_ TVSA_GUARDED_BY(mutex_);
    std::shared_ptr<const std::string> key_ TVSA_GUARDED_BY(mutex_);
    bool sentSinceHeartbeat_ TVSA_GUARDED_BY(mutex_) = false; // since the last heartbeat
};

} // namespace host::remote
