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

// The device of the file system, by which the system's table of locks identifies a file. stat may report another one
// for file systems with layers or parts, such as overlayfs and btrfs.
Device deviceOf(const std::string& path, const struct stat& status) {
    const Device own{major(status.st_dev), minor(status.st_dev)};
    struct statx extended {};
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_MNT_ID, &extended) != 0 ||
        (extended.stx_mask & STATX_MNT_ID) == 0)
        return own;
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream words(line);
        unsigned long long mount = 0, parent = 0;
        Device device{};
        char colon = 0;
        if (words >> mount >> parent >> device.major >> colon >> device.minor && mount == extended.stx_mnt_id)
            return device;
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

// Reads the system's table of locks. Testing the lock by taking it could keep a process from starting at that moment.
std::optional<std::string> holderOfLock(const std::string& path, const struct stat& status) {
    const Device device = deviceOf(path, status);
    char wanted[64];
    std::snprintf(wanted, sizeof wanted, "%02x:%02x:%llu", device.major, device.minor,
                  static_cast<unsigned long long>(status.st_ino));
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, kind, rule, access, process, inode;
        if (words >> number >> kind >> rule >> access >> process >> inode && kind == "FLOCK" && inode == wanted)
            return "process " + process + nameOf(process);
    }
    return std::nullopt;
}

} // namespace tvctl::doctor
