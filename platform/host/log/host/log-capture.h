// Collecting debug output in the process that makes it: what tests look at instead of stderr.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace host {

// While it lives, the debug lines of all threads are collected here, also those that a limit holds back. Captures may
// overlap: each gets every line, which stays off stderr when any is quiet. The last one made has to end first.
class LogCapture {
public:
    struct Line {
        std::uint32_t levelWord;
        std::string text;       // as the call site formatted it, without the final line feed, nothing escaped
        std::thread::id thread; // that made it
    };

    // Sets the given modules (all when empty) to trace; the destructor gives them their former levels.
    explicit LogCapture(const std::vector<std::uint32_t>& modules = {}, bool quiet = true);
    ~LogCapture();

    // How many lines a capture keeps, as peers can have lines logged. Later ones go to stderr and are counted.
    static constexpr std::size_t mostLines = 100000;

    // The lines so far, oldest first.
    std::vector<Line> lines() const;
    // How many came when there were mostLines already.
    std::size_t lost() const;
    // Waits until a line that contains part has come, also one that came before the call; false when none came in time.
    bool waitFor(const std::string& part, std::chrono::milliseconds timeout) const;

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

private:
    struct State;
    State* state_;
};

} // namespace host
