// The tables that tell viewers what is on: names of programs, what runs now and next, and the time (ETSI EN 300 468).
#pragma once

#include "broadcast.h"
#include "packets.h"

#include <chrono>

namespace transmitter {

// The packets of all tables at a time since the broadcast began at start. An event lasts five seconds.
Bytes serviceInformation(const Broadcast& broadcast, std::chrono::seconds time, std::chrono::sys_seconds start,
                         Packetizer& packetizer);

} // namespace transmitter
