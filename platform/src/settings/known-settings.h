// The settings that there are: names, variables, what values they can have and which is built in.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace host::config {

enum class Kind { text, endpoint, texts, number, levels, format };

struct Known {
    std::string_view name;     // its place in the file; with a dot at the end, each service has such a setting
    std::string_view variable; // the service's name in capitals follows when there is one per service
    std::string_view help;
    Kind kind = Kind::text;
    bool replaceable = false; // its user goes on with the built-in value when the variable is wrong
    bool trusted = false;     // decides whom to talk to, so that nobody else may write the file
    std::uint64_t least = 0, most = 0, number = 0; // of a number; the last is built in
    std::string_view usual = {};                   // what else is built in; empty: nothing

    bool perService() const { return name.ends_with('.'); }
    std::optional<std::string> builtIn() const;
    // What is wrong with a value that is written like this, or an empty string.
    std::string problemOf(const std::string& text) const;
};

std::span<const Known> knownSettings();
// The setting of this name, or null.
const Known* findKnown(std::string_view name);

// The variable of a setting, and the name of a service's setting by its variable.
std::string variableOf(const Known& known, std::string_view name);
std::string nameOf(const Known& known, std::string_view variable);

} // namespace host::config
