// A client on the transport between hosts that sends whatever a test wants.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace support {

// What is wrong with a peer of the service "tuner". It uses the configured keys.
enum class Fault {
    none,
    noCertificate,   // it does not prove a key
    unfinishedProof, // it sends a public key and nothing more
    stolenKey,       // it sends a public key without having its secret key
    olderProtocol,   // TLS 1.2
    unknownAlgorithm // a certificate with a key of another type
};

// A TLS connection to a service. Every call waits for up to 10 s.
class RemotePeer {
public:
    explicit RemotePeer(const std::string& address, Fault fault = Fault::none);
    ~RemotePeer();

    bool isAccepted() const { return accepted_; } // the service has sent something
    bool send(const std::string& bytes);          // whether the other side took them all
    void sendKeyUpdate();
    // Returns fewer bytes when the connection ends or the time is over.
    std::string receive(std::size_t size);
    bool isEnded(); // reads until the connection ends
    int socket() const;

private:
    struct State;
    std::unique_ptr<State> state_;
    bool accepted_ = false;
};

} // namespace support
