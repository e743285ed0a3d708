// What a process records of itself: messages, connections, log lines, commands.
#pragma once

#include <cstdint>
#include <string>

namespace host {

// The numbers are part of the files. Readers skip kinds that they do not know.
enum class EventKind : std::uint8_t {
    process = 1,    // the process began to record, or ended in an orderly way. text: "NAME VERSION began" or "ended"
    message = 2,    // name: the service. data: the frame, header and body, as it goes over the stream. number: the
                    // connection, 0 for all clients, or for a message that waits for a connection
    connection = 3, // name: the service. number: the connection. text: what happened to it, and why
    line = 4,       // name: the log's module. number: the severity. text: the line
    command = 5,    // name: "shell". number: of the command in this process. text: the request, a JSON object
    result = 6,     // of the command with the same number. text: its status, a JSON object; not what it printed
    runLog = 7,     // name: the log code. text: the error code, a space, the text
};

// Of a message. Both sides record it: the sender when it is queued, the receiver before it is validated.
struct EventFlags {
    static constexpr std::uint8_t sent = 1;       // by this process; received otherwise
    static constexpr std::uint8_t otherOrder = 2; // its byte order is not this machine's
};

struct RecordedEvent {
    EventKind kind{};
    std::uint8_t flags = 0;
    std::uint64_t number = 0;
    std::uint32_t thread = 0; // as the system numbers threads
    std::int64_t time = 0;    // nanoseconds of CLOCK_MONOTONIC: comparable between the processes of a machine
    std::int64_t date = 0;    // nanoseconds since 1970, UTC, as the machine's clock had it then
    std::string name;
    std::string data;       // or text
    std::uint32_t size = 0; // of data before it was cut off; data has at most mostRecordedBytes
};

inline constexpr std::uint32_t mostRecordedBytes = 64 * 1024;

} // namespace host
