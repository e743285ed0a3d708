// Being a service's client for a moment.
#pragma once

#include "checks.h"

#include <optional>

namespace tvctl::doctor {

// Connects as a receiver would and leaves again. Returns why that was not possible within the time; nothing when it
// was: then both sides have the same messages and, between hosts, have proven their keys.
std::optional<std::string> failureOfAttempt(const Service& service, std::chrono::milliseconds timeout);

// A service whose endpoint is an address of a network.
Diagnosis checkRemoteService(const Service& service, const std::string& endpoint, std::chrono::milliseconds timeout);

} // namespace tvctl::doctor
