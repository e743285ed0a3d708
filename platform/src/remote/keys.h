// Converts keys between text and the TLS library's form. Not available without TLS in the build.
#pragma once

#include <host/keys.h>

#include <memory>
#include <openssl/evp.h>
#include <string>

namespace host::remote {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

// The secret key in the text, or null when the text is malformed.
Key secretKeyOf(const std::string& text);
// The public part of an Ed25519 key as text; empty for other kinds of keys.
std::string publicTextOf(const EVP_PKEY* key);

} // namespace host::remote
