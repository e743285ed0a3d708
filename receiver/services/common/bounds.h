// What clients can make a service keep, and how much of it: all bounds of a service's tables. The shell's command
// "stats tables" says how full each table is and how much it has refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace services {

namespace bounds {

// Of terminals that show something, and again of those that are locked. A client, that is a connection, has a quarter
// of a table at most, so one that invents terminals leaves room for others. What a client has stays when it goes: its
// terminals go on showing it. Only a full table forgets an entry for each one that it has no room for: the oldest one
// of a client that has gone, else of the client that has the most. So neither one that comes back again and again nor
// many that stay keep others out.
inline constexpr std::size_t terminals = 256, terminalsOfAClient = 64;
inline constexpr std::size_t textBytes = 256 * 1024, textBytesOfAClient = 64 * 1024; // their URIs and uuids together
// Of answers that the fault switch "delay" keeps back. What follows an answer counts with it.
inline constexpr std::size_t delayedAnswers = 1024, delayedBytes = 16 * 1024 * 1024;
// Of a text that goes to all clients: the names of a download's packages, the name of the source. Each is kept, too.
// The URIs in a status go to all clients as well; the terminals' bounds are theirs.
inline constexpr std::size_t passedTextBytes = 8 * 1024;

} // namespace bounds

// How full a table is.
struct TableCount {
    std::string name;
    std::size_t held = 0, most = 0;
    std::uint64_t refused = 0; // what found no room, since the process started
};

} // namespace services
