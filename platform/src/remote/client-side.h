// A connection to a service on another host, from the attempt on.
#pragma once

#include "remote/link.h"
#include "remote/mailbox.h"
#include "remote/participant.h"
#include "remote/sockets.h"

#include <memory>
#include <optional>
#include <string>

namespace host::remote {

class ClientSide final : public Participant, private Route {
public:
    // Puts a stream or the reason why there is none into the mailbox. Throws zmq::error_t.
    ClientSide(const Common& common, const std::string& address, const std::string& serviceKey,
               std::shared_ptr<Mailbox> mailbox);

    void collect(std::vector<zmq_pollitem_t>& items) override;
    void handle(const zmq_pollitem_t* items) override;
    Clock::time_point due() const override { return due_; }
    void lookAfter(Clock::time_point now) override;
    bool isOver() const override {
        return over_ || (link_ && link_->isOver() && (drained_ || !link_->mayStillSpeak()));
    }
    void speakOut() override;
    void onFault(const std::string& reason) override { fail(reason); }

private:
    bool send(FrameKind kind, const char* data, std::size_t size) noexcept override;
    void onEvent(const Event& event);
    void onMessage(const zmq::message_t& message);
    void onOpened(const char* data, std::size_t size);
    // The end; when there was no stream yet, none comes.
    void fail(const std::string& reason) noexcept;

    zmq::socket_t socket_;
    Monitor monitor_; // ends before the socket
    const std::shared_ptr<Mailbox> mailbox_;
    const std::chrono::milliseconds heartbeat_;
    Clock::time_point due_; // until there is a link, the end of the attempt
    std::optional<Link> link_;
    bool polled_ = false;  // whether the link's socket is among the items
    bool drained_ = false; // all that was there is received
    bool over_ = false;
};

} // namespace host::remote
