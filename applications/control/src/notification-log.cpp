#include "notification-log.h"

#include <genrpc/json.h>
#include <lrt/run-log-agent.h>
#include <tvservice/messages.h>

#include <algorithm>
#include <utility>

namespace control {

#define CONTROL_KEEP(service, direction, Name, method, id, ...)                                                     \
    int NotificationLog::method(frame::MsgIds&,                                                                     \
                                const frame::TransportInfo& GENRPC_EACH(GENRPC_PARAMETER, __VA_ARGS__)) {           \
        keep(#Name, genrpc::textOf(genrpc::argumentsToJson<tvservice::messages::Name>(GENRPC_NAMES(__VA_ARGS__)))); \
        return 0;                                                                                                   \
    }
TVSERVICE_NOTIFICATIONS(CONTROL_KEEP)
#undef CONTROL_KEEP

void NotificationLog::keep(const char* message, std::string arguments) {
    Notification notification{0, lrt::RunLogAgentImpl::getInstance().getLogCurrentUTCTime(), message, {}, 0};
    if (arguments.size() <= longestArguments)
        notification.arguments = std::move(arguments);
    else
        notification.omittedBytes = arguments.size();

    const std::lock_guard lock(mutex_);
    notification.number = ++lastNumber_;
    bytes_ += notification.arguments.size();
    kept_.push_back(std::move(notification));
    while (kept_.size() > mostKept || bytes_ > mostBytes) {
        bytes_ -= kept_.front().arguments.size();
        kept_.pop_front();
    }
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
