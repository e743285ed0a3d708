// TLS 1.3 between two hosts that know each other's public key. A certificate is only the envelope of a key here: each
// process makes its own when it starts, and nothing of it but the key is looked at.
#pragma once

#include <host/keys.h>

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

// What a peer that closed the connection said about this machine's key.
enum class Verdict { none, unknownKey, tooMany };

// TLS over a connected socket that does not block. Not safe to use from two threads at once.
class Session {
public:
    // done: the step succeeded; needsInput, needsRoom: try again once the socket is readable or writable (write: with
    // the same bytes in front); again: try again, but look after others first; over: there will be nothing more, and
    // reason() says why.
    enum class Progress { done, needsInput, needsRoom, again, over };

    // The check has to last until the handshake is done. Throws std::bad_alloc.
    Session(SSL_CTX& context, int socket, bool serving, KeyCheck& check);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    Progress handshake() noexcept;
    // A client's handshake is done before the service has looked at its key. This is done once the service has sent
    // something, hence accepted the client.
    Progress awaitAcceptance() noexcept;

    Progress read(char* room, std::size_t size, std::size_t& count) noexcept;
    // Takes one record at most, of 16 KiB.
    Progress write(const char* data, std::size_t size, std::size_t& count) noexcept;

    // Once the handshake is done, whoever has the session may read the socket itself, many records in one call: into
    // wireRoom, as long as hasInput is false. arrived hands over what came: count bytes, or none and an errno, 0 being
    // the peer's end. From the first wireRoom on read takes these bytes only. Throws std::bad_alloc.
    static constexpr std::size_t wireRoomBytes = 32 * 1024;
    char* wireRoom();
    void arrived(std::size_t count, int error) noexcept;
    // Whether there may be bytes for read that have arrived already.
    bool hasInput() const noexcept { return wire_.first < wire_.last || SSL_pending(ssl_.get()) > 0; }
    // Sends the peer something that its system has to acknowledge but its application does not see: new keys.
    void probe() noexcept;
    // Tells the peer that nothing more will come, and leaves the socket alone from then on.
    void end() noexcept;

    // When it is over. isFault: the peer broke the protocol, or there was no memory; else it has gone.
    const char* reason() const noexcept;
    bool isFault() const noexcept;
    Verdict verdict() const noexcept;

private:
    Progress progressAfter(int result) noexcept;

    struct Wire {
        int socket;
        int error;  // why the last call of the system failed for good, or 0
        bool dry;   // whether the socket had nothing when it was read last
        bool ended; // whether the peer has closed its side
        // What has arrived and is not read yet, once the socket is read by others.
        std::unique_ptr<char[]> arrived = nullptr;
        std::size_t first = 0, last = 0;
    };
    static BIO* makeWireEnd(Wire& wire);
    static int readWire(BIO* bio, char* room, int size);
    static int readArrived(Wire& wire, char* room, int size);
    static int writeWire(BIO* bio, const char* data, int size);

    Wire wire_;
    std::unique_ptr<SSL, Releaser<SSL_free>> ssl_;
    unsigned long fault_ = 0; // of the library, or 0
};

} // namespace host::remote
