// Events as JSON, for programs and for conditions, and as one line for people.
#pragma once

#include "deliveries.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace recording {

// Time, process and kind; of a message its service, name, arguments with the names of their numbers, and receivers.
nlohmann::ordered_json describe(const Shown& shown);
// The description as a line, without line feed and escaped. Leaves out what is empty, false, or a zero
// without a name.
std::string lineOf(const nlohmann::ordered_json& description);

// The description as JSON text. Invalid UTF-8 becomes replacement characters.
std::string textOf(const nlohmann::ordered_json& json);

// "2026-11-21T08:30:40.792123Z", of nanoseconds since 1970.
std::string utcText(std::int64_t date);
// Whether it is a terminal: an object of type and id. Then its text is "0:0".
bool isTerminal(const nlohmann::ordered_json& value);
std::string terminalText(const nlohmann::ordered_json& terminal);

} // namespace recording
