#include "service-manager/service-manager.h"

#include "base/file-descriptor.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace host {
namespace {

std::string taken(const char* variable) {
    const char* const value = std::getenv(variable);
    std::string text = value ? value : "";
    unsetenv(variable);
    return text;
}

std::optional<std::uint64_t> numberIn(std::string_view text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

} // namespace

ServiceManager ServiceManager::fromEnvironment() {
    ServiceManager manager;
    manager.socket_ = taken("NOTIFY_SOCKET");
    const auto silence = numberIn(taken("WATCHDOG_USEC"));
    const std::string pid = taken("WATCHDOG_PID"); // another process's watchdog, when the variables were inherited
    const bool isOurs = pid.empty() || numberIn(pid) == static_cast<std::uint64_t>(getpid());
    if (!manager.socket_.empty() && silence && *silence > 0 && *silence < INT64_MAX && isOurs)
        manager.longestSilence_ = std::chrono::microseconds(*silence);
    return manager;
}

void ServiceManager::ready(const std::string& status) const {
    tell("READY=1\nSTATUS=" + status, 0); // without this message the process would be killed as one that does not start
}
void ServiceManager::stopping() const noexcept { tell("STOPPING=1\nSTATUS=ending", MSG_DONTWAIT); }
void ServiceManager::status(const std::string& text) const { tell("STATUS=" + text, MSG_DONTWAIT); }
void ServiceManager::alive() const noexcept { tell("WATCHDOG=1", MSG_DONTWAIT); }

void ServiceManager::tell(std::string_view lines, int flags) const noexcept {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_.empty() || socket_.size() >= sizeof address.sun_path) return;
    std::copy(socket_.begin(), socket_.end(), address.sun_path);
    if (socket_.front() == '@') address.sun_path[0] = '\0'; // an abstract name
    const io::FileDescriptor sender{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    if (!sender) return;
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
    (void)sendto(sender.get(), lines.data(), lines.size(), flags | MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&address), length);
}

} // namespace host
