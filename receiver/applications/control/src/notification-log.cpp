#include "notification-log.h"

#include "named-json.h"

#include <lrt/run-log-agent.h>
#include <tvservice/messages.h>

#include <algorithm>
#include <numeric>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace control {
namespace {

// A lower bound of a value's length as JSON text: texts may need escapes, numbers more than one digit. Allocates
// nothing, whereas a message's JSON takes many times the memory of the message.
template <class T> std::size_t leastLength(const T& value) {
    if constexpr (std::is_enum_v<T> || std::is_arithmetic_v<T>)
        return 1;
    else if constexpr (std::is_same_v<T, std::string>)
        return value.size() + 2;
    else if constexpr (requires { T::Flat::fields(); })
        return std::apply(
            [&](const auto&... field) {
                return (std::size_t{2} + ... +
                        (std::string_view(field.name).size() + 3 + leastLength(value.*field.plain)));
            },
            T::Flat::fields());
    else // a list
        return std::accumulate(value.begin(), value.end(), std::size_t{2},
                               [](std::size_t sum, const auto& element) { return sum + leastLength(element); });
}

// The bytes of memory that a value holds besides its own size.
template <class T> std::size_t heldBytes(const T& value) {
    if constexpr (std::is_enum_v<T> || std::is_arithmetic_v<T>)
        return 0;
    else if constexpr (std::is_same_v<T, std::string>)
        return value.capacity();
    else if constexpr (requires { T::Flat::fields(); })
        return std::apply([&](const auto&... field) { return (std::size_t{0} + ... + heldBytes(value.*field.plain)); },
                          T::Flat::fields());
    else // a list
        return std::accumulate(value.begin(), value.end(), value.capacity() * sizeof(typename T::value_type),
                               [](std::size_t sum, const auto& element) { return sum + heldBytes(element); });
}

template <class Message, class... Args> TextOrLength textOrLength(const Args&... args) {
    std::string text = genrpc::textOf(argumentsToNamedJson<Message>(args...));
    if (text.size() > NotificationLog::longestArguments) return {{}, text.size()};
    return {std::move(text), 0};
}

} // namespace

template <class Message, class... Args> void NotificationLog::keep(const Args&... args) {
    if (const std::size_t least = (std::size_t{2} + ... + leastLength(args)); least > longestArguments)
        return keep(
            Message::name,
            [least] {
                return TextOrLength{{}, least};
            },
            0);
    keep(
        Message::name, [args...] { return textOrLength<Message>(args...); },
        (std::size_t{0} + ... + (sizeof args + heldBytes(args))));
}

void NotificationLog::keep(const char* message, Arguments arguments, std::size_t bytes) {
    Kept kept{0, lrt::RunLogAgentImpl::getInstance().getLogCurrentUTCTime(), message,
              std::make_shared<const Arguments>(std::move(arguments)), bytes};
    const thread_safety::LockGuard lock(mutex_);
    kept.number = ++lastNumber_;
    bytes_ += bytes;
    kept_.push_back(std::move(kept));
    while (kept_.size() > mostKept || bytes_ > mostBytes) {
        bytes_ -= kept_.front().bytes;
        kept_.pop_front();
        ++dropped_;
    }
}

#define CONTROL_KEEP(service, direction, Name, method, id, ...)                                           \
    int NotificationLog::method(frame::MsgIds&,                                                           \
                                const frame::TransportInfo& GENRPC_EACH(GENRPC_PARAMETER, __VA_ARGS__)) { \
        keep<tvservice::messages::Name>(GENRPC_NAMES(__VA_ARGS__));                                       \
        return 0;                                                                                         \
    }
TVSERVICE_NOTIFICATIONS(CONTROL_KEEP)
#undef CONTROL_KEEP

TableCount NotificationLog::table() const {
    const thread_safety::LockGuard lock(mutex_);
    return {"notifications", kept_.size(), mostKept, bytes_, mostBytes, dropped_};
}

// Runs without the mutex, because notifications must not wait for texts. Stops at the size limit of a list.
template <class Iterator> std::vector<Notification> NotificationLog::textsOf(Iterator begin, Iterator end) {
    std::vector<Notification> notifications;
    for (std::size_t bytes = 0; begin != end; ++begin) {
        TextOrLength arguments = (*begin->arguments)();
        bytes += arguments.text.size();
        if (bytes > 2 * longestArguments) break;
        notifications.push_back(
            {begin->number, begin->time, begin->message, std::move(arguments.text), arguments.omittedBytes});
    }
    return notifications;
}

std::vector<Notification> NotificationLog::newest(std::size_t count) const {
    std::vector<Kept> newest;
    {
        const thread_safety::LockGuard lock(mutex_);
        newest.assign(kept_.end() - static_cast<std::ptrdiff_t>(std::min(count, kept_.size())), kept_.end());
    }
    // From the newest to the oldest, so that the size limit omits the oldest.
    auto notifications = textsOf(newest.rbegin(), newest.rend());
    std::reverse(notifications.begin(), notifications.end());
    return notifications;
}

std::vector<Notification> NotificationLog::after(std::uint64_t number, std::size_t count) const {
    std::vector<Kept> next;
    {
        const thread_safety::LockGuard lock(mutex_);
        if (kept_.empty() || number >= lastNumber_) return {};
        const std::uint64_t first = kept_.front().number;
        const auto begin = kept_.begin() + static_cast<std::ptrdiff_t>(number < first ? 0 : number + 1 - first);
        const auto rest = static_cast<std::size_t>(kept_.end() - begin);
        next.assign(begin, begin + static_cast<std::ptrdiff_t>(std::min(count, rest)));
    }
    return textsOf(next.begin(), next.end());
}

} // namespace control
