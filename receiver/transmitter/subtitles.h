// Subtitles as bitmaps (ETSI EN 300 743): a bar with a text at the bottom of a picture of 720 x 576.
#pragma once

#include "bytes.h"

#include <string>

namespace transmitter {

enum class BarColour { yellow, cyan };

// The content of the descriptor in a program's table.
Bytes subtitleDescription(const std::string& language);

// A complete display set as data of its stream, so that a receiver can join here. The bar has black letters, of which
// there are at most 20: A to Z, digits and spaces. Without text there is no bar.
Bytes subtitleData(const std::string& text, BarColour colour, unsigned version, std::uint64_t presentation);

} // namespace transmitter
