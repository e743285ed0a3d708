// What the two processes of the soak exchange.
#pragma once

#include <frame/message-set.h>
#include <vdl/flat.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace soak {

inline constexpr const char* service = "soak";

// The flat form of the one message.
struct Numbered {
    vdl::Word<std::uint32_t> source, number;
    vdlDeserString_t text; // textOf(number)
};

enum Source : std::uint32_t { queueClient, rawClient, sources };

const frame::MessageSet& messages();
const frame::MessageDescription& numbered();

// A text that follows from the number, as long as texts on the way usually are.
inline std::size_t lengthOf(std::uint32_t number) { return number % 61; }
inline char letterOf(std::uint32_t number) { return static_cast<char>('a' + number % 26); }

// Frames as they stand on the stream.
std::string honestFrame(Source source, std::uint32_t number);
// One that the service has to count and drop; another kind for each number.
std::string malformedFrame(std::uint32_t number);

} // namespace soak
