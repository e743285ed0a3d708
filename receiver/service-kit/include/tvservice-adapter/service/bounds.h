// The bounds of all tables that clients can fill in a service. The shell's command "stats tables" shows how full each
// table is and how much it has refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace services {

namespace bounds {

// Of terminals that show something, and the same of locked terminals. A client (a connection) may fill at most a
// quarter of a table, so a client that invents terminals leaves room for others. A client's entries stay when it
// disconnects: its terminals keep showing what they show. Only a full table evicts an entry for each new one: the
// oldest of a disconnected client, else the oldest of the client with the most. So neither a client that reconnects
// again and again nor many connected clients can keep others out.
inline constexpr std::size_t terminals = 256, terminalsOfAClient = 64;
inline constexpr std::size_t textBytes = 256 * 1024, textBytesOfAClient = 64 * 1024; // their URIs and uuids together
// Of answers that the fault switch "delay" holds back. The notifications after an answer count with it.
inline constexpr std::size_t delayedAnswers = 1024, delayedBytes = 16 * 1024 * 1024;
// Of a text that is stored and sent to all clients: the names of a download's packages, the name of the source. The
// URIs in a status also go to all clients; the bounds of terminals cover them.
inline constexpr std::size_t passedTextBytes = 8 * 1024;

} // namespace bounds

// How full a table is.
struct TableCount {
    std::string name;
    std::size_t held = 0, most = 0;
    std::uint64_t refused = 0; // for lack of room, since the process started
};

} // namespace services
