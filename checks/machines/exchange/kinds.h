// What the services are made to do: a kind for each request, and for each notification that they are told to send.
#pragma once

#include "random.h"
#include "side.h"

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace exchange {

using Sides = std::array<Side*, 2>;

struct Kind {
    const char* name;
    // The same for both, with arguments by chance. Returns the notification that both then have to send, or an empty
    // text when that is the service's business.
    std::string (*play)(Random& random, const Sides& sides);
    bool isDownload;
};

const std::vector<Kind>& kinds();

// Asks for what is answered with `number` after everything before it, and returns that answer.
std::string askLast(const Sides& sides, int number);
// Whether it is the end of a download.
bool endsDownload(const std::string& heard);

} // namespace exchange
