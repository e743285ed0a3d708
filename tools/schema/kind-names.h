// Names and meanings of the field kinds.
#pragma once

#include "schema.h"

namespace schema {

struct KindName {
    const char* name; // in the JSON
    const char* meaning;
};

// In the order of Kind.
inline constexpr KindName kinds[] = {
    {"scalar", "an integer of 1, 2 or 4 bytes, signed in two's complement or unsigned"},
    {"flag", "an unsigned 32-bit word: 0 is false, everything else true; sent as 0 or 1"},
    {"string", "length, pointer; 8 bytes"},
    {"stringList", "count, pointer to strings; 8 bytes"},
    {"uint32List", "count, pointer to unsigned 32-bit words; 8 bytes"},
    {"record", "a record, stored inline"},
    {"sequence", "count, pointer to records; 8 bytes"},
};
constexpr const KindName& nameOf(Kind kind) { return kinds[static_cast<std::size_t>(kind)]; }

// A type as a phrase: "int32", "sequence of AudioStreamInfo_t".
std::string phraseOf(const Type& type);

} // namespace schema
