// The golden messages as bytes.
#pragma once

#include <string>
#include <vector>

namespace checks {

struct Golden {
    std::string name; // "typical", ...
    std::string little, big;
};

// Those of one kind of message, values first. Throws when there is no such file, or it is broken.
std::vector<Golden> goldenOf(const std::string& folder, const std::string& service, const std::string& message);

} // namespace checks
