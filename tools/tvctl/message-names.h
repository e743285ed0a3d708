// The names of the notifications, as people type them.
#pragma once

#include <string>
#include <vector>

namespace tvctl {

std::vector<std::string> notificationNames();

// Returns an error text with the nearest names; empty when the notification exists.
std::string checkNotification(const std::string& name);

} // namespace tvctl
