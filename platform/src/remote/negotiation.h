// A connection until both sides have proven their keys: what clients and services have in common.
#pragma once

#include "remote/tls.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <string>

namespace host::remote {

// Everything happens on the receiving thread. What is under way keeps the negotiation in existence; once it has
// succeeded or failed, which it does once, nothing more is called.
class Negotiation : public KeyCheck, public std::enable_shared_from_this<Negotiation> {
public:
    explicit Negotiation(boost::asio::io_context& io) : socket(io), timer_(io) {}
    virtual ~Negotiation() = default;

    void fail(const char* reason) noexcept;

protected:
    // Takes a step and comes back when there is more to do, or fails for want of memory.
    void proceed() noexcept;
    void failAfter(std::chrono::seconds limit, const char* reason);
    void awaitBytes(); // the first ones, for which there need be no session yet
    bool isOver() const { return over_; }

    virtual Session::Progress advance() = 0; // may throw
    virtual void onDone() = 0;               // may throw: it fails then
    virtual void onFailed(const char* reason) noexcept = 0;
    virtual std::string whyOver() const = 0; // when advance has said that it is over

    boost::asio::ip::tcp::socket socket;
    std::unique_ptr<Session> session;

private:
    void awaitInput();
    void end() noexcept;

    boost::asio::steady_timer timer_;
    bool over_ = false;
};

} // namespace host::remote
