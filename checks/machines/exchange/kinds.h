// The kinds of round trips through the adapter: one for each request of the adapter, and one for each notification of
// the TV service. The MM service's two messages belong to the requests to play and stop.
#pragma once

#include "application.h"
#include "random.h"
#include "service.h"

#include <string>
#include <vector>

namespace exchange {

struct Exchange {
    Application& application;
    Service& tvService;
    Random& random;
};

struct RoundTrip {
    Notifications received; // in an order that does not depend on which service was faster
    std::string expected;   // the correct one if they are wrong; empty if they are right, or only the service knows
};

struct Kind {
    const char* name;
    // Uses random arguments. number: different for each call.
    RoundTrip (*play)(const Exchange& exchange, int number);
    bool plays; // on terminals, through the resource manager
    bool takesLong;
};

const std::vector<Kind>& kinds();

} // namespace exchange
