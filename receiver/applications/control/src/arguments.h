// Reading what people type behind a command: numbers, terminals, texts.
#pragma once

#include <appovshell/server.h>
#include <genrpc/flatten.h>
#include <tvservice/core-records.h>

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <type_traits>

namespace control {

// What a command answers to arguments that it cannot use.
constexpr int badArgument = -22;

// A decimal number; false when text is none or it is out of Number's range, number is then unchanged.
template <class Number> bool readNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

// "type:id"; false when text is none, terminal is then undefined.
bool readTerminal(std::string_view text, tvservice::TvServiceTerminal_t& terminal);
std::string nameOf(const tvservice::TvServiceTerminal_t& terminal);

// Text in single quotes, for messages; only its beginning when it is long.
std::string inQuotes(const std::string& text);

// Prints why a command cannot be carried out and gives its result.
int refuse(appovshell::Server& shell, const std::string& why);
int refuseTerminal(appovshell::Server& shell, const std::string& text); // because readTerminal could not read it

// Takes the arguments of the command under way one after the other and puts each where it belongs. names are the
// arguments' names, separated by blanks; one in brackets may be missing and then leaves its place as it is. After the
// first argument that cannot be used nothing more is read.
class ArgumentReader {
public:
    static constexpr std::size_t longestText = 1024; // bytes

    ArgumentReader(appovshell::Server& shell, std::string_view names) : shell_(shell), names_(names) {}

    // What is wrong with the arguments read so far; empty when nothing is.
    const std::string& problem() const { return problem_; }

    void read(std::string& text);
    void read(std::int32_t& number);
    void read(tvservice::TvServiceTerminal_t& terminal);
    template <class T> void read(T& value) {
        if constexpr (std::is_enum_v<T>) {
            static_assert(std::is_same_v<std::underlying_type_t<T>, std::int32_t>);
            std::int32_t number = value;
            read(number);
            value = static_cast<T>(number);
        } else { // a record: its fields in order
            std::apply([&](const auto&... field) { (read(value.*field.plain), ...); }, T::Flat::fields());
        }
    }

private:
    // The next argument; false when there is none to be used.
    bool next(std::string& text);
    void refuse(const std::string& why);

    appovshell::Server& shell_;
    std::string_view names_; // of the arguments not read yet
    std::string name_;       // of the one under way
    unsigned index_ = 0;
    std::string problem_;
};

} // namespace control
