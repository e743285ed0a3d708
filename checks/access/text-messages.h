// Messages with a text in every field that takes one.
#pragma once

#include "endpoints.h"

#include <string>
#include <vector>

namespace access_check {

struct TextMessage {
    std::string news; // the notification by which the adapter's clients hear of it, if they do
    nlohmann::json arguments;
    std::string frame; // as it travels
};

// No socket takes several of them at once, and no command prints them.
inline bool isLong(const std::string& text) { return text.size() >= 1000; }

// Every message to a service, and of it, that has texts: once, with the text in all of its fields; or, when it is long,
// once for each of them.
std::vector<TextMessage> requestsWith(const std::string& text, Part service);
std::vector<TextMessage> notificationsWith(const std::string& text, Part service);

} // namespace access_check
