// All settings: names, variables, valid values and defaults.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace host::config {

enum class Kind { text, choice, endpoint, texts, number, levels };

struct Known {
    std::string_view name;     // as in the file; if it ends with a dot, each service has such a setting
    std::string_view variable; // of a setting per service, the service's name in capitals follows
    std::string_view help;
    Kind kind = Kind::text;
    bool replaceable = false; // its user falls back to the built-in value when the variable is invalid
    bool trusted = false;     // decides which peers are trusted, so other users must not be able to write the file
    std::uint64_t least = 0, most = 0, number = 0; // of a number; the last is the default
    std::string_view usual = {};                   // the default of the other kinds; empty: none
    std::span<const std::string_view> choices = {};

    bool perService() const { return name.ends_with('.'); }
    std::optional<std::string> builtIn() const;
    // Why a value's text is invalid, or an empty string.
    std::string problemOf(const std::string& text) const;
};

std::span<const Known> knownSettings();
// The setting of this name, or null.
const Known* findKnown(std::string_view name);

// The variable of a setting, and the name of a service's setting by its variable.
std::string variableOf(const Known& known, std::string_view name);
std::string nameOf(const Known& known, std::string_view variable);

} // namespace host::config
