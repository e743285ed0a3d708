// Escaping of untrusted text for display.
#pragma once

#include <string>
#include <string_view>

namespace host {

// Escapes text for a terminal and for one line: control characters and invalid UTF-8 become \xNN, so that no text can
// forge a line or control a terminal. A line feed becomes lineFeed.
std::string printable(std::string_view text, std::string_view lineFeed = "\\x0a");

// Printable text in quotes, for a message of one line; long text is truncated and followed by its length.
std::string quoted(std::string_view text);

} // namespace host
