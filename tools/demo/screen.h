// What the demonstration prints, on stdout; with colours only where they can be seen and are wanted.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace demo {

struct Row {
    std::string step, asked, result, time;
};

std::string inMilliseconds(std::chrono::microseconds time); // "0.31 ms"

class Screen {
public:
    Screen();

    void title(const std::string& text) const;
    void line(const std::string& label, const std::string& text) const;
    void event(std::chrono::microseconds sinceAsked, const std::string& text) const;
    void good(const std::string& text) const;
    void table(const std::vector<Row>& rows) const; // the first one holds the headings

private:
    std::string coloured(const char* code, const std::string& text) const;

    bool colours_;
};

} // namespace demo
