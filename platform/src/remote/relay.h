// Carries streams over ZeroMQ, on a thread of its own, as its sockets are one thread's each. On this side of it a
// stream is an ordinary stream socket, one end of a pair: the message queue's half of the transport, with its limits
// and its way of waiting, is the local one.
#pragma once

#include "io/file-descriptor.h"
#include "remote/mailbox.h"
#include "remote/participant.h"
#include "remote/service-side.h"
#include "remote/sockets.h"

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
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
    ~Relay(); // ends all streams; what they have sent is still under way for a moment

    // One attempt, of which the mailbox will have a stream or a reason.
    void connect(const std::string& address, const std::string& serviceKey, std::shared_ptr<Mailbox> mailbox);
    // Returns the address, with the port that was taken for a port of 0. Throws std::runtime_error when it cannot be
    // had.
    std::string serve(const std::string& service, const std::string& address, const std::set<std::string>& clientKeys,
                      std::shared_ptr<Mailbox> mailbox);
    // Gives the address up, and ends the clients' streams.
    void stopServing(const std::string& address);

private:
    void run();
    void work();
    void runOrders();
    void handle(std::size_t participant, const zmq_pollitem_t* items);
    void answerForKeys();
    // On the thread; without waiting, or until it is done, when what it throws is thrown here.
    void order(std::function<void()> what);
    void orderAndWait(const std::function<void()>& what);
    void wake() const noexcept;

    zmq::context_t context_;
    const Common common_;
    zmq::socket_t doorkeeper_; // is asked by the library whom to let in
    std::vector<std::unique_ptr<Participant>> participants_;
    std::vector<ServiceSide*> services_; // those among them

    const io::FileDescriptor wake_;
    std::mutex mutex_; // guards the next
    std::vector<std::function<void()>> orders_;
    std::deque<std::function<void()>> ordersToRun_; // the thread's alone
    std::atomic<bool> ended_{false};
    std::thread thread_; // last, as it uses everything
};

} // namespace host::remote
