// Text for people whose bytes somebody else chose.
#pragma once

#include <string>
#include <string_view>

namespace host {

// The text fit for a terminal and for one line: control characters and bytes that are no UTF-8 become \xNN, so that no
// text can forge a line or steer a terminal. A line feed becomes lineFeed.
std::string printable(std::string_view text, std::string_view lineFeed = "\\x0a");

// The text in quotes, printable, for a message of one line; of a long one the beginning and its length.
std::string quoted(std::string_view text);

} // namespace host
