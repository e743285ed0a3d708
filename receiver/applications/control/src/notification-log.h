// All notifications to the adapter's clients, numbered from 1 in order of arrival.
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
    // The arguments as JSON text, with the names of numbers; empty when it would exceed
    // NotificationLog::longestArguments.
    std::string arguments;
    // The length of the omitted text, or a lower bound of it.
    std::size_t omittedBytes = 0;
};

// The arguments of a notification as JSON text, or only its length when it is too long.
struct TextOrLength {
    std::string text;
    std::size_t omittedBytes = 0;
};

// A client of the adapter. All calls are safe from any thread: notifications arrive on the framework's threads, readers
// run on the shell's. Only readers create the texts, because that takes far longer for long lists than storing the
// arguments.
class NotificationLog : public tvservice::ClientInterface {
public:
    // Limits of the kept notifications: their number, and the bytes of their arguments in memory. The newest are kept.
    static constexpr std::size_t mostKept = 1000;
    static constexpr std::size_t mostBytes = 16 * 1024 * 1024;
    // The limit of one notification, so that it always fits into a command's output.
    static constexpr std::size_t longestArguments = 256 * 1024;

    TVSERVICE_NOTIFICATIONS(GENRPC_OVERRIDE)

    // Return at most count notifications, oldest first, with at most 2 * longestArguments of text: the newest ones, or
    // the first ones after number.
    std::vector<Notification> newest(std::size_t count) const;
    std::vector<Notification> after(std::uint64_t number, std::size_t count) const;

    TableCount table() const;

private:
    using Arguments = std::function<TextOrLength()>; // owns the arguments
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
