#include "file.h"
#include "known-settings.h"
#include "settings/number.h"

#include <host/printable.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string_view>
#include <unistd.h>

namespace host {
namespace config {
namespace {

constexpr const char* fileVariable = "TVSA_CONFIG";
constexpr const char* nameBelowFolder = "/tvservice-adapter/config.toml";

// The variable's value; empty when it is not set.
std::string variable(const std::string& name) {
    const char* const value = std::getenv(name.c_str());
    return value ? value : "";
}

// In order of precedence.
std::vector<std::string> paths() {
    if (auto only = variable(fileVariable); !only.empty()) return {only};
    std::vector<std::string> result;
    if (auto folder = variable("XDG_CONFIG_HOME"); !folder.empty())
        result.push_back(folder + nameBelowFolder);
    else if (auto home = variable("HOME"); !home.empty())
        result.push_back(home + "/.config" + nameBelowFolder);
    result.push_back(std::string("/etc") + nameBelowFolder);
    return result;
}

struct Files {
    Values values;
    std::vector<ConfigurationFile> files;
};

Files readFiles() {
    Files result;
    const auto all = paths();
    for (auto path = all.rbegin(); path != all.rend(); ++path)
        result.files.insert(result.files.begin(), {*path, addFile(*path, result.values)});
    if (!variable(fileVariable).empty() && !result.files[0].found)
        throw ConfigurationError(result.files[0].path + ": there is no such file (set by " + fileVariable + ")");
    return result;
}

std::optional<Setting> valueOf(const Known& known, const std::string& name, const Values& files) {
    const std::string from = variableOf(known, name);
    if (std::string text = variable(from); !text.empty()) {
        // Debug levels are not checked, because their valid items are used.
        const std::string problem = known.kind == Kind::levels ? "" : known.problemOf(text);
        if (!problem.empty()) throw ConfigurationError(from + ": " + problem);
        return Setting{std::move(text), from};
    }
    if (const auto value = files.find(name); value != files.end()) return value->second;
    if (auto text = known.builtIn()) return Setting{std::move(*text), "built in"};
    return std::nullopt;
}

const Known& knownOf(const std::string& name) {
    if (const Known* const known = findKnown(name)) return *known;
    throw std::logic_error("no setting is called " + quoted(name));
}

// The services' settings of this kind that are set.
std::set<std::string> givenTo(const Known& known, const Values& files) {
    std::set<std::string> names;
    for (const auto& [name, value] : files)
        if (name.starts_with(known.name)) names.insert(name);
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        const auto assigned = text.substr(0, text.find('='));
        if (assigned.starts_with(known.variable) && assigned.size() > known.variable.size() &&
            assigned.size() + 1 < text.size())
            names.insert(nameOf(known, assigned));
    }
    return names;
}

NamedSetting namedSetting(const Known& known, const std::string& name, const Values& files) {
    return {name, variableOf(known, name), std::string(known.help), valueOf(known, name, files)};
}

// Calls use with each setting and its name.
template <typename Use> void forEach(const Values& files, const Use& use) {
    for (const Known& known : knownSettings()) {
        if (!known.perService()) {
            use(known, std::string(known.name));
            continue;
        }
        for (const std::string& name : givenTo(known, files)) use(known, name);
    }
}

} // namespace

std::uint64_t numberOf(const std::string& name) { return numberIn(*setting(name)); }

std::uint64_t numberOf(const std::string& name, std::string& problem) {
    try {
        return numberOf(name);
    } catch (const ConfigurationError& error) {
        const Setting used{std::string(*knownOf(name).builtIn()), {}};
        problem = error.what() + ("; " + used.text + " is used");
        return numberIn(used);
    }
}

} // namespace config

std::optional<Setting> setting(const std::string& name) {
    return config::valueOf(config::knownOf(name), name, config::readFiles().values);
}

std::uint64_t numberIn(const Setting& number) {
    std::uint64_t value = 0;
    std::from_chars(number.text.data(), number.text.data() + number.text.size(), value);
    return value;
}

std::vector<std::string> itemsOf(const Setting& list) {
    std::vector<std::string> items;
    std::istringstream text(list.text);
    for (std::string item; std::getline(text, item, ',');) items.push_back(item);
    return items;
}

std::vector<NamedSetting> settings() {
    const auto read = config::readFiles();
    std::vector<NamedSetting> result;
    config::forEach(read.values, [&](const config::Known& known, const std::string& name) {
        result.push_back(config::namedSetting(known, name, read.values));
    });
    return result;
}

std::vector<ConfigurationFile> configurationFiles() { return config::readFiles().files; }

std::vector<std::string> configurationWarnings() {
    std::vector<std::string> warnings;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        const auto variable = text.substr(0, text.find('='));
        const auto isOf = [&](const config::Known& known) {
            return known.perService() ? variable.starts_with(known.variable) : variable == known.variable;
        };
        if (!variable.starts_with("TVSA_") || variable == config::fileVariable ||
            std::ranges::any_of(config::knownSettings(), isOf))
            continue;
        warnings.push_back("the environment variable " + std::string(variable) +
                           " is not a setting; tvctl config lists all");
    }
    return warnings;
}

void checkConfiguration() {
    const auto read = config::readFiles();
    config::forEach(read.values, [&](const config::Known& known, const std::string& name) {
        if (!known.replaceable) config::valueOf(known, name, read.values);
    });
}

} // namespace host
