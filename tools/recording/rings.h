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

    Rings(std::string folder, Begin begin) : folder_(std::move(folder)), begin_(begin) {}

    // The rings that appeared since the last call. Throws RecordingError when the folder cannot be read.
    std::vector<std::unique_ptr<EventSource>> appeared();
    // What was wrong with rings that could not be read, since the last call.
    std::vector<std::string> takeProblems() { return std::exchange(problems_, {}); }

private:
    // The file, whatever its name is now. Its number is not used again while it is in the folder or read.
    using File = std::pair<std::uint64_t, std::uint64_t>;

    std::string folder_;
    Begin begin_;
    std::map<File, std::shared_ptr<bool>> known_; // whether the file is still in the folder
    std::vector<std::string> problems_;
};

} // namespace recording
