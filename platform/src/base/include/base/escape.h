// Escapes text for a terminal and a line-oriented file.
#pragma once

#include <string>
#include <string_view>

namespace host {

// Appends text with each line feed as lineFeed; other control characters and bytes that are not UTF-8 become \xNN, so
// that no text can forge a line or control a terminal.
void appendEscaped(std::string& out, std::string_view text, std::string_view lineFeed);

} // namespace host
