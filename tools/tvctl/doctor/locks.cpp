#include "files.h"

#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/sysmacros.h>

namespace tvctl::doctor {
namespace {

struct Device {
    unsigned major, minor;
};

// That of the file system, by which the system's table of locks knows a file. A file may say that it is on another one
// where a file system has several layers or parts, as overlayfs and btrfs do.
Device deviceOf(const std::string& path, const struct stat& status) {
    const Device own{major(status.st_dev), minor(status.st_dev)};
    struct statx more {};
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_MNT_ID, &more) != 0 ||
        (more.stx_mask & STATX_MNT_ID) == 0)
        return own;
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream words(line);
        unsigned long long mount = 0, above = 0;
        Device device{};
        char colon = 0;
        if (words >> mount >> above >> device.major >> colon >> device.minor && mount == more.stx_mnt_id) return device;
    }
    return own;
}

std::string nameOf(const std::string& process) {
    std::string name;
    std::ifstream file("/proc/" + process + "/comm");
    std::getline(file, name);
    return name.empty() ? "" : " (" + name + ')';
}

} // namespace

// As the system tells everybody. To take the lock for a moment, and see, would keep a process from starting that comes
// in that moment.
std::optional<std::string> holderOfLock(const std::string& path, const struct stat& status) {
    const Device device = deviceOf(path, status);
    char wanted[64];
    std::snprintf(wanted, sizeof wanted, "%02x:%02x:%llu", device.major, device.minor,
                  static_cast<unsigned long long>(status.st_ino));
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, kind, rule, access, process, place;
        if (words >> number >> kind >> rule >> access >> process >> place && kind == "FLOCK" && place == wanted)
            return "process " + process + nameOf(process);
    }
    return std::nullopt;
}

} // namespace tvctl::doctor
