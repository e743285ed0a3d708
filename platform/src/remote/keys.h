// Keys as text and as the TLS library has them. There are none where the platform is built without TLS.
#pragma once

#include <host/keys.h>

#include <memory>
#include <openssl/evp.h>
#include <string>

namespace host::remote {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

// The secret key that the text holds, or null when it holds no key.
Key secretKeyOf(const std::string& text);
// The public part of an Ed25519 key, as others are told it; empty for other kinds of keys.
std::string publicTextOf(const EVP_PKEY* key);

} // namespace host::remote
