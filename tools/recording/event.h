// What happened in a process, and where events come from.
#pragma once

#include <host/recorded-event.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace recording {

class MessageDecoder;

// A recording or a schema cannot be read or written. The text says which, and where in it.
class RecordingError : public std::runtime_error {
public:
    explicit RecordingError(const std::string& what, int number = EBADMSG) : runtime_error(what), number_(number) {}
    int number() const { return number_; } // of the system's error; EBADMSG: malformed

private:
    int number_;
};

// The process that recorded events.
struct Origin {
    std::string process; // its name
    std::string version; // of its platform
    std::uint32_t pid = 0;
    std::int64_t begin = 0; // of the process: nanoseconds since 1970, UTC
    std::string boot;       // identifies the run of the system: times of different runs are not comparable
    std::shared_ptr<const MessageDecoder> decoder; // of its messages
};

struct Event {
    std::shared_ptr<const Origin> origin;
    host::RecordedEvent recorded;
    std::uint64_t lost = 0; // bytes of this process that were lost right before this event
};

// Events of one or several processes. Not thread-safe.
class EventSource {
public:
    virtual ~EventSource() = default;
    // Returns false when there is no further event yet. Throws RecordingError.
    virtual bool next(Event& event) = 0;
    // Whether there will be no further event once next has returned false.
    virtual bool isOver() const = 0;
};

} // namespace recording
