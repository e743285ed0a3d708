// What goes through the adapter: a kind for each request of the adapter, and for each notification of the TV service.
// The MM service's two messages are those of the requests to play and stop.
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
    Heard heard;        // in an order that does not depend on which service was quicker
    std::string wanted; // what had to be heard instead; empty when that was heard, or when it is the service's business
};

struct Kind {
    const char* name;
    // With arguments by chance. number: another one each time.
    RoundTrip (*play)(const Exchange& exchange, int number);
    bool plays; // on terminals, through the resource manager
    bool takesLong;
};

const std::vector<Kind>& kinds();

} // namespace exchange
