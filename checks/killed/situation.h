// The faults of a receiver's process, and when they occur.
#pragma once

#include <kit/receiver-kit.h>
#include <string>
#include <vector>

namespace killed {

using receiver::Part;

// The state of a request at the victim when the fault occurs; for the framework process, its state at a service.
enum class Moment { beforeStop, stopSent, stopAnswered, startSent, answered, firstExchange };

enum class Fault {
    killed,       // and restarted
    exited,       // after SIGTERM, and restarted
    frozen,       // for six seconds
    staleAnswers, // killed and restarted; then answers requests from before
    mute,         // receives requests and does not answer them
    garbage,      // sends bytes that are not a message
};

struct Situation {
    Part victim;
    Moment moment;
    Fault fault;
};

std::string textOf(const Situation& situation);

// All situations of a victim.
std::vector<Situation> situationsOf(Part victim);

} // namespace killed
