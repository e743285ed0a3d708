// What the processes of the host platform are configured with: each setting's value and where it came from.
//
// A value comes from its environment variable, else from a configuration file, else it is the built-in one. The file is
// $TVSA_CONFIG when that is set; otherwise the user's, $XDG_CONFIG_HOME/tvservice-adapter/config.toml (else
// $HOME/.config/tvservice-adapter/config.toml), goes before /etc/tvservice-adapter/config.toml value by value. An empty
// variable is as one that is not set.
//
// Environment and files are read anew by each call. Any thread may call; nothing here writes to the log, so that the
// log can be configured, too.
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

// The value of a setting by its place in the file ("queue.messages", "endpoints.tvservice"), or nothing when nobody
// gave one and none is built in. It is one that the setting can have; a list's items are joined with commas. Debug
// levels of the environment alone come as they are, as the log uses those that it understands.
//
// Throws ConfigurationError when a file or this setting's variable is wrong, and std::logic_error for a name that no
// setting has.
std::optional<Setting> setting(const std::string& name);

// What a setting that is a number says.
std::uint64_t numberIn(const Setting& number);

// The items of a setting that is a list.
std::vector<std::string> itemsOf(const Setting& list);

struct NamedSetting {
    std::string name;
    std::string variable;
    std::string help;
    std::optional<Setting> value;
};

// All settings with what they are now, those per service (endpoints.NAME, keys.services.NAME) as far as somebody gave
// them. Throws as setting does.
std::vector<NamedSetting> settings();

struct ConfigurationFile {
    std::string path;
    bool found;
};

// The files that are looked for, the one that goes before the others first.
std::vector<ConfigurationFile> configurationFiles();

// For a program's start: throws ConfigurationError for what any user of the settings would fail with. Log, run log and
// flat memory go on with the built-in value when their variable is wrong, and say so; a wrong file is refused here.
void checkConfiguration();

} // namespace host
