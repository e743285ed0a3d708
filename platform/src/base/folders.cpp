#include <host/folders.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace host {
namespace {

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

[[noreturn]] void refuse(const std::string& folder, const std::string& why) {
    throw std::runtime_error("folder " + folder + ": " + why);
}

// Creates the folder with mode 0700 if it is missing and checks that it belongs to this user only.
std::string privateFolder(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(folder).parent_path(), error);
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) refuse(folder, std::system_category().message(errno));
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0) refuse(folder, std::system_category().message(errno));
    if (!S_ISDIR(status.st_mode)) refuse(folder, "not a folder");
    if (status.st_uid != geteuid()) refuse(folder, "belongs to another user");
    if ((status.st_mode & 077) != 0) refuse(folder, "open to other users (expected: mode 0700)");
    return folder;
}

} // namespace

std::string runtimeDirectoryPath() {
    if (auto folder = variable("RUNTIME_DIRECTORY"); !folder.empty()) return folder;
    if (auto folder = variable("XDG_RUNTIME_DIR"); !folder.empty()) return folder + "/tvservice-adapter";
    return "/tmp/tvservice-adapter-" + std::to_string(geteuid());
}

std::string runtimeDirectory() { return privateFolder(runtimeDirectoryPath()); }

std::string stateDirectoryPath() {
    if (auto folder = variable("STATE_DIRECTORY"); !folder.empty()) return folder;
    if (auto folder = variable("XDG_STATE_HOME"); !folder.empty()) return folder + "/tvservice-adapter";
    if (auto home = variable("HOME"); !home.empty()) return home + "/.local/state/tvservice-adapter";
    throw std::runtime_error("no state folder: none of STATE_DIRECTORY, XDG_STATE_HOME and HOME is set");
}

std::string stateDirectory() { return privateFolder(stateDirectoryPath()); }

} // namespace host
