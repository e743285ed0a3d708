#include "quantities.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <string_view>
#include <utility>

namespace tvctl {
namespace {

using std::chrono::milliseconds;
constexpr std::uint64_t mostMilliseconds = 366ULL * 24 * 3600 * 1000;
constexpr std::uint64_t mostBytes = 1ULL << 50;

// A whole number and one of the units, at most `most`.
template <class Units>
std::optional<std::uint64_t> quantityOf(std::string_view text, const Units& units, std::uint64_t most) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string_view unit = text.substr(static_cast<std::size_t>(end - text.data()));
    if (error != std::errc() || number == 0) return std::nullopt;
    for (const auto& [name, factor] : units)
        if (unit == name) return number <= most / factor ? std::optional(number * factor) : std::nullopt;
    return std::nullopt;
}

} // namespace

std::optional<milliseconds> durationOf(const std::string& text) {
    constexpr std::pair<std::string_view, std::uint64_t> units[] = {
        {"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}};
    const auto found = quantityOf(text, units, mostMilliseconds);
    return found ? std::optional(milliseconds(static_cast<std::int64_t>(*found))) : std::nullopt;
}

std::optional<std::uint64_t> sizeOf(const std::string& text) {
    constexpr std::pair<std::string_view, std::uint64_t> units[] = {
        {"", 1}, {"K", 1 << 10}, {"M", 1 << 20}, {"G", 1 << 30}};
    return quantityOf(text, units, mostBytes);
}

void addDuration(CLI::App& app, const char* name, std::optional<milliseconds>& value, const char* help) {
    app.add_option_function<std::string>(
           name, [&value](const std::string& text) { value = durationOf(text); }, help)
        ->type_name("DURATION")
        ->check([](const std::string& text) {
            return durationOf(text) ? "" : "'" + text + "' is not a duration, such as 500ms, 60s, 5m or 2h";
        });
}

void addSize(CLI::App& app, const char* name, std::optional<std::uint64_t>& value, const char* help) {
    app.add_option_function<std::string>(
           name, [&value](const std::string& text) { value = sizeOf(text); }, help)
        ->type_name("SIZE")
        ->check([](const std::string& text) {
            return sizeOf(text) ? "" : "'" + text + "' is not a size, such as 64K, 10M or 2G";
        });
}

} // namespace tvctl
