// TLS 1.3 between two hosts that know each other's public key. A certificate is only the envelope of a key here: each
// process makes its own when it starts, and nothing of it but the key is looked at.
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

// What all connections of a process share: protocol, parameters, its own key. Throws std::runtime_error.
using Context = std::unique_ptr<SSL_CTX, Releaser<SSL_CTX_free>>;
Context makeContext(const KeyPair& keys);

// Decides whether the key that a peer is about to prove is welcome.
class KeyCheck {
public:
    enum class Answer { welcome, unknown, tooMany };
    virtual Answer check(const std::string& publicKey) = 0; // may throw std::bad_alloc

protected:
    ~KeyCheck() = default;
};

// TLS over a connected socket that does not block. Sends by itself; what arrives at the socket is handed to it. Not
// safe to use from two threads at once, but for the room.
class Session {
public:
    // done: the step succeeded; needsInput: try again when more has arrived; needsRoom: once the socket is writable
    // (write: with the same bytes in front); again: try again, but look after others first; over: there will be nothing
    // more, and reason() says why.
    enum class Progress { done, needsInput, needsRoom, again, over };

    // The check has to last until the handshake is done. Throws std::bad_alloc.
    Session(SSL_CTX& context, int socket, bool serving, KeyCheck& check);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Where the bytes of the socket go, many records at once, while hasInput is false; arrived tells what came: count
    // bytes, or none and an errno, 0 being the peer's end.
    static constexpr std::size_t roomBytes = 32 * 1024;
    char* room() noexcept { return wire_.room.data(); }
    void arrived(std::size_t count, int error) noexcept;
    // Whether there may be something for read in what has arrived.
    bool hasInput() const noexcept { return wire_.first < wire_.last || SSL_pending(ssl_.get()) > 0; }

    // A client's part ends before the service has looked at its key; it is done only once the service has sent
    // something, hence accepted the client.
    Progress handshake() noexcept;
    Progress read(char* room, std::size_t size, std::size_t& count) noexcept;
    // Takes one record at most, of 16 KiB.
    Progress write(const char* data, std::size_t size, std::size_t& count) noexcept;
    // Sends the peer something that its system has to acknowledge but its application does not see: new keys.
    void probe() noexcept;
    // Tells the peer that nothing more will come, and leaves the socket alone from then on.
    void end() noexcept;

    // When it is over. isFault: the peer broke the protocol, or there was no memory; else it has gone.
    const char* reason() const noexcept;
    bool isFault() const noexcept;

private:
    Progress progressAfter(int result) noexcept;

    struct Wire {
        int socket = -1;
        int readError = 0, sendError = 0; // why no more can come, or go
        bool ended = false;               // whether the peer has closed its side
        std::size_t first = 0, last = 0;
        std::array<char, roomBytes> room;
    };
    static BIO* makeWireEnd(Wire& wire);
    static int readWire(BIO* bio, char* room, int size);
    static int writeWire(BIO* bio, const char* data, int size);

    Wire wire_;
    std::unique_ptr<SSL, Releaser<SSL_free>> ssl_;
    unsigned long fault_ = 0; // of the library, or 0
};

} // namespace host::remote
