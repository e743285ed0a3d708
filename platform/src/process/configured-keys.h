// The keys that the configuration names. Everything here throws std::runtime_error when they are missing or unfit.
#pragma once

#include <host/keys.h>

#include <set>
#include <string>

namespace host {

KeyPair ownKeys();
std::string keyOfService(const std::string& service, const std::string& endpoint);
std::set<std::string> keysOfClients(const std::string& service, const std::string& endpoint);

} // namespace host
