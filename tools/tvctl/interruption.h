// What tvctl writes when it is interrupted with Ctrl-C.
#pragma once

#include <string>

namespace tvctl {

// Ends the process with exitInterrupted on SIGINT, after writing the current note.
void endWhenInterrupted();

// The note on standard error while it lives. One at a time.
class WhenInterrupted {
public:
    explicit WhenInterrupted(std::string note);
    ~WhenInterrupted();
    WhenInterrupted(const WhenInterrupted&) = delete;
    WhenInterrupted& operator=(const WhenInterrupted&) = delete;

private:
    const std::string note_;
};

} // namespace tvctl
