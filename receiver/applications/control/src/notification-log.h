// What the clients of the adapter were told: all notifications, numbered from 1 in the order in which they came.
#pragma once

#include "table-count.h"

#include <genrpc/arguments.h>
#include <tvservice/interfaces.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread-safety/mutex.h>
#include <vector>

namespace control {

struct Notification {
    std::uint64_t number = 0;
    std::string time;    // UTC, ISO 8601 with milliseconds
    std::string message; // "TvServiceAudioInfo"
    // The arguments as JSON text; nothing when it would have been longer than NotificationLog::longestArguments.
    std::string arguments;
    // How long it would have been; at least so long when the message is longer anyway.
    std::size_t omittedBytes = 0;
};

// The arguments of a notification as JSON text; or, when that would be too long, its length alone.
struct TextOrLength {
    std::string text;
    std::size_t omittedBytes = 0;
};

// A client of the adapter. Notifications come on the framework's threads, readers on the shell's; all from any thread.
// Their text is made for readers only, as for long lists that takes far longer than keeping them does.
class NotificationLog : public tvservice::ClientInterface {
public:
    // The newest ones are kept: at most so many, and together at most so many bytes of arguments, in memory.
    static constexpr std::size_t mostKept = 1000;
    static constexpr std::size_t mostBytes = 16 * 1024 * 1024;
    // Of one notification, so that one always fits into what a command may print.
    static constexpr std::size_t longestArguments = 256 * 1024;

    TVSERVICE_NOTIFICATIONS(GENRPC_OVERRIDE)

    // Oldest first: at most count of those kept, and not more text of arguments than two of the longest have. The
    // newest ones; or the first ones with a greater number than the one given.
    std::vector<Notification> newest(std::size_t count) const;
    std::vector<Notification> after(std::uint64_t number, std::size_t count) const;

    TableCount table() const;

private:
    using Arguments = std::function<TextOrLength()>; // holds them
    struct Kept {
        std::uint64_t number;
        std::string time;
        const char* message;
        std::shared_ptr<const Arguments> arguments;
        std::size_t bytes; // of the arguments in memory
    };
    template <class Message, class... Args> void keep(const Args&... args);
    void keep(const char* message, Arguments arguments, std::size_t bytes);
    template <class Iterator> static std::vector<Notification> textsOf(Iterator begin, Iterator end);

    mutable thread_safety::Mutex mutex_;
    std::deque<Kept> kept_ TVSA_GUARDED_BY(mutex_); // with consecutive numbers; at most mostKept, with mostBytes
    std::uint64_t lastNumber_ TVSA_GUARDED_BY(mutex_) = 0;
    std::size_t bytes_ TVSA_GUARDED_BY(mutex_) = 0; // of arguments, in kept_
    std::uint64_t dropped_ TVSA_GUARDED_BY(mutex_) = 0;
};

} // namespace control
