// The tables that tell viewers what is on: names of programs, what runs now and next, and the time (ETSI EN 300 468).
#pragma once

#include "broadcast.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace transmitter {

class ServiceInformation {
public:
    static constexpr std::chrono::seconds eventLength{5};

    explicit ServiceInformation(Broadcast broadcast) : broadcast_(std::move(broadcast)) {}

    // The packets of all tables at a time since the broadcast began at start.
    std::vector<std::uint8_t> packetsAt(std::chrono::seconds time, std::chrono::sys_seconds start);

private:
    using Bytes = std::vector<std::uint8_t>;
    void add(Bytes& packets, std::uint16_t pid, const Bytes& section);
    Bytes names() const;
    // now: the number of the event that runs.
    Bytes event(const Program& program, std::int64_t now, bool next, std::chrono::sys_seconds start) const;

    const Broadcast broadcast_;
    std::map<std::uint16_t, std::uint8_t> counters_; // of packets, by PID
};

} // namespace transmitter
