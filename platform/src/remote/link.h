// One stream on its way through the relay: between a socket, whose other end the message queue has, and a peer.
#pragma once

#include "io/file-descriptor.h"
#include "remote/frames.h"

#include <cstddef>
#include <string>
#include <utility>

namespace host::remote {

// On the relay's thread. Every method may find that the link is over.
class Link {
public:
    // Of the peer's, between two of ours. Nobody sends more than a hundred in a second, and no heartbeat is longer than
    // a minute.
    static constexpr int mostProbes = 10000;

    // The socket does not block. The route outlives the link.
    Link(io::FileDescriptor socket, Route& route) : socket_(std::move(socket)), route_(route) {}

    int socket() const { return socket_.get(); }
    short wanted() const; // of the socket, for poll; nothing when it is not worth looking at
    void onSocket(short events);
    // A frame of the peer, without its kind. What breaks the rules ends the link, of which the peer is told.
    void onFrame(FrameKind kind, const char* data, std::size_t size);
    // Sends what the socket has to say now, as far as the credit goes: nobody looks at it any more.
    void drain();
    // The peer has gone; what it has said before still reaches the socket.
    void onPeerGone() { peerGone_ = true; }
    // To be called once per heartbeat: whether peer and socket are still there.
    void probe();

    bool isOver() const { return over_ || (peerGone_ && arrived_.empty()); }
    // Whether what the peer may have said and was not handed over yet is of any use: it is when it has only gone.
    bool mayStillSpeak() const { return !over_ && !saidEnd_; }
    const std::string& fault() const { return fault_; } // of the peer; empty when it made none

private:
    void read();
    void write();
    void takeData(const char* data, std::size_t size);
    void takeCredit(const char* data, std::size_t size);
    void giveCredit();
    void end();
    void breakRules(const std::string& how);

    io::FileDescriptor socket_;
    Route& route_;
    std::string arrived_;          // what the socket had no room for
    std::size_t mayCome_ = window; // credit that the peer has
    std::size_t maySend_ = window; // credit that we have
    bool socketReads_ = true;      // whether anybody will read what we write to it
    int idleProbes_ = 0;           // since the socket was closed without the peer taking what it has left
    int probesHeard_ = 0;          // since the last one of ours
    bool peerGone_ = false, saidEnd_ = false, over_ = false;
    std::string fault_;
};

} // namespace host::remote
