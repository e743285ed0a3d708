// What all connections of a process to other hosts share.
#pragma once

#include "io/file-descriptor.h"
#include "remote/tls.h"

#include <chrono>
#include <vector>

namespace host::remote {

// The sockets of streams that end with the message queue. Their peers have still to read what was sent: were such a
// socket closed while they go on sending, the system would break the connection and drop what is under way.
class Farewell {
public:
    void begin() { begun_ = true; }
    bool hasBegun() const { return begun_; }
    void add(io::FileDescriptor socket) noexcept; // whose sending side is shut down
    // Until the peers have closed theirs, for the time given at most.
    void wait(std::chrono::milliseconds most) noexcept;

private:
    bool begun_ = false;
    std::vector<io::FileDescriptor> sockets_; // at most as many as there were streams
};

struct Common {
    Context tls;
    std::chrono::milliseconds heartbeat;
    Farewell farewell;
};

} // namespace host::remote
