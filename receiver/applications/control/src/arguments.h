// Parses the arguments of shell commands: numbers, terminals, texts.
#pragma once

#include <appovshell/server.h>
#include <genrpc/flatten.h>
#include <tvservice/meanings.h>

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <type_traits>

namespace control {

// The result of a command with invalid arguments.
constexpr int badArgument = -22;

// Parses a decimal number. Returns false, with number unchanged, when text is not one or it is out of range.
template <class Number> bool readNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

// Parses "type:id"; the type may be its name. Returns false, with terminal undefined, when text is malformed or a
// number is negative.
bool readTerminal(std::string_view text, tvservice::TvServiceTerminal_t& terminal);
std::string nameOf(const tvservice::TvServiceTerminal_t& terminal);
const char* typeNameOf(const tvservice::TvServiceTerminal_t& terminal);

// Text in single quotes, for messages; long text is truncated.
std::string inQuotes(const std::string& text);

// Prints why a command is rejected and returns its result.
int reject(appovshell::Server& shell, const std::string& why);
int rejectTerminal(appovshell::Server& shell, const std::string& text); // when readTerminal fails

// Reads the arguments of the current command in order. names: the arguments' names, separated by blanks. An argument
// whose name is in brackets is optional; when it is missing, its variable keeps its value. Reads nothing after the
// first invalid argument.
class ArgumentReader {
public:
    static constexpr std::size_t longestText = 1024; // bytes

    ArgumentReader(appovshell::Server& shell, std::string_view names) : shell_(shell), names_(names) {}

    // The problem with the arguments read so far; empty when there is none.
    const std::string& problem() const { return problem_; }

    // A number must be one that the meaning allows; where all have names, the name will do.
    using Meaning = genrpc::Meaning;
    void read(std::string& text, const Meaning& meaning = {});
    void read(std::int32_t& number, const Meaning& meaning = {});
    void read(tvservice::TvServiceTerminal_t& terminal, const Meaning& meaning = {});
    template <class T> void read(T& value, const Meaning& meaning = {}) {
        if constexpr (std::is_enum_v<T>) {
            static_assert(std::is_same_v<std::underlying_type_t<T>, std::int32_t>);
            std::int32_t number = value;
            read(number, meaning);
            value = static_cast<T>(number);
        } else { // a record: its fields in order
            auto fieldMeaning = genrpc::meanings<T>.begin();
            std::apply([&](const auto&... field) { (read(value.*field.plain, *fieldMeaning++), ...); },
                       T::Flat::fields());
        }
    }

private:
    // Gets the next argument; false when there is none, or after a problem.
    bool next(std::string& text);
    void reject(const std::string& why);

    appovshell::Server& shell_;
    std::string_view names_; // of the arguments not read yet
    std::string name_;       // of the current argument
    unsigned index_ = 0;
    std::string problem_;
};

} // namespace control
