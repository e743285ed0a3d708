// Captures debug output within the process, for tests.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace host {

// Collects the debug lines of all threads during its lifetime, including those suppressed by a rate limit. Captures may
// overlap: each gets every line, and no line goes to stderr while any of them is quiet. The last one created must be
// destroyed first.
class LogCapture {
public:
    struct Line {
        std::uint32_t levelWord;
        std::string text;       // as the call site formatted it, without the final line feed, nothing escaped
        std::thread::id thread; // that logged it
    };

    // Sets the given modules (all when empty) to trace; the destructor restores their former levels.
    explicit LogCapture(const std::vector<std::uint32_t>& modules = {}, bool quiet = true);
    ~LogCapture();

    // A capture keeps this many lines, because peers can cause any number. Later ones go to stderr and are counted.
    static constexpr std::size_t mostLines = 100000;

    // The lines so far, oldest first.
    std::vector<Line> lines() const;
    // The number of lines that came after the first mostLines.
    std::size_t lost() const;
    // Waits for a line that contains part, which may have come before the call; false on timeout.
    bool waitFor(const std::string& part, std::chrono::milliseconds timeout) const;

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

private:
    struct State;
    State* state_;
};

} // namespace host
