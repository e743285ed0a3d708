// How messages are laid out, in words: what a reader has to know besides the offsets. For the JSON and the document.
#pragma once

namespace schema {

inline constexpr const char* wireRules[] = {
    "A message is its arguments one after the other, without padding, at the offsets given, then the blocks that its "
    "pointers lead to. A message without arguments is one byte, sent as 0.",
    "All scalars, counts, lengths and pointers have the byte order of the sender, which the connection tells.",
    "A pointer is an unsigned 32-bit offset from the message's first byte; 0 is null.",
    "Blocks follow each other without gaps, depth first in field order: an array, then for each of its elements in "
    "turn "
    "what that element leads to. The last block ends the message. Nothing else is accepted.",
    "A string is its length, then a pointer to a block of length + 1 bytes, the last one 0 and not counted by the "
    "length; bytes of value 0 may be part of the string. With a null pointer the string is empty, whatever the length "
    "says; an empty string is sent with its block of one byte.",
    "Lists and sequences are a count, then a pointer to an array of count elements, back to back; count 0 and the null "
    "pointer come only together.",
};

} // namespace schema
