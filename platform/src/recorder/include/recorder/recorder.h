// Records what the process does. Until start, and when it is switched off, recording costs a load and a branch.
#pragma once

#include "recorder/ring.h"

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace host::recorder {

extern constinit std::atomic<Ring*> current;

inline Ring* ring() noexcept { return current.load(std::memory_order_acquire); }

inline void record(EventKind kind, std::uint64_t number, std::string_view name, std::string_view text) noexcept {
    if (Ring* const ring = recorder::ring()) ring->add(kind, 0, number, name, text);
}

// Of a message: EventFlags. The body may be empty, with all of the frame in header.
inline void recordMessage(std::uint8_t flags, std::uint64_t connection, std::string_view service,
                          std::string_view header, std::string_view body = {}) noexcept {
    if (Ring* const ring = recorder::ring()) ring->add(EventKind::message, flags, connection, service, header, body);
}

class InUse : public std::runtime_error {
public:
    using runtime_error::runtime_error;
};

// Begins to record in the folder of the rings, under the name of the process. Once per process, for its whole life.
// Returns what is worth a line of the log: of the process of that name before, when it did not end in an orderly way.
// Throws InUse when that still runs, and std::runtime_error when the process cannot record.
std::string start(std::size_t bytes, const std::string& version);
// The process ends in an orderly way. What happens afterwards is recorded, too.
void end() noexcept;

} // namespace host::recorder
