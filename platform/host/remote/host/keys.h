// The Ed25519 keys by which hosts authenticate each other, each written as the 44 Base64 characters of its 32 bytes. A
// host keeps its secret key private and gives its public key to the others. All functions throw std::runtime_error with
// the reason; where the platform was built without TLS, every call throws.
#pragma once

#include <string>

namespace host {

struct KeyPair {
    std::string publicKey;
    std::string secretKey;
};

KeyPair makeKeys();

// Writes a pair into a new file of mode 0600. Leaves an existing file alone, and removes a file that it could not write
// completely.
void writeKeys(const std::string& file, const KeyPair& keys);

// Reads a file of writeKeys. Rejects a file of another user (except root), one that others may read or write, and keys
// that are not a pair.
KeyPair readKeys(const std::string& file);

// Rejects a malformed key. what: whose key it should be, for the error text.
void checkKey(const std::string& key, const std::string& what);

} // namespace host
