#include "checks.h"
#include "files.h"

#include <host/configuration.h>

#include <algorithm>
#include <string_view>
#include <unistd.h>

namespace tvctl::doctor {
namespace {

void checkFile(Diagnosis& diagnosis, const host::ConfigurationFile& file) {
    if (!file.found) return diagnosis.ok(file.path, "does not exist");
    struct stat status {};
    if (::stat(file.path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    const bool trusted = status.st_uid == geteuid() || status.st_uid == 0;
    const bool closed = (status.st_mode & 022) == 0;
    if (!trusted)
        diagnosis.wrong(
            file.path,
            "belongs to user " + std::to_string(status.st_uid) + ", who can control the processes of this user",
            "change its owner to this user or root");
    if (!closed)
        diagnosis.warn(file.path, "other users may write to it: mode " + modeText(status.st_mode),
                       "chmod go-w " + file.path);
    if (trusted && closed) diagnosis.ok(file.path, "read");
}

// Warns of a setting for an unknown service: mistyped, or left from another version.
void checkService(Diagnosis& diagnosis, const host::NamedSetting& setting) {
    for (const std::string_view prefix : {"endpoints.", "keys.services."}) {
        if (!setting.name.starts_with(prefix)) continue;
        const auto known = services();
        const std::string name = setting.name.substr(prefix.size());
        if (std::any_of(known.begin(), known.end(), [&](const Service& service) { return service.name == name; }))
            continue;
        diagnosis.warn(setting.name, setting.value->origin + ": there is no service " + name, "remove or correct it");
    }
}

void checkVariables(Diagnosis& diagnosis, const std::vector<host::NamedSetting>& settings) {
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        const auto name = text.substr(0, text.find('='));
        if (!name.starts_with("TVSA_") || name == "TVSA_CONFIG" || name.size() + 1 >= text.size()) continue;
        if (std::none_of(settings.begin(), settings.end(),
                         [&](const auto& setting) { return setting.variable == name; }))
            diagnosis.warn(std::string(name), "no setting has this variable",
                           "correct its name; tvctl config --json lists the names");
    }
}

} // namespace

Diagnosis checkFiles() {
    Diagnosis diagnosis;
    try {
        for (const auto& file : host::configurationFiles()) checkFile(diagnosis, file);
        host::checkConfiguration();
    } catch (const host::ConfigurationError& error) {
        diagnosis.wrong("configuration", error.what(), "correct it; no process starts with it");
    }
    return diagnosis;
}

Diagnosis checkValues() {
    Diagnosis diagnosis;
    try {
        const auto settings = host::settings();
        checkVariables(diagnosis, settings);
        for (const auto& setting : settings) checkService(diagnosis, setting);
    } catch (const host::ConfigurationError& error) {
        // A wrong variable that does not keep processes from starting.
        diagnosis.warn("configuration", error.what() + std::string("; the built-in default is used"), "correct it");
    }
    return diagnosis;
}

} // namespace tvctl::doctor
