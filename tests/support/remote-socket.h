// A stream to a service on the transport between hosts, as a socket, for peers that say whatever a test wants.
#pragma once

#include <memory>
#include <string>

namespace support {

struct RemoteSocket {
    std::shared_ptr<void> relay; // has to last as long as the socket
    int socket;                  // the caller's; blocks. -1 when there is no stream
};

// With the keys that are configured for the service "tuner". Waits for the stream.
RemoteSocket connectToTuner(const std::string& address);

// A client that keeps to no rules, over a connection of its own, with the same keys.
class RuthlessClient {
public:
    explicit RuthlessClient(const std::string& address);
    ~RuthlessClient();
    void say(const std::string& frame); // the first byte is its kind
    char hear();                        // the kind of the next frame that is no data

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace support
