#include "shell/command-line.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <system_error>
#include <utility>

namespace appovshell {
namespace {

constexpr std::string_view blanks = " \t\r\n";

std::string_view withoutLeadingBlanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text;
}

// Removes the characters up to the next blank from text and returns them.
std::string_view takePlainWord(std::string_view& text) {
    text = withoutLeadingBlanks(text);
    const auto word = text.substr(0, text.find_first_of(blanks));
    text = withoutLeadingBlanks(text.substr(word.size()));
    return word;
}

bool isInteger(const std::string& text) {
    std::int64_t value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end;
}

// Whether a word of a help text names an argument: it has upper-case and no lower-case letters.
bool namesArgument(std::string_view word) {
    const auto isCapital = [](char c) { return c >= 'A' && c <= 'Z'; };
    const auto isSmall = [](char c) { return c >= 'a' && c <= 'z'; };
    return std::any_of(word.begin(), word.end(), isCapital) && std::none_of(word.begin(), word.end(), isSmall);
}

std::string placeholders(const Specification& specification) {
    std::string text;
    for (std::size_t i = 0; i < specification.kinds.size(); ++i) {
        const std::string name = specification.kinds[i] == 'd' ? "NUMBER" : "STRING";
        const bool optional = specification.lastIsOptional && i + 1 == specification.kinds.size();
        if (!text.empty()) text += ' ';
        text += optional ? "[" + name + "]" : name;
    }
    if (specification.takesRest) text += text.empty() ? "TEXT..." : " TEXT...";
    return text;
}

// Moves the word at the line's start, which is not a blank, into word. Returns an error, or null.
const char* takeWord(std::string_view& line, std::string& word) {
    bool quoted = false;
    std::size_t at = 0;
    for (; at < line.size(); ++at) {
        const char c = line[at];
        if (c == '\\') {
            if (++at == line.size()) return "the line ends in a backslash";
            word += line[at];
        } else if (c == '"') {
            quoted = !quoted;
        } else if (!quoted && blanks.find(c) != std::string_view::npos) {
            break;
        } else {
            word += c;
        }
    }
    if (quoted) return "a double quote is not closed";
    line.remove_prefix(at);
    return nullptr;
}

} // namespace

bool parseSpecification(std::string_view text, Specification& result) {
    result = {};
    const auto word = takePlainWord(text);
    // A command with special characters could not be called.
    if (word.empty() || word.find_first_of(":[]\"\\") != std::string_view::npos || word == "...") return false;
    result.word = word;
    while (!text.empty()) {
        if (result.lastIsOptional || result.takesRest) return false;
        const auto item = takePlainWord(text);
        if (item == "...") {
            result.takesRest = true;
        } else if (item == ":s" || item == ":d") {
            result.kinds.push_back(item[1]);
        } else if (item == "[:s]" || item == "[:d]") {
            result.kinds.push_back(item[2]);
            result.lastIsOptional = true;
        } else {
            return false;
        }
    }
    return true;
}

HelpText helpTextOf(const Specification& specification, const std::string& help) {
    std::string_view description = help;
    std::string arguments;
    for (std::size_t i = 0; i < specification.argumentCount(); ++i) {
        const auto name = takePlainWord(description);
        if (!namesArgument(name)) return {placeholders(specification), help};
        if (i > 0) arguments += ' ';
        arguments += name;
    }
    if (!arguments.empty() && description.substr(0, 2) == "- ") takePlainWord(description);
    return {std::move(arguments), std::string(description)};
}

Words takeWords(std::string_view line, std::size_t limit) {
    Words result;
    line = withoutLeadingBlanks(line);
    while (!line.empty() && result.words.size() < limit) {
        result.error = takeWord(line, result.words.emplace_back());
        if (result.error) return result;
        line = withoutLeadingBlanks(line);
    }
    result.rest = line;
    return result;
}

Words takeWords(const std::vector<std::string>& all, std::size_t limit) {
    Words result;
    const auto split = std::next(all.begin(), static_cast<std::ptrdiff_t>(std::min(limit, all.size())));
    result.words.assign(all.begin(), split);
    for (auto word = split; word != all.end(); ++word) {
        if (word != split) result.rest += ' ';
        result.rest += *word;
    }
    return result;
}

bool matchArguments(const Specification& specification, Words& words, std::vector<std::string>& arguments) {
    arguments.assign(std::next(words.words.begin()), words.words.end());
    const auto& kinds = specification.kinds;
    // The empty argument of a command that takes one string; see Server::registerCommand.
    if (arguments.empty() && kinds.size() == 1 && kinds[0] == 's' && !specification.takesRest) arguments.emplace_back();
    if (arguments.size() + (specification.lastIsOptional ? 1 : 0) < kinds.size()) return false;
    if (arguments.size() > kinds.size()) return false;
    for (std::size_t i = 0; i < arguments.size(); ++i)
        if (kinds[i] == 'd' && !isInteger(arguments[i])) return false;
    if (specification.takesRest) arguments.push_back(std::move(words.rest));
    return true;
}

} // namespace appovshell
