// The configuration of the host platform's processes: each setting's value and its origin.
//
// A value comes from its environment variable, else from a configuration file, else from the built-in default. The file
// is $TVSA_CONFIG if that is set. Otherwise two files are read, and each value of the first one takes precedence: the
// user's, $XDG_CONFIG_HOME/tvservice-adapter/config.toml (else $HOME/.config/tvservice-adapter/config.toml), and
// /etc/tvservice-adapter/config.toml. An empty variable counts as not set.
//
// Each call reads environment and files anew. From any thread. Nothing here logs, because the log itself is configured
// by it.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

// Its text says what is wrong and where: "FILE:LINE: what", "FILE: what" or "VARIABLE: what".
class ConfigurationError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Setting {
    std::string text;
    std::string origin; // for messages: "TVSA_QUEUE_BYTES", "/etc/tvservice-adapter/config.toml:12", "built in"
};

// The value of a setting by its name in the file ("queue.messages", "endpoints.tvservice"), or nothing when it is not
// set and has no default. The value is valid; a list's items are joined with commas. Exception: debug levels from the
// environment are returned unchecked, because the log uses the valid ones among them.
//
// Throws ConfigurationError when a file or this setting's variable is invalid, and std::logic_error for an unknown
// name.
std::optional<Setting> setting(const std::string& name);

// The value of a setting that is a number.
std::uint64_t numberIn(const Setting& number);

// The items of a setting that is a list.
std::vector<std::string> itemsOf(const Setting& list);

struct NamedSetting {
    std::string name;
    std::string variable;
    std::string help;
    std::optional<Setting> value;
};

// All settings with their current values. Of the settings per service (endpoints.NAME, keys.services.NAME), only those
// that are set. Throws like setting.
std::vector<NamedSetting> settings();

struct ConfigurationFile {
    std::string path;
    bool found;
};

// The files that are looked for, in order of precedence.
std::vector<ConfigurationFile> configurationFiles();

// For a program's start: throws ConfigurationError for every error that a user of a setting would fail with. Log, run
// log and flat memory instead use the default, and report it, when their variable is invalid; an invalid file is an
// error here.
void checkConfiguration();

// What is suspicious, though no error: variables of the environment that look like settings and are none.
std::vector<std::string> configurationWarnings();

} // namespace host
