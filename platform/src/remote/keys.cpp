#include "keys.h"

#include "base/file-descriptor.h"

#include <host/keys.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <toml++/toml.h>
#include <unistd.h>

namespace host {
namespace {

constexpr std::size_t keyBytes = 32, keyCharacters = 44, earlierKeyCharacters = 40;
constexpr std::size_t longestFile = 4096;

using Bytes = std::array<unsigned char, keyBytes>;

[[noreturn]] void refuse(const std::string& file, const std::string& why) {
    throw std::runtime_error("key file " + file + ": " + why);
}
[[noreturn]] void refuseForError(const std::string& file) { refuse(file, std::system_category().message(errno)); }

// Base64.
std::string textOf(const Bytes& bytes) {
    std::array<unsigned char, keyCharacters + 1> text{};
    EVP_EncodeBlock(text.data(), bytes.data(), keyBytes);
    return reinterpret_cast<const char*>(text.data());
}

std::optional<Bytes> bytesOf(const std::string& text) {
    if (text.size() != keyCharacters) return std::nullopt;
    std::array<unsigned char, keyBytes + 1> decoded{}; // the padding is decoded, too
    const auto* characters = reinterpret_cast<const unsigned char*>(text.data());
    if (EVP_DecodeBlock(decoded.data(), characters, keyCharacters) != static_cast<int>(decoded.size()))
        return std::nullopt;
    Bytes bytes;
    std::copy_n(decoded.begin(), keyBytes, bytes.begin());
    if (textOf(bytes) != text) return std::nullopt; // spaces are decoded, too
    return bytes;
}

// The public key that belongs to a secret one, or an empty text when that is invalid.
std::string publicKeyOf(const std::string& secretKey) {
    const remote::Key key = remote::secretKeyOf(secretKey);
    return key ? remote::publicTextOf(key.get()) : std::string();
}

// The text of a file that only this user can access.
std::string privateText(const std::string& file) {
    const io::FileDescriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!opened || fstat(opened.get(), &status) != 0) refuseForError(file);
    if (!S_ISREG(status.st_mode)) refuse(file, "not a file");
    if (status.st_uid != geteuid() && status.st_uid != 0) refuse(file, "belongs to another user");
    if ((status.st_mode & 077) != 0) refuse(file, "open to other users (expected: mode 0600)");
    std::string text(longestFile + 1, '\0');
    const ssize_t size = ::read(opened.get(), text.data(), text.size());
    if (size < 0) refuseForError(file);
    if (static_cast<std::size_t>(size) > longestFile) refuse(file, "too long for a pair of keys");
    text.resize(static_cast<std::size_t>(size));
    return text;
}

std::string keyIn(const toml::table& table, const char* name, const std::string& file) {
    const auto key = table[name].value<std::string>();
    if (!key) refuse(file, std::string("has no \"") + name + "\" key");
    return *key;
}

} // namespace

remote::Key remote::secretKeyOf(const std::string& text) {
    const auto bytes = bytesOf(text);
    return {bytes ? EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, bytes->data(), bytes->size()) : nullptr,
            &EVP_PKEY_free};
}

std::string remote::publicTextOf(const EVP_PKEY* key) {
    Bytes bytes;
    std::size_t size = bytes.size();
    if (!key || EVP_PKEY_get_id(key) != EVP_PKEY_ED25519 ||
        EVP_PKEY_get_raw_public_key(key, bytes.data(), &size) != 1 || size != bytes.size())
        return {};
    return textOf(bytes);
}

KeyPair makeKeys() {
    Bytes secret;
    if (RAND_priv_bytes(secret.data(), static_cast<int>(secret.size())) != 1)
        throw std::runtime_error("cannot make keys: the system provides no random bytes");
    const std::string text = textOf(secret);
    return {publicKeyOf(text), text};
}

void writeKeys(const std::string& file, const KeyPair& keys) {
    const io::FileDescriptor made(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!made) refuseForError(file);
    const std::string text =
        "# The keys of this machine. The public one is for other hosts; no other user may read this file.\n"
        "public = '" +
        keys.publicKey + "'\nsecret = '" + keys.secretKey + "'\n";
    const ssize_t written = ::write(made.get(), text.data(), text.size());
    if (written == static_cast<ssize_t>(text.size()) && fsync(made.get()) == 0) return;
    const int error = written < 0 || static_cast<std::size_t>(written) == text.size() ? errno : ENOSPC;
    ::unlink(file.c_str());
    refuse(file, std::system_category().message(error));
}

KeyPair readKeys(const std::string& file) {
    const std::string text = privateText(file);
    toml::table table;
    try {
        table = toml::parse(text);
    } catch (const toml::parse_error& error) {
        // Not the parser's own text, which may quote the secret key.
        refuse(file + ":" + std::to_string(error.source().begin.line), "not TOML");
    }
    KeyPair keys{keyIn(table, "public", file), keyIn(table, "secret", file)};
    if (keys.publicKey.size() == earlierKeyCharacters && keys.secretKey.size() == earlierKeyCharacters)
        refuse(file,
               "keys of an earlier version, which cannot be used any more: move the file away, make a new pair with "
               "'tvctl keygen " +
                   file + "' and give its public key to the other hosts");
    const std::string publicKey = publicKeyOf(keys.secretKey);
    if (publicKey.empty() || publicKey != keys.publicKey) refuse(file, "its keys are not a pair");
    return keys;
}

void checkKey(const std::string& key, const std::string& what) {
    if (bytesOf(key)) return;
    const char* const hint =
        key.size() == earlierKeyCharacters ? " (that of an earlier version? see tvctl keygen)" : "";
    throw std::runtime_error(what + ": not a key of " + std::to_string(keyCharacters) + " characters: \"" + key + '"' +
                             hint);
}

} // namespace host
