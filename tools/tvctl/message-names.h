// The names of the notifications, as people type them.
#pragma once

#include <string>

namespace tvctl {

// Returns an error text with the nearest names; empty when the notification exists.
std::string checkNotification(const std::string& name);

} // namespace tvctl
