// What Tab offers in the shell: commands, and arguments from the receiver's present state.
#pragma once

#include "options.h"

#include <string>
#include <vector>

namespace tvctl {

class Completion {
public:
    explicit Completion(const Options& options) : options_(options) {}

    // The words that the last word of a line may become; in alphabetical order. Empty when nothing is known, be it
    // because the receiver does not answer.
    std::vector<std::string> candidates(const std::string& line) const;

private:
    std::vector<std::string> all(std::vector<std::string> before) const;

    const Options& options_;
};

} // namespace tvctl
