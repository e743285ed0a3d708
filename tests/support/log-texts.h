// Debug lines for comparison.
#pragma once

#include <host/log-capture.h>

#include <string>
#include <vector>

namespace support {

// The lines so far, without the line numbers: "file.cpp:function(): text".
inline std::vector<std::string> textsOf(const host::LogCapture& log) {
    std::vector<std::string> texts;
    for (const auto& line : log.lines()) {
        std::string text = line.text;
        const auto first = text.find(':'), second = text.find(':', first + 1);
        texts.push_back(text.erase(first, second - first));
    }
    return texts;
}

} // namespace support
