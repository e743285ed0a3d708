#include <tvservice-adapter/service/fault-switches.h>

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace services {

namespace {

constexpr std::uint32_t longestDelay = 60 * 60 * 1000;

constexpr std::pair<std::string_view, bool Faults::*> onOffSwitches[] = {
    {"mute", &Faults::mute},
    {"wrong", &Faults::wrong},
    {"duplicate", &Faults::duplicate},
    {"other-id", &Faults::otherId},
};

std::optional<std::uint32_t> numberUpTo(std::uint32_t most, const std::string& text) {
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end || number > most) return std::nullopt;
    return number;
}

std::string numberWanted(const std::string& name, std::uint32_t most, const std::string& value) {
    return name + " takes a number from 0 to " + std::to_string(most) + ", not \"" + value + '"';
}

} // namespace

const char* FaultSwitches::help() {
    return "delay MS, mute on|off, wrong on|off, duplicate on|off, other-id on|off, exit-after N, clear";
}

std::string FaultSwitches::set(const std::string& name, const std::string& value) {
    const thread_safety::LockGuard lock(mutex_);
    if (name == "clear") {
        if (!value.empty()) return "clear takes no value";
        faults_ = {};
        return {};
    }
    if (name == "delay") {
        const auto number = numberUpTo(longestDelay, value);
        if (!number) return numberWanted(name, longestDelay, value);
        faults_.delay = std::chrono::milliseconds(*number);
        return {};
    }
    if (name == "exit-after") {
        const auto number = numberUpTo(UINT32_MAX, value);
        if (!number) return numberWanted(name, UINT32_MAX, value);
        faults_.exitAfter = *number;
        return {};
    }
    for (const auto& [known, member] : onOffSwitches) {
        if (name != known) continue;
        if (value != "on" && value != "off") return name + " takes on or off, not \"" + value + '"';
        faults_.*member = value == "on";
        return {};
    }
    return "no fault \"" + name + "\"; there are: " + help();
}

std::string FaultSwitches::set(const std::string& assignment) {
    const std::size_t equals = assignment.find('=');
    if (equals == std::string::npos) return set(assignment, "");
    return set(assignment.substr(0, equals), assignment.substr(equals + 1));
}

Faults FaultSwitches::get() const {
    const thread_safety::LockGuard lock(mutex_);
    return faults_;
}

bool FaultSwitches::countAnswer() {
    const thread_safety::LockGuard lock(mutex_);
    return faults_.exitAfter != 0 && --faults_.exitAfter == 0;
}

} // namespace services
