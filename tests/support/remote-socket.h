// A client on the transport between hosts that says whatever a test wants.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace support {

// What a peer of a service "tuner" can have wrong; the keys are those that are configured.
enum class Fault {
    none,
    noCertificate,   // it proves nothing
    unfinishedProof, // it shows a public key and sends nothing more
    stolenKey,       // it shows a public key whose secret one it does not have
    olderProtocol,   // TLS 1.2
    unknownAlgorithm // a certificate with a key of another kind
};

// A TLS connection to a service. Everything waits for up to 10 s.
class RemotePeer {
public:
    explicit RemotePeer(const std::string& address, Fault fault = Fault::none);
    ~RemotePeer();

    bool isAccepted() const { return accepted_; } // the service has sent something
    bool send(const std::string& bytes);          // whether the other side took them all
    void sendKeyUpdate();
    // As many bytes as there are until the end, or the time is over.
    std::string receive(std::size_t size);
    bool isEnded(); // reads to the end
    int socket() const;

private:
    struct State;
    std::unique_ptr<State> state_;
    bool accepted_ = false;
};

} // namespace support
