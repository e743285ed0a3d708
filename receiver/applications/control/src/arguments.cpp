#include "arguments.h"

#include <tvservice/values.h>

#include <algorithm>
#include <utility>

namespace control {

namespace {

// For error texts.
constexpr const char* terminalForm = "TYPE:ID, such as 0:1 or main:1, with numbers from 0 to 2147483647";

bool readTerminalType(std::string_view text, std::int32_t& type) {
    for (const auto& value : tvservice::terminalTypes.values)
        if (text == value.name) {
            type = value.number;
            return true;
        }
    return readNumber(text, type);
}

} // namespace

bool readTerminal(std::string_view text, tvservice::TvServiceTerminal_t& terminal) {
    const auto colon = text.find(':');
    return colon != std::string_view::npos && readTerminalType(text.substr(0, colon), terminal.type) &&
           readNumber(text.substr(colon + 1), terminal.id) && terminal.type >= 0 && terminal.id >= 0;
}

std::string nameOf(const tvservice::TvServiceTerminal_t& terminal) {
    return std::to_string(terminal.type) + ":" + std::to_string(terminal.id);
}

const char* typeNameOf(const tvservice::TvServiceTerminal_t& terminal) {
    return nameOf(tvservice::terminalTypes, terminal.type);
}

std::string inQuotes(const std::string& text) {
    constexpr std::size_t shown = 40;
    return text.size() <= shown ? "'" + text + "'" : "'" + text.substr(0, shown) + "...'";
}

int reject(appovshell::Server& shell, const std::string& why) {
    shell.print(why + "\n");
    return badArgument;
}

int rejectTerminal(appovshell::Server& shell, const std::string& text) {
    return reject(shell, "terminal " + inQuotes(text) + ": expected " + terminalForm);
}

bool ArgumentReader::next(std::string& text) {
    if (!problem_.empty()) return false;
    const auto end = std::min(names_.find(' '), names_.size());
    name_ = names_.substr(0, end);
    names_.remove_prefix(std::min(end + 1, names_.size()));
    text = shell_.getArgument(index_++);
    if (!text.empty()) return true;
    if (name_.front() != '[') reject("is missing");
    return false;
}

void ArgumentReader::reject(const std::string& why) { problem_ = name_ + " " + why; }

void ArgumentReader::read(std::string& text) {
    std::string argument;
    if (!next(argument)) return;
    if (argument.size() > longestText) {
        reject("has " + std::to_string(argument.size()) + " bytes, at most " + std::to_string(longestText) +
               " are allowed: " + inQuotes(argument));
        return;
    }
    text = std::move(argument);
}

void ArgumentReader::read(std::int32_t& number) {
    std::string argument;
    if (next(argument) && !readNumber(argument, number))
        reject("must be a decimal number of 32 bits, not " + inQuotes(argument));
}

void ArgumentReader::read(tvservice::TvServiceTerminal_t& terminal) {
    std::string argument;
    if (next(argument) && !readTerminal(argument, terminal))
        reject(std::string("must be ") + terminalForm + ", not " + inQuotes(argument));
}

} // namespace control
