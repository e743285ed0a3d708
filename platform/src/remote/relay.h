// Carries streams over ZeroMQ, on a thread of its own, as its sockets are one thread's each. On this side of it a
// stream is an ordinary stream socket, one end of a pair: the message queue's half of the transport, with its limits
// and its way of waiting, is the local one.
#pragma once

#include "remote/mailbox.h"
#include "remote/orders.h"
#include "remote/participant.h"
#include "remote/service-side.h"
#include "remote/sockets.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>
#include <zmq.hpp>

namespace host::remote {

// From any thread. Whoever owns a mailbox's io_context outlives the relay.
class Relay {
public:
    // Throws std::runtime_error.
    Relay(const KeyPair& keys, std::chrono::milliseconds heartbeat);
    // Ends all streams. What they have taken is still sent, as far as each one's credit goes, and has half a second to
    // get out.
    ~Relay();

    // One attempt, of which the mailbox will have a stream or a reason. findAddress runs on a thread of its own, as it
    // may have to ask for a name, and may throw the reason.
    void connect(const std::function<std::string()>& findAddress, const std::string& serviceKey,
                 const std::shared_ptr<Mailbox>& mailbox);
    void connect(const std::string& address, const std::string& serviceKey, const std::shared_ptr<Mailbox>& mailbox);
    // Returns the address, with the port that was taken for a port of 0. Throws std::runtime_error when it cannot be
    // had.
    std::string serve(const std::string& service, const std::string& address, const std::set<std::string>& clientKeys,
                      std::shared_ptr<Mailbox> mailbox);
    // Gives the address up, and ends the clients' streams, as above.
    void stopServing(const std::string& address);

private:
    void run();
    void work();
    void begin(const std::string& address, const std::string& serviceKey, const std::shared_ptr<Mailbox>& mailbox);
    void handle(std::size_t participant, const zmq_pollitem_t* items);
    void answerForKeys();
    ServiceSide* serviceNamed(const std::string& name) const;
    // On the thread; waits until it is done, and what it throws is thrown here.
    void orderAndWait(const std::function<void()>& what);

    zmq::context_t context_;
    const Common common_;
    zmq::socket_t doorkeeper_; // is asked by the library whom to let in
    std::vector<std::unique_ptr<Participant>> participants_;
    std::vector<ServiceSide*> services_; // those among them

    const std::shared_ptr<Orders> orders_; // outlived by nothing but what still looks for an address
    std::thread thread_;                   // last, as it uses everything
};

} // namespace host::remote
