#include "host-log.h"

#include <cctype>
#include <nlohmann/json.hpp>

namespace killed {

void HostLog::read() {
    std::ifstream input(file_);
    input.seekg(read_);
    for (std::string text; std::getline(input, text) && !input.eof();) {
        read_ += static_cast<std::streamoff>(text.size()) + 1;
        if (text.find("resource-manager") == std::string::npos) continue;
        const auto line = nlohmann::json::parse(text, nullptr, false);
        if (!line.is_object()) continue;
        if (const auto time = receiver::timeOf(line.value("time", "")))
            lines_.push_back({*time, line.value("module", ""), line.value("level", ""), line.value("text", "")});
    }
}

void HostLog::begin() {
    read();
    lines_.clear();
}

const receiver::LogLine* HostLog::newest(const std::string& words) {
    read();
    for (auto line = lines_.rbegin(); line != lines_.rend(); ++line)
        if (line->text.find(words) != std::string::npos) return &*line;
    return nullptr;
}

const receiver::LogLine* HostLog::about(const std::string& words, const std::string& reqId) {
    read();
    const std::string whole = words + reqId;
    for (auto line = lines_.rbegin(); line != lines_.rend(); ++line)
        if (const auto at = line->text.find(whole); at != std::string::npos) {
            const auto end = at + whole.size();
            if (end == line->text.size() || std::isdigit(static_cast<unsigned char>(line->text[end])) == 0)
                return &*line;
        }
    return nullptr;
}

} // namespace killed
