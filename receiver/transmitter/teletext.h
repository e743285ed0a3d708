// Teletext in a transport stream (ETSI EN 300 472 and EN 300 706): pages of a program, and its subtitles.
#pragma once

#include "bytes.h"

#include <string>

namespace transmitter {

enum class TeletextPage { first, second, subtitle, emptySubtitle }; // 100, 200, 888, 888

// The content of the descriptor that lists the pages in a program's table.
Bytes teletextDescription();

// A page of a program, with the second of the broadcast, as data of its stream. A receiver shows it at once.
Bytes teletextData(TeletextPage page, const std::string& program, const std::string& second,
                   std::uint64_t presentation);

} // namespace transmitter
