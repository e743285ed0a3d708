// The messages between the two processes of the soak.
#pragma once

#include <frame/message-set.h>
#include <vdl/flat.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace soak {

inline constexpr const char* service = "soak";

// The flat form of the message.
struct Numbered {
    vdl::Word<std::uint32_t> source, number;
    vdlDeserString_t text; // textOf(number)
};

enum Source : std::uint32_t { queueClient, rawClient, sources };

const frame::MessageSet& messages();
const frame::MessageDescription& numbered();

// The text is derived from the number. Its length is typical of real messages.
inline std::size_t lengthOf(std::uint32_t number) { return number % 61; }
inline char letterOf(std::uint32_t number) { return static_cast<char>('a' + number % 26); }

// Frames in wire format.
std::string validFrame(Source source, std::uint32_t number);
// A frame that the service must count and drop. Its kind depends on the number.
std::string malformedFrame(std::uint32_t number);

} // namespace soak
