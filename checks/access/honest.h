// Honest clients of a receiver's sockets.
#pragma once

#include "endpoints.h"

#include <memory>

namespace access_check {

// One connection. Not for several threads at once.
class HonestClient {
public:
    virtual ~HonestClient() = default;
    // Asks for something and waits for the answer; throws std::exception when there is none.
    virtual void ask() = 0;
};

// Connects when it asks first. The services' queue clients find their sockets through setEndpoints.
std::unique_ptr<HonestClient> honestClientOf(const Endpoint& endpoint);

// Where the services of this process's queue clients are; before other threads are started.
void setEndpoints(const std::vector<Endpoint>& endpoints);

} // namespace access_check
