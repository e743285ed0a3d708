// Keys as text, as the TLS library has them, and as they are configured. There are none where the platform is built
// without TLS.
#pragma once

#include <host/keys.h>

#include <memory>
#include <openssl/evp.h>
#include <set>
#include <string>

namespace host::config {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

// The secret key that the text holds, or null when it holds no key.
Key secretKeyOf(const std::string& text);
// The public part of an Ed25519 key, as others are told it; empty for other kinds of keys.
std::string publicTextOf(const EVP_PKEY* key);

// Those that are configured. They throw std::runtime_error when there are none, or they are unfit.
KeyPair ownKeys();
std::string keyOfService(const std::string& service, const std::string& endpoint);
std::set<std::string> keysOfClients(const std::string& service, const std::string& endpoint);

} // namespace host::config
