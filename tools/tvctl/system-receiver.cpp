#include "system-receiver.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <grp.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace tvctl {
namespace {

constexpr const char* settingsFile = "/etc/default/" TVCTL_SYSTEM_USER;
constexpr std::string_view beginning = "TVSA_";

// Takes the settings from the file that the units read, and none from this process's environment.
void takeSettings() {
    std::vector<std::string> own;
    for (char** entry = environ; *entry != nullptr; ++entry)
        if (const std::string_view text(*entry); text.starts_with(beginning))
            own.emplace_back(text.substr(0, text.find('=')));
    for (const auto& name : own) unsetenv(name.c_str());
    std::ifstream file(settingsFile);
    for (std::string line; std::getline(file, line);) {
        const auto equals = line.find('=');
        if (!line.starts_with(beginning) || equals == std::string::npos) continue;
        std::string value = line.substr(equals + 1);
        if (value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0])
            value = value.substr(1, value.size() - 2);
        setenv(line.substr(0, equals).c_str(), value.c_str(), 1);
    }
}

} // namespace

void useSystemReceiver() {
    const std::string runtimeFolder = "/run/" TVCTL_SYSTEM_USER, stateFolder = "/var/lib/" TVCTL_SYSTEM_USER;
    struct stat folder {};
    if (stat(runtimeFolder.c_str(), &folder) != 0)
        throw std::runtime_error("the receiver of this machine does not run: " + runtimeFolder + ": " +
                                 std::generic_category().message(errno) +
                                 "; start it with: systemctl start tv-receiver.target");
    takeSettings();
    if (geteuid() == 0 && folder.st_uid != 0) {
        if (setgroups(0, nullptr) != 0 || setgid(folder.st_gid) != 0 || setuid(folder.st_uid) != 0)
            throw std::system_error(errno, std::generic_category(), "cannot become the user of " + runtimeFolder);
    } else if (geteuid() != folder.st_uid) {
        throw std::system_error(EACCES, std::generic_category(),
                                "only root and the user " TVCTL_SYSTEM_USER
                                " may use the receiver of this machine; run it with sudo");
    }
    setenv("RUNTIME_DIRECTORY", runtimeFolder.c_str(), 1);
    setenv("STATE_DIRECTORY", stateFolder.c_str(), 1);
    setenv("HOME", stateFolder.c_str(), 1); // as in its processes, which may have a configuration there
    unsetenv("XDG_CONFIG_HOME");
}

} // namespace tvctl
