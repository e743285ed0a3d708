// Debug lines for comparison.
#pragma once

#include <host/log-capture.h>

#include <string>
#include <thread>
#include <vector>

namespace support {

// The lines that this thread has made so far, without the line numbers of those that begin with their place:
// "file.cpp:function(): text". What a worker writes at a time of its own is not among them.
inline std::vector<std::string> textsOf(const host::LogCapture& log) {
    std::vector<std::string> texts;
    for (const auto& line : log.lines()) {
        if (line.thread != std::this_thread::get_id()) continue;
        std::string text = line.text;
        const auto first = text.find(':'), second = text.find(':', first + 1);
        if (second != std::string::npos) text.erase(first, second - first);
        texts.push_back(text);
    }
    return texts;
}

} // namespace support
