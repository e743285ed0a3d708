#include "system-receiver.h"

#include <cerrno>
#include <cstdlib>
#include <grp.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tvctl {

void useSystemReceiver() {
    const std::string runtimeFolder = "/run/" TVCTL_SYSTEM_USER, stateFolder = "/var/lib/" TVCTL_SYSTEM_USER;
    setenv("RUNTIME_DIRECTORY", runtimeFolder.c_str(), 1);
    setenv("STATE_DIRECTORY", stateFolder.c_str(), 1);
    setenv("HOME", stateFolder.c_str(), 1); // as in its processes, which may have a configuration there
    unsetenv("XDG_CONFIG_HOME");
    struct stat folder {};
    if (geteuid() != 0 || stat(runtimeFolder.c_str(), &folder) != 0) return; // the connection reports what is wrong
    if (setgroups(0, nullptr) != 0 || setgid(folder.st_gid) != 0 || setuid(folder.st_uid) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot become the user of " + runtimeFolder);
}

} // namespace tvctl
