#include "arguments.h"

#include <tvservice/values.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace control {

namespace {

// For error texts.
constexpr const char* terminalForm = "TYPE:ID, such as 0:1 or main:1, with numbers from 0 to 2147483647";

bool readNumberOrName(std::string_view text, const genrpc::Enumeration* names, std::int32_t& number) {
    if (names)
        for (const auto& value : names->values)
            if (text == value.name) {
                number = value.number;
                return true;
            }
    return readNumber(text, number);
}

// Enumerations with open ends, such as the types of terminals, have a lowest number instead.
bool isClosed(const genrpc::Meaning& meaning) { return meaning.values && meaning.least == genrpc::Meaning::anyNumber; }

// "0 (unlocked) or 1 (locked)"
std::string listOf(const genrpc::Enumeration& enumeration) {
    std::string text;
    for (std::size_t left = enumeration.values.size(); const auto& value : enumeration.values) {
        text += std::to_string(value.number) + " (" + value.name + ")";
        if (--left > 0) text += left == 1 ? " or " : ", ";
    }
    return text;
}

} // namespace

bool readTerminal(std::string_view text, tvservice::TvServiceTerminal_t& terminal) {
    const auto colon = text.find(':');
    return colon != std::string_view::npos &&
           readNumberOrName(text.substr(0, colon), &tvservice::terminalTypes, terminal.type) &&
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

void ArgumentReader::read(std::string& text, const Meaning&) {
    std::string argument;
    if (!next(argument)) return;
    if (argument.size() > longestText) {
        reject("has " + std::to_string(argument.size()) + " bytes, at most " + std::to_string(longestText) +
               " are allowed: " + inQuotes(argument));
        return;
    }
    text = std::move(argument);
}

void ArgumentReader::read(std::int32_t& number, const Meaning& meaning) {
    std::string argument;
    if (!next(argument)) return;
    const bool isNumber = readNumberOrName(argument, meaning.values, number);
    if (isClosed(meaning)) {
        if (!isNumber || !find(*meaning.values, number))
            reject("must be " + listOf(*meaning.values) + ", not " + inQuotes(argument));
    } else if (!isNumber) {
        reject("must be a decimal number of 32 bits, not " + inQuotes(argument));
    } else if (number < meaning.least) {
        reject("must be at least " + std::to_string(meaning.least) + ", not " + inQuotes(argument));
    }
}

void ArgumentReader::read(tvservice::TvServiceTerminal_t& terminal, const Meaning&) {
    std::string argument;
    if (next(argument) && !readTerminal(argument, terminal))
        reject(std::string("must be ") + terminalForm + ", not " + inQuotes(argument));
}

} // namespace control
