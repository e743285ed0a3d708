// Whether the handlers of this process return. A handler that does not return blocks all clients, because one thread
// runs all handlers; the shell and its command "health" still work.
#pragma once

#include <chrono>

namespace services {

// The manager gives a request up after this time, so a handler that takes longer is a failure.
inline constexpr std::chrono::milliseconds handlerLimit = std::chrono::seconds(5);

struct Health {
    const char* handling = nullptr;     // the message that is being handled; null: none
    std::chrono::milliseconds since{0}; // for how long
    bool isGood() const { return since < handlerLimit; }
};

Health health(); // from any thread

// Marks that the receiving thread handles a message while it exists. bind() makes one around each handler. name must
// live as long as the process.
class Handling {
public:
    explicit Handling(const char* name);
    ~Handling();
    Handling(const Handling&) = delete;
    Handling& operator=(const Handling&) = delete;
};

} // namespace services
