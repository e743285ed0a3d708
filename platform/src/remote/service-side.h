// A service offered to other hosts: its clients' streams, and those who are turned away.
#pragma once

#include "remote/link.h"
#include "remote/mailbox.h"
#include "remote/participant.h"
#include "remote/sockets.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace host::remote {

class ServiceSide final : public Participant {
public:
    // Puts the streams of those whose keys are known into the mailbox, and the reasons why the others were turned away,
    // one for each connection. Throws zmq::error_t when the address cannot be had.
    ServiceSide(const Common& common, const std::string& service, const std::string& address,
                std::set<std::string> clientKeys, std::shared_ptr<Mailbox> mailbox);

    const std::string& service() const { return service_; }
    std::string address() const { return socket_.get(zmq::sockopt::last_endpoint); }
    // Whether a client with this key may connect; when not, that is kept as the reason.
    bool lets(const std::string& key, const std::string& from);

    void collect(std::vector<zmq_pollitem_t>& items) override;
    void handle(const zmq_pollitem_t* items) override;
    Clock::time_point due() const override { return std::min(probeDue_, leaveDue_); }
    void lookAfter(Clock::time_point now) override;
    void speakOut() override;
    bool isOver() const override { return false; }
    void onFault(const std::string& reason) override;

private:
    struct Client final : Route {
        Client(ServiceSide& side_, std::string identity_, std::string key_, io::FileDescriptor socket)
            : side(side_), identity(std::move(identity_)), key(std::move(key_)), link(std::move(socket), *this) {}
        bool send(FrameKind kind, const char* data, std::size_t size) noexcept override;

        ServiceSide& side;
        const std::string identity; // of the connection, given by the library
        const std::string key;
        Link link;
        bool polled = false; // whether the link's socket is among the items
    };

    struct Accepted {
        int descriptor;
        bool madeWay = false;
    };
    // A connection that has asked for a stream.
    struct Opened {
        std::string identity;
        bool hasStream = true;
        Clock::time_point leaveBy = Clock::time_point::max(); // the client's, when it has none any more
    };

    bool sendTo(const std::string& identity, FrameKind kind, const char* data, std::size_t size) noexcept;
    bool receive();
    void onFrame(const std::string& identity, const zmq::message_t& frame);
    void open(const std::string& identity, const zmq::message_t& frame);
    void turnAway(int descriptor, const std::string& identity, const std::string& key, const std::string& why);
    void takeEvents();
    void onEvent(const Event& event);
    void onEnd(int descriptor);
    void refuse(const std::string& reason);
    void forgetReasonsOfNobody();
    void makeRoomForOthers();
    void shutDown(int descriptor);
    bool isOwnConnection(int descriptor) const;
    void forgetThoseWhoLeft();
    void askToLeave(Opened& opened);
    void shutDownThoseWhoStay(Clock::time_point now);

    const std::string service_;
    const std::chrono::milliseconds heartbeat_;
    const std::set<std::string> clientKeys_;
    const std::shared_ptr<Mailbox> mailbox_;
    const std::size_t places_; // for connections without a stream
    zmq::socket_t socket_;
    Monitor monitor_;                                        // ends before the socket
    std::map<std::string, std::unique_ptr<Client>> clients_; // by identity
    bool drained_ = false;                                   // all that was there is received
    std::deque<Event> events_;                               // taken from the monitor
    // Of connections that have asked for a stream and whose end is not reported yet, by descriptor, which two may share
    // when the first has ended already.
    std::multimap<int, Opened> opened_;
    std::deque<Accepted> accepted_; // connections whose beginning has been reported and whose end has not, in order
    std::deque<std::string> whyRefused_; // what was wrong with strangers' connections that will be reported as ended
    Clock::time_point probedAt_, probeDue_;
    int probes_ = 0;                                        // to come soon, as somebody has left
    Clock::time_point leaveDue_ = Clock::time_point::max(); // of the first that has to leave
};

} // namespace host::remote
