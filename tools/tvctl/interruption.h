// What tvctl does when it is interrupted with Ctrl-C.
#pragma once

#include <chrono>
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

// While it lives, SIGINT and SIGTERM do not end the process; it is to end what it does. One at a time.
class EndingOnSignals {
public:
    EndingOnSignals();
    ~EndingOnSignals();
    EndingOnSignals(const EndingOnSignals&) = delete;
    EndingOnSignals& operator=(const EndingOnSignals&) = delete;

    // Waits for at most that time. Returns false as soon as a signal has arrived.
    bool pause(std::chrono::milliseconds time) const;

private:
    void (*interrupt_)(int);
    void (*terminate_)(int);
};

} // namespace tvctl
