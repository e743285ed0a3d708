// Connects to a service as a test client.
#pragma once

#include "checks.h"

#include <optional>

namespace tvctl::doctor {

struct ConnectFailure {
    bool isSilent; // there was no answer
    std::string reason;
};

// Connects as a receiver would, and disconnects. Returns why that failed within the timeout, or nullopt on success:
// both sides have the same messages and, between hosts, have proven their keys.
std::optional<ConnectFailure> tryToConnect(const Service& service, std::chrono::milliseconds timeout);

// Checks a service whose endpoint is a network address.
Diagnosis checkRemoteService(const Service& service, const std::string& endpoint, std::chrono::milliseconds timeout);

} // namespace tvctl::doctor
