// Changes of a message that stand at the edges of what is right.
#pragma once

#include "wire-model.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace checks {

using TryMessage = std::function<void(const std::string& message)>;

// The message cut off after each of its bytes but the last.
void eachTruncation(const std::string& message, const TryMessage& use);
// The message with one byte changed: each byte, to all other values or to 16 of them.
void eachByteChange(const std::string& message, bool allValues, const TryMessage& use);
// The message with the words of one pointer changed, each alone and both together, to values where arithmetic goes
// wrong if it can: 0, 1, around the right value, around the message's size, and around the ends of 16, 31 and 32 bits.
void eachPointerChange(const std::string& message, const std::vector<model::Pointer>& pointers, bool bigEndian,
                       const TryMessage& use);

} // namespace checks
