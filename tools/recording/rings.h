// The rings of a receiver's processes as sources of events, also those of processes that start later.
#pragma once

#include "event.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace recording {

class Rings {
public:
    enum class Begin { oldest, newest }; // of the rings that are there at first; later ones are read from the oldest

    // attempts: to read a ring, one per call of appeared, before it is a problem: its process may be just making it.
    Rings(std::string folder, Begin begin, unsigned attempts = 1)
        : folder_(std::move(folder)), begin_(begin), attempts_(attempts) {}

    // The rings that appeared since the last call.
    std::vector<std::unique_ptr<EventSource>> appeared();
    // What was wrong with rings that could not be read, since the last call.
    std::vector<std::string> takeProblems() { return std::exchange(problems_, {}); }

private:
    // The file, whatever its name is now. Its number is not used again while it is in the folder or read.
    using File = std::pair<std::uint64_t, std::uint64_t>;
    struct Known {
        std::shared_ptr<bool> isListed = std::make_shared<bool>(true); // whether it is still in the folder
        unsigned attempts = 0;
        bool isDone = false; // read, or given up
    };

    std::unique_ptr<EventSource> open(const std::string& path, Known& ring);

    std::string folder_;
    Begin begin_;
    unsigned attempts_;
    std::map<File, Known> known_;
    std::vector<std::string> problems_;
};

} // namespace recording
