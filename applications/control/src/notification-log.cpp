#include "notification-log.h"

#include <genrpc/json.h>
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

// How long a value is as JSON text, at least: texts may need escapes, numbers more than one digit. Takes no memory,
// while JSON of a message takes many times the message's own.
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

template <class Message, class... Args> TextOrLength textOrLength(const Args&... args) {
    const std::size_t least = (std::size_t{2} + ... + leastLength(args));
    if (least > NotificationLog::longestArguments) return {{}, least};
    std::string text = genrpc::textOf(genrpc::argumentsToJson<Message>(args...));
    if (text.size() > NotificationLog::longestArguments) return {{}, text.size()};
    return {std::move(text), 0};
}

} // namespace

#define CONTROL_KEEP(service, direction, Name, method, id, ...)                                           \
    int NotificationLog::method(frame::MsgIds&,                                                           \
                                const frame::TransportInfo& GENRPC_EACH(GENRPC_PARAMETER, __VA_ARGS__)) { \
        keep(#Name, textOrLength<tvservice::messages::Name>(GENRPC_NAMES(__VA_ARGS__)));                  \
        return 0;                                                                                         \
    }
TVSERVICE_NOTIFICATIONS(CONTROL_KEEP)
#undef CONTROL_KEEP

void NotificationLog::keep(const char* message, TextOrLength arguments) {
    Notification notification{0, lrt::RunLogAgentImpl::getInstance().getLogCurrentUTCTime(), message,
                              std::move(arguments.text), arguments.omittedBytes};
    const std::lock_guard lock(mutex_);
    notification.number = ++lastNumber_;
    bytes_ += notification.arguments.size();
    kept_.push_back(std::move(notification));
    while (kept_.size() > mostKept || bytes_ > mostBytes) {
        bytes_ -= kept_.front().arguments.size();
        kept_.pop_front();
        ++dropped_;
    }
}

TableCount NotificationLog::table() const {
    const std::lock_guard lock(mutex_);
    return {"notifications", kept_.size(), mostKept, bytes_, mostBytes, dropped_};
}

std::vector<Notification> NotificationLog::newest(std::size_t count) const {
    const std::lock_guard lock(mutex_);
    // From the newest one back, so that those left out for their length are the oldest.
    std::size_t taken = 0, bytes = 0;
    while (taken < std::min(count, kept_.size())) {
        bytes += kept_[kept_.size() - taken - 1].arguments.size();
        if (bytes > 2 * longestArguments) break;
        ++taken;
    }
    return {kept_.end() - static_cast<std::ptrdiff_t>(taken), kept_.end()};
}

std::vector<Notification> NotificationLog::after(std::uint64_t number, std::size_t count) const {
    const std::lock_guard lock(mutex_);
    if (kept_.empty() || number >= lastNumber_) return {};
    const std::uint64_t first = kept_.front().number;
    const auto begin = kept_.begin() + static_cast<std::ptrdiff_t>(number < first ? 0 : number + 1 - first);
    auto end = begin;
    for (std::size_t bytes = 0; end != kept_.end() && static_cast<std::size_t>(end - begin) < count; ++end) {
        bytes += end->arguments.size();
        if (bytes > 2 * longestArguments) break;
    }
    return {begin, end};
}

} // namespace control
