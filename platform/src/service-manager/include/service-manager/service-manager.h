// What a service manager that started this process wants to know of it: that it serves, that it ends, that it is alive.
//
// systemd's protocol: NOTIFY_SOCKET names a Unix datagram socket, WATCHDOG_USEC the longest time between signs of life.
// Without a service manager, everything here does nothing.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace host {

class ServiceManager {
public:
    // Reads the environment. Removes the variables from it, so that child processes do not speak for this one: call it
    // while the process has one thread.
    static ServiceManager fromEnvironment();

    // The first and the last thing that a process tells. ready waits for room in the service manager's socket; what the
    // others say is lost without room. A name that is no socket is ignored.
    void ready(const std::string& status) const;
    void stopping() const noexcept;
    // One line that people see beside the process's state.
    void status(const std::string& text) const;

    // The service manager kills the process when this much time passes without a sign of life; nullopt when it does
    // not.
    std::optional<std::chrono::microseconds> longestSilence() const { return longestSilence_; }
    void alive() const noexcept;

private:
    void tell(std::string_view lines, int flags) const noexcept;

    std::string socket_; // empty without a service manager
    std::optional<std::chrono::microseconds> longestSilence_;
};

} // namespace host
