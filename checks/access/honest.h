// Honest clients of a receiver's sockets.
#pragma once

#include "endpoints.h"

#include <memory>

namespace access_check {

// One connection. Not for several threads at once.
class HonestClient {
public:
    virtual ~HonestClient() = default;
    // Sends a request and waits for the answer; throws std::exception if there is none.
    virtual void ask() = 0;
};

// Connects with the first request. Clients of services find their sockets through setEndpoints.
std::unique_ptr<HonestClient> honestClientOf(const Endpoint& endpoint);

// Sets the sockets that this process's clients of services connect to. Call it before other threads are started.
void setEndpoints(const std::vector<Endpoint>& endpoints);

} // namespace access_check
