// Debug lines for comparison.
#pragma once

#include <host/log-capture.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace support {

// The lines that this thread has made so far, without the line numbers of those that begin with their place:
// "file.cpp:function(): text". What a worker writes at a time of its own is not among them.
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
