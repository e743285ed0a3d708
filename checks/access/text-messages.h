// Messages with a text in their text fields.
#pragma once

#include "endpoints.h"

#include <string>
#include <vector>

namespace access_check {

struct TextMessage {
    std::string notification; // the one that the adapter's clients receive for it, if any
    nlohmann::json arguments;
    std::string frame; // in wire format
};

// Too long for a socket to take several at once, and for commands to print.
inline bool isLong(const std::string& text) { return text.size() >= 1000; }

// Every message with text fields to a service, and from it: once with the text in all of these fields; a long text
// instead once for each field.
std::vector<TextMessage> requestsWith(const std::string& text, Part service);
std::vector<TextMessage> notificationsWith(const std::string& text, Part service);

} // namespace access_check
