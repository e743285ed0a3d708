#include "screen.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace demo {
namespace {

constexpr const char* bold = "1";
constexpr const char* green = "32";
constexpr const char* grey = "90";
constexpr int margin = 2, labelWidth = 10, eventWidth = 11, requestWidth = 36, resultWidth = 28, timeWidth = 10;
constexpr unsigned short narrowest = 40; // columns; narrower terminals get no line breaks

} // namespace

std::string inMilliseconds(std::chrono::microseconds time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f ms", static_cast<double>(time.count()) / 1000);
    return text;
}

Screen::Screen(bool withDetails) : withDetails_(withDetails) {
    const char* noColour = std::getenv("NO_COLOR");
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    colours_ = terminal && (noColour == nullptr || *noColour == '\0');
    winsize size{};
    const bool known = terminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= narrowest;
    width_ = known ? size.ws_col : std::string::npos;
}

std::string Screen::coloured(const char* code, const std::string& text) const {
    return colours_ ? std::string("\x1b[") + code + 'm' + text + "\x1b[0m" : text;
}

std::string Screen::wrapped(const std::string& text, std::size_t indent) const {
    std::string result, rest = text;
    while (rest.size() > width_ - indent) {
        // At the last comma that fits, else at the last blank, else anywhere.
        const std::size_t room = width_ - indent;
        const auto comma = rest.rfind(", ", room - 1), blank = rest.rfind(' ', room);
        std::size_t end = room;
        if (comma != std::string::npos && comma > 0)
            end = comma + 1;
        else if (blank != std::string::npos && blank > 0)
            end = blank;
        result += rest.substr(0, end) + '\n' + std::string(indent, ' ');
        rest.erase(0, rest[end] == ' ' ? end + 1 : end);
    }
    return result + rest;
}

void Screen::title(const std::string& text) const { std::cout << '\n' << coloured(bold, text) << std::endl; }

void Screen::outcome(const std::string& request, const std::string& result, const std::string& time) const {
    std::cout << "  " << std::left << std::setw(requestWidth) << request << "  " << coloured(bold, result)
              << std::string(result.size() < resultWidth ? resultWidth - result.size() : 0, ' ') << std::right
              << std::setw(timeWidth) << time << std::endl;
}

void Screen::note(const std::string& text) const { std::cout << wrapped(text, 0) << std::endl; }

void Screen::line(const std::string& label, const std::string& text) const {
    if (!withDetails_) return;
    std::cout << "  " << std::left << std::setw(labelWidth) << label << wrapped(text, margin + labelWidth) << std::endl;
}

void Screen::event(std::chrono::microseconds sinceRequest, const std::string& text) const {
    if (!withDetails_) return;
    std::cout << "  " << std::right << std::setw(eventWidth) << inMilliseconds(sinceRequest) << "  "
              << coloured(grey, wrapped(text, margin + eventWidth + margin)) << std::endl;
}

void Screen::line(const std::string& label, const std::string& name, std::size_t nameWidth,
                  const std::string& text) const {
    if (!withDetails_) return;
    const std::size_t column = margin + labelWidth + nameWidth + margin;
    std::cout << "  " << std::left << std::setw(labelWidth) << label << coloured(bold, name)
              << std::string(nameWidth + margin - name.size(), ' ') << wrapped(text, column) << std::endl;
}

void Screen::good(const std::string& text) const {
    std::cout << "  " << coloured(green, wrapped(text, margin)) << std::endl;
}

void Screen::table(const std::string& title, const std::vector<Row>& rows) const {
    if (!withDetails_) return;
    this->title(title);
    std::vector<std::size_t> widths(rows.front().size());
    for (const Row& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    for (const Row& row : rows) {
        std::string text;
        for (std::size_t i = 0; i + 1 < row.size(); ++i)
            text += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        text += row.back();
        std::cout << "  " << (&row == &rows.front() ? coloured(bold, text) : text) << '\n';
    }
    std::cout << std::flush;
}

} // namespace demo
