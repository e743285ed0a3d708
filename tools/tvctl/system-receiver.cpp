#include "system-receiver.h"

#include <cerrno>
#include <cstdlib>
#include <grp.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tvctl {

void useSystemReceiver() {
    const std::string runtimeFolder = "/run/" TVCTL_SYSTEM_USER, stateFolder = "/var/lib/" TVCTL_SYSTEM_USER;
    struct stat folder {};
    if (stat(runtimeFolder.c_str(), &folder) != 0)
        throw std::runtime_error("the receiver of this machine does not run: " + runtimeFolder + ": " +
                                 std::generic_category().message(errno) +
                                 "; start it with: systemctl start tv-receiver.target");
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
