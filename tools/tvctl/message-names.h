// The names of the notifications, as people type them.
#pragma once

#include <string>

namespace tvctl {

// What is wrong with the name of a notification, with the names nearest to it; empty when there is such a one.
std::string checkNotification(const std::string& name);

} // namespace tvctl
