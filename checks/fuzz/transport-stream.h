// Transport streams from few bytes, so that a fuzzer needs not find right checksums, counters and 188 bytes a packet.
#pragma once

#include "target.h"

namespace fuzz {

// Each part of the stream begins with a byte that tells what it is:
// 0: a packet, of which the first bytes are given; 0xFF follows
// 1: a section in packets of its own; its length and its checksum are made right
// 2: the same, but nothing is made right
// 3: a packet of a stream, with a clock and a start of a unit on request
// 4: bytes as they are
std::vector<std::uint8_t> transportStream(Source& source);

} // namespace fuzz
