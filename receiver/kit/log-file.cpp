#include "log-file.h"

#include <ctime>
#include <deque>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string_view>

namespace receiver {

std::optional<Time> timeOf(const std::string& text) {
    std::tm fields{};
    const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S.", &fields);
    if (rest == nullptr) return std::nullopt;
    int microseconds = 0;
    for (int unit = 100000; *rest >= '0' && *rest <= '9'; ++rest, unit /= 10) microseconds += unit * (*rest - '0');
    if (std::string_view(rest) != "Z") return std::nullopt;
    return Time(std::chrono::seconds(timegm(&fields)) + std::chrono::microseconds(microseconds));
}

std::vector<LogLine> readLog(const std::filesystem::path& file) {
    std::vector<LogLine> result;
    std::ifstream input(file);
    // A line without its line feed is still being written.
    for (std::string text; std::getline(input, text) && !input.eof();) {
        const auto line = nlohmann::json::parse(text, nullptr, false);
        if (!line.is_object()) continue;
        const auto time = timeOf(line.value("time", ""));
        if (time) result.push_back({*time, line.value("module", ""), line.value("level", ""), line.value("text", "")});
    }
    return result;
}

std::string tailOf(const std::filesystem::path& file, std::size_t lines) {
    std::deque<std::string> last;
    std::ifstream input(file);
    for (std::string text; std::getline(input, text);) {
        last.push_back(std::move(text));
        if (last.size() > lines) last.pop_front();
    }
    std::string result;
    for (const std::string& text : last) result += text + '\n';
    return result;
}

} // namespace receiver
