#include "completion.h"

#include "doctor/checks.h"
#include "message-names.h"
#include "verbs.h"

#include <host/configuration.h>
#include <host/environment.h>
#include <host/shell-client.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tvctl {
namespace {

using nlohmann::json;

// Tab must not block the line for long.
constexpr std::chrono::milliseconds longestWait{500};

json ask(const std::string& target, const std::string& command) {
    try {
        host::ShellClient client;
        client.connect(host::shellEndpointOf(target));
        const auto reply = client.run(command, true, longestWait);
        return reply.status < 0 ? json::array() : json::parse(reply.output);
    } catch (const std::exception&) { // completion is optional: the command itself reports the problem
        return json::array();
    }
}

// A member of each object of a list.
std::vector<std::string> membersOf(const json& list, const char* name) {
    std::vector<std::string> values;
    if (list.is_array())
        for (const auto& object : list)
            if (object.is_object() && object.contains(name) && object[name].is_string())
                values.push_back(object[name].get<std::string>());
    return values;
}

std::vector<std::string> keysOf(const json& object) {
    std::vector<std::string> keys;
    if (object.is_object())
        for (const auto& [key, value] : object.items()) keys.push_back(key);
    return keys;
}

std::vector<std::string> settingNames() {
    std::vector<std::string> names;
    try {
        for (const auto& setting : host::settings()) names.push_back(setting.name);
    } catch (const host::ConfigurationError&) { // which the command reports
    }
    return names;
}

// Those that have a shell.
std::vector<std::string> processNames() {
    std::vector<std::string> names;
    for (const auto& shell : doctor::shellsIn(host::runtimeDirectoryPath()))
        names.push_back(std::filesystem::path(shell).stem());
    return names;
}

// The name of an argument in a command's help, such as "TERMINAL", without brackets and dots.
std::string argumentOf(const json& commands, const std::string& command, std::size_t index) {
    for (const auto& known : commands) {
        if (!known.is_object() || known.value("command", "") != command) continue;
        std::istringstream names(known.value("arguments", ""));
        std::string name;
        for (std::size_t i = 0; i <= index; ++i)
            if (!(names >> name)) return "";
        name.erase(std::min(name.find_first_of(",."), name.size()));
        std::erase_if(name, [](char c) { return c == '[' || c == ']'; });
        return name;
    }
    return "";
}

} // namespace

std::vector<std::string> Completion::all(std::vector<std::string> before) const {
    std::string target = options_.target;
    if (!before.empty() && before.back() == "--target") return processNames();
    if (before.size() >= 2 && before[0] == "--target") { // the line's own
        target = before[1];
        before.erase(before.begin(), before.begin() + 2);
    }
    if (before.empty()) {
        auto words = membersOf(ask(target, "help"), "command");
        for (const Verb& verb : verbs()) words.push_back(verb.name);
        words.push_back("exit");
        return words;
    }
    const auto& command = before[0];
    if (command == "watch") return notificationNames();
    if (command == "config") return settingNames();
    const auto argument = argumentOf(ask(target, "help"), command, before.size() - 1);
    if (argument == "TERMINAL") return membersOf(ask(target, "terminals"), "terminal");
    if (argument == "URI") return membersOf(ask("tvserviced", "channels"), "uri");
    if (command == "fault" && before.size() == 1) return keysOf(ask(target, "faults"));
    if (argument == "ID") return membersOf(ask(target, "requests 100"), "request");
    if (argument == "NAME" && command == "emit") return notificationNames();
    return {};
}

std::vector<std::string> Completion::candidates(const std::string& line) const {
    const std::size_t begin = line.find_last_of(" \t") + 1;
    std::vector<std::string> before;
    try {
        before = host::wordsOf(line.substr(0, begin), line.size());
    } catch (const std::exception&) { // inside quotes
        return {};
    }
    const std::string typed = line.substr(begin);
    auto words = all(before);
    std::erase_if(words, [&](const std::string& word) { return !word.starts_with(typed); });
    std::sort(words.begin(), words.end());
    words.erase(std::unique(words.begin(), words.end()), words.end());
    return words;
}

} // namespace tvctl
