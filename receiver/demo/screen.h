// Prints the demonstration on stdout, with colours only on a terminal and without NO_COLOR. On a terminal, wide text
// wraps and continues in the column where it began. Details are printed only when asked for.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace demo {

using Row = std::vector<std::string>; // of a table

std::string inMilliseconds(std::chrono::microseconds time); // "0.31 ms"

class Screen {
public:
    explicit Screen(bool withDetails);

    void title(const std::string& text) const;
    void outcome(const std::string& request, const std::string& result, const std::string& time) const;
    void good(const std::string& text) const;
    void note(const std::string& text) const;

    // Details.
    void line(const std::string& label, const std::string& text) const;
    // The same with a name in its own column before the text. The name must fit.
    void line(const std::string& label, const std::string& name, std::size_t nameWidth, const std::string& text) const;
    void event(std::chrono::microseconds sinceRequest, const std::string& text) const;
    void table(const std::string& title, const std::vector<Row>& rows) const; // of equal length; the first: headings

private:
    std::string coloured(const char* code, const std::string& text) const;
    std::string wrapped(const std::string& text, std::size_t indent) const;

    const bool withDetails_;
    bool colours_;
    std::size_t width_; // columns
};

} // namespace demo
