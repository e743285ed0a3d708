// Log lines as text, for comparisons.
#pragma once

#include <host/log-capture.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace support {

// The lines that this thread has logged so far. A line that begins with its source location is given without the line
// number: "file.cpp:function(): text". Lines of worker threads, which come at any time, are left out.
inline std::vector<host::LogCapture::Line> ownLinesOf(const host::LogCapture& log) {
    auto lines = log.lines();
    std::erase_if(lines, [](const auto& line) { return line.thread != std::this_thread::get_id(); });
    for (auto& line : lines) {
        const auto first = line.text.find(':'), second = line.text.find(':', first + 1);
        if (second != std::string::npos) line.text.erase(first, second - first);
    }
    return lines;
}

inline std::vector<std::string> textsOf(const host::LogCapture& log) {
    std::vector<std::string> texts;
    for (auto& line : ownLinesOf(log)) texts.push_back(std::move(line.text));
    return texts;
}

} // namespace support
