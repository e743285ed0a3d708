#include "screen.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <unistd.h>

namespace demo {
namespace {

constexpr const char* bold = "1";
constexpr const char* green = "32";
constexpr const char* grey = "90";
constexpr int labelWidth = 10, eventWidth = 11;

} // namespace

std::string inMilliseconds(std::chrono::microseconds time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f ms", static_cast<double>(time.count()) / 1000);
    return text;
}

Screen::Screen() {
    const char* unwanted = std::getenv("NO_COLOR");
    colours_ = isatty(STDOUT_FILENO) == 1 && (unwanted == nullptr || *unwanted == '\0');
}

std::string Screen::coloured(const char* code, const std::string& text) const {
    return colours_ ? std::string("\x1b[") + code + 'm' + text + "\x1b[0m" : text;
}

void Screen::title(const std::string& text) const { std::cout << '\n' << coloured(bold, text) << std::endl; }

void Screen::line(const std::string& label, const std::string& text) const {
    std::cout << "  " << std::left << std::setw(labelWidth) << label << text << std::endl;
}

void Screen::event(std::chrono::microseconds sinceAsked, const std::string& text) const {
    std::cout << "  " << std::right << std::setw(eventWidth) << inMilliseconds(sinceAsked) << "  "
              << coloured(grey, text) << std::endl;
}

void Screen::good(const std::string& text) const { line("", coloured(green, text)); }

void Screen::table(const std::vector<Row>& rows) const {
    std::size_t step = 0, asked = 0, result = 0;
    for (const Row& row : rows) {
        step = std::max(step, row.step.size());
        asked = std::max(asked, row.asked.size());
        result = std::max(result, row.result.size());
    }
    const auto padded = [](const std::string& text, std::size_t width) {
        return text + std::string(width - text.size() + 2, ' ');
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Row& row = rows[i];
        const std::string text =
            padded(row.step, step) + padded(row.asked, asked) + padded(row.result, result) + row.time;
        std::cout << "  " << (i == 0 ? coloured(bold, text) : text) << '\n';
    }
    std::cout << std::flush;
}

} // namespace demo
