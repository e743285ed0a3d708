#include "process-state.h"

#include <fstream>
#include <iterator>

namespace tvctl {
namespace {

// Stopped by SIGSTOP, a terminal or a debugger; false when that cannot be told.
bool isStopped(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const auto name = text.rfind(") "); // the name of its program may contain anything
    if (name == std::string::npos || name + 2 >= text.size()) return false;
    const char state = text[name + 2];
    return state == 'T' || state == 't';
}

} // namespace

Silence silenceOf(pid_t process) {
    if (process == 0) return {"its process does not answer", "see what it is doing, and restart it"};
    const std::string number = std::to_string(process);
    if (isStopped(process)) return {"process " + number + " is stopped", "continue it with: kill -CONT " + number};
    return {"process " + number + " does not answer", "see what it is doing, and restart it"};
}

} // namespace tvctl
