// TLS 1.3 between two hosts that know each other's public key. A certificate is only a container for a key here: each
// process creates its own when it starts, and peers check nothing of it but the key.
#pragma once

#include <host/keys.h>

#include <array>
#include <cstddef>
#include <memory>
#include <openssl/ssl.h>
#include <string>

namespace host::remote {

template <auto release> struct Releaser {
    template <class T> void operator()(T* object) const noexcept { release(object); }
};

// Shared by all connections of a process: protocol, parameters, its own key. Throws std::runtime_error.
using Context = std::unique_ptr<SSL_CTX, Releaser<SSL_CTX_free>>;
Context makeContext(const KeyPair& keys);

// Decides whether the key that a peer claims is accepted.
class KeyCheck {
public:
    enum class Answer { accepted, unknown, tooMany };
    virtual Answer check(const std::string& publicKey) = 0; // may throw std::bad_alloc

protected:
    ~KeyCheck() = default;
};

// TLS over a connected non-blocking socket. It writes to the socket itself; the caller reads from the socket and passes
// the data to it. Must not be used by two threads at once, except for room.
class Session {
public:
    // done: the step succeeded. needsInput: retry when more data has arrived. needsRoom: retry once the socket is
    // writable (write: beginning with the same bytes). again: retry, but serve others first. over: nothing more will
    // come; reason() says why.
    enum class Progress { done, needsInput, needsRoom, again, over };

    // The check must live until the handshake is done. Throws std::bad_alloc.
    Session(SSL_CTX& context, int socket, bool serving, KeyCheck& check);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The buffer for bytes from the socket, enough for many records; to be filled while hasInput is false. Then arrived
    // reports the result: count bytes, or none and an errno, which is 0 if the peer has closed the connection.
    static constexpr std::size_t roomBytes = 32 * 1024;
    char* room() noexcept { return wire_.room.data(); }
    void arrived(std::size_t count, int error) noexcept;
    // Whether the received bytes may contain something for read.
    bool hasInput() const noexcept { return wire_.first < wire_.last || SSL_pending(ssl_.get()) > 0; }

    // A client's part of the handshake ends before the service has checked its key. For a client this is therefore only
    // done once the service has sent something, which means that it has accepted the client.
    Progress handshake() noexcept;
    Progress read(char* room, std::size_t size, std::size_t& count) noexcept;
    // Writes at most one record of 16 KiB. After needsRoom, the next call's bytes begin with the same ones.
    Progress write(const char* data, std::size_t size, std::size_t& count) noexcept;
    // Sends the peer something that its system must acknowledge but its application does not see: a key update.
    void probe() noexcept;
    // Notifies the peer that nothing more will come; does not use the socket afterwards.
    void end() noexcept;

    // Once it is over. isFault: the peer violated the protocol, or memory ran out; otherwise the peer has gone.
    const char* reason() const noexcept;
    bool isFault() const noexcept;

private:
    Progress progressAfter(int result) noexcept;

    struct Wire {
        int socket = -1;
        int readError = 0, sendError = 0; // why nothing more can be received, or sent
        bool ended = false;               // whether the peer has closed its side
        std::size_t first = 0, last = 0;
        std::array<char, roomBytes> room;
    };
    static BIO* makeWireEnd(Wire& wire);
    static int readWire(BIO* bio, char* room, int size);
    static int writeWire(BIO* bio, const char* data, int size);

    Wire wire_;
    std::unique_ptr<SSL, Releaser<SSL_free>> ssl_;
    unsigned long fault_ = 0; // an error of the library, or 0
};

} // namespace host::remote
