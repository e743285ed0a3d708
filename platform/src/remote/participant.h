// What the relay's thread looks after: the connections to services elsewhere, and the services offered to others.
#pragma once

#include <chrono>
#include <string>
#include <vector>
#include <zmq.h>

namespace host::remote {

class Participant {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~Participant() = default;
    // Adds what it waits for.
    virtual void collect(std::vector<zmq_pollitem_t>& items) = 0;
    // What has come of the items that collect has added: `items` is the first of them.
    virtual void handle(const zmq_pollitem_t* items) = 0;
    // When it has to be looked after at the latest, whatever comes, and the looking.
    virtual Clock::time_point due() const = 0;
    virtual void lookAfter(Clock::time_point now) = 0;
    // Before its end: sends what those on this machine have said already, as far as their peers let it.
    virtual void speakOut() = 0;
    virtual bool isOver() const = 0;
    // One of the above threw, for want of something.
    virtual void onFault(const std::string& reason) = 0;
};

} // namespace host::remote
