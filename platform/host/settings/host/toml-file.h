// TOML files that people write, as programs read them: with bounds that hold before the parser sees the text.
#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace host {

// Ample for every configuration and every channel list.
inline constexpr std::size_t longestTomlFile = std::size_t{1} << 20; // bytes
// A bracket or brace is a level, and so is each dot of a key. The parser's tree takes stack for each level, at the
// latest when it is destroyed, and the parser itself bounds only brackets.
inline constexpr unsigned deepestToml = 16;

// What is wrong with a file; the text begins with its path and, where one is wrong, the line.
struct TomlFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct TomlFile {
    std::string text;
    bool writableByOthers = false;
};

// Nothing when there is no such file. Waits for nothing, so a pipe is an error. Throws TomlFileError.
std::optional<TomlFile> readTomlFile(const std::string& path);

// Throws TomlFileError when the text nests deeper than deepestToml. where: what the text is called in the error.
void checkTomlNesting(std::string_view text, const std::string& where);

} // namespace host
