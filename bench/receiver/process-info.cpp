#include "process-info.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace bench {
namespace {

std::filesystem::path folderOf(pid_t process) { return std::filesystem::path("/proc") / std::to_string(process); }

std::ifstream opened(const std::filesystem::path& file) {
    std::ifstream stream(file);
    if (!stream) throw std::runtime_error("cannot read " + file.string());
    return stream;
}

// The number after "key:" in a status file.
std::uint64_t statusOf(const std::filesystem::path& file, const std::string& key) {
    std::ifstream stream = opened(file);
    for (std::string line; std::getline(stream, line);)
        if (line.starts_with(key + ':')) return std::stoull(line.substr(key.size() + 1));
    throw std::runtime_error(file.string() + " has no " + key);
}

} // namespace

double residentKilobytes(pid_t process) { return static_cast<double>(statusOf(folderOf(process) / "status", "VmRSS")); }

std::uint64_t contextSwitches(pid_t process) {
    std::uint64_t sum = 0;
    for (const auto& thread : std::filesystem::directory_iterator(folderOf(process) / "task"))
        for (const char* kind : {"voluntary_ctxt_switches", "nonvoluntary_ctxt_switches"})
            sum += statusOf(thread.path() / "status", kind);
    return sum;
}

double processorMilliseconds(pid_t process) {
    std::ifstream stream = opened(folderOf(process) / "stat");
    std::string line;
    std::getline(stream, line);
    std::istringstream rest(line.substr(line.rfind(')') + 1)); // the name before it may have spaces
    std::string state;
    std::uint64_t before = 0, user = 0, kernel = 0;
    rest >> state;
    for (int field = 4; field < 14; ++field) rest >> before;
    rest >> user >> kernel;
    return 1000.0 * static_cast<double>(user + kernel) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

std::vector<std::string> librariesOutside(const std::filesystem::path& folder, pid_t process) {
    std::vector<std::string> libraries;
    std::ifstream maps = opened(folderOf(process) / "maps");
    for (std::string line; std::getline(maps, line);) {
        const auto at = line.find('/');
        if (at == std::string::npos) continue;
        const std::string path = line.substr(at), name = std::filesystem::path(path).filename();
        if (name.find(".so") == std::string::npos || name.starts_with("ld-linux") || path.starts_with(folder.string()))
            continue;
        if (std::find(libraries.begin(), libraries.end(), path) == libraries.end()) libraries.push_back(path);
    }
    return libraries;
}

} // namespace bench
