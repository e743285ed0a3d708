// The configured keys. All functions throw std::runtime_error when a key is missing or invalid.
#pragma once

#include <host/keys.h>

#include <set>
#include <string>

namespace host {

KeyPair ownKeys();
std::string keyOfService(const std::string& service, const std::string& endpoint);
std::set<std::string> keysOfClients(const std::string& service, const std::string& endpoint);

} // namespace host
