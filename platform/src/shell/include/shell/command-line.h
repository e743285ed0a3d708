// Parses command specifications, and command lines by them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace appovshell {

// A command's word and arguments; see Server::registerCommand.
struct Specification {
    std::string word;
    std::vector<char> kinds;     // of the arguments except "...": 's' or 'd'
    bool lastIsOptional = false; // the last of kinds is optional
    bool takesRest = false;      // "..." follows

    std::size_t argumentCount() const { return kinds.size() + (takesRest ? 1 : 0); }
};

// Parses a specification. Returns false, with result undefined, when it is malformed.
bool parseSpecification(std::string_view text, Specification& result);

// A command's parsed help text.
struct HelpText {
    std::string arguments;   // "TERMINAL URI [UUID]": from the help, else derived from the argument kinds
    std::string description; // the help without the arguments' names
};
HelpText helpTextOf(const Specification& specification, const std::string& help);

// The first words of a command line, and the rest.
struct Words {
    std::vector<std::string> words;
    std::string rest;            // verbatim, without leading blanks
    const char* error = nullptr; // the error in the line, or null
};

// Parses up to limit words of the line.
Words takeWords(std::string_view line, std::size_t limit);
// The same for a line that was sent as words: the words after the first limit are joined with blanks to the rest.
Words takeWords(const std::vector<std::string>& all, std::size_t limit);

// Gets a command's arguments from the words after the command word. Returns false when they do not match the
// specification.
bool matchArguments(const Specification& specification, Words& words, std::vector<std::string>& arguments);

} // namespace appovshell
