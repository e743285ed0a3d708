// Command specifications, and command lines taken apart by them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace appovshell {

// What a command is called and takes; see Server::registerCommand.
struct Specification {
    std::string word;
    std::vector<char> kinds;     // of the arguments but "...": 's' or 'd'
    bool lastIsOptional = false; // the last of kinds may be missing
    bool takesRest = false;      // "..." follows

    std::size_t argumentCount() const { return kinds.size() + (takesRest ? 1 : 0); }
};

// Reads a specification; false when it is malformed, result is then undefined.
bool parseSpecification(std::string_view text, Specification& result);

// A command's help text taken apart.
struct HelpText {
    std::string arguments;   // "TERMINAL URI [UUID]": from the help, else made from the argument kinds
    std::string description; // the help without the arguments' names
};
HelpText helpTextOf(const Specification& specification, const std::string& help);

// The first words of a command line, and what follows them.
struct Words {
    std::vector<std::string> words;
    std::string rest;            // verbatim, without blanks in front
    const char* error = nullptr; // what is wrong with the line, if anything is
};

// Takes up to limit words off the line.
Words takeWords(std::string_view line, std::size_t limit);
// The same for a line that came as words: the words after the first limit ones make the rest, with a blank between.
Words takeWords(const std::vector<std::string>& all, std::size_t limit);

// Makes a command's arguments of the words after the command word; false when they do not match those of the command.
bool matchArguments(const Specification& specification, Words& words, std::vector<std::string>& arguments);

} // namespace appovshell
