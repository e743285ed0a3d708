// The keys by which machines that talk over a network know each other: Ed25519, each key written as the 44 characters
// of its 32 bytes in Base64. A machine keeps its secret key to itself and tells the others its public one. Everything
// here throws std::runtime_error, saying what is wrong; so does all of it where the platform was built without TLS.
#pragma once

#include <string>

namespace host {

struct KeyPair {
    std::string publicKey;
    std::string secretKey;
};

KeyPair makeKeys();

// Writes a pair into a new file of mode 0600. A file that is there already is left alone, and nothing is left of one
// that cannot be written whole.
void writeKeys(const std::string& file, const KeyPair& keys);

// Reads what writeKeys has written. Refuses a file of another user (other than root), one that others may read or
// write, and keys that do not belong together.
KeyPair readKeys(const std::string& file);

// Refuses what is no key. what says, for the message, whose it was meant to be.
void checkKey(const std::string& key, const std::string& what);

} // namespace host
