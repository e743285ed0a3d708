// Reads TOML files, with limits that are checked before the parser sees the text.
#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace host {

// Ample for every configuration and every channel list.
inline constexpr std::size_t longestTomlFile = std::size_t{1} << 20; // bytes
// Each bracket or brace is a level, and so is each dot of a key. The parser's tree uses stack for each level, at the
// latest when it is destroyed, and the parser itself limits only brackets.
inline constexpr unsigned deepestToml = 16;

// An invalid file; the text begins with the file's path and, if it concerns a line, the line.
struct TomlFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct TomlFile {
    std::string text;
    bool writableByOthers = false;
};

// Reads a file; returns nothing when it does not exist. Never blocks, so a pipe is an error. Throws TomlFileError.
std::optional<TomlFile> readTomlFile(const std::string& path);

// Throws TomlFileError when the text nests deeper than deepestToml. where: the name of the text for the error.
void checkTomlNesting(std::string_view text, const std::string& where);

} // namespace host
