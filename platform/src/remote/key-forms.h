// Keys as text and as the TLS library has them.
#pragma once

#include <memory>
#include <openssl/evp.h>
#include <string>

namespace host::remote {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

// A secret key, or null when the text is none.
Key secretKeyOf(const std::string& text);
// The public part of an Ed25519 key, as others are told it; empty for other kinds of keys.
std::string publicTextOf(const EVP_PKEY* key);

} // namespace host::remote
