// The layout of messages in prose: what a decoder needs besides the offsets. Part of the JSON and of docs/messages.md.
#pragma once

namespace schema {

inline constexpr const char* wireRules[] = {
    "A message is its arguments, back to back at the given offsets without padding, then the blocks that its pointers "
    "refer to. A message without arguments is one byte, sent as 0.",
    "All scalars, counts, lengths and pointers have the byte order of the sender, which its hello announces.",
    "A pointer is an unsigned 32-bit offset from the message's first byte; 0 is null.",
    "Blocks follow each other without gaps, depth first in field order: an array, then the blocks of each of its "
    "elements in turn. The message ends with the last block. Any other layout is rejected.",
    "A string is its length, then a pointer to a block of length + 1 bytes. The last byte is 0 and not part of the "
    "length; the string itself may contain bytes of value 0. A string with a null pointer is empty, whatever its "
    "length. An empty string is sent with a block of one byte.",
    "Lists and sequences are a count, then a pointer to an array of count elements, back to back. The count is 0 if "
    "and "
    "only if the pointer is null.",
};

} // namespace schema
