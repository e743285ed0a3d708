#include "io/file-descriptor.h"

#include <host/keys.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <toml++/toml.h>
#include <unistd.h>
#include <zmq.h>

namespace host {
namespace {

constexpr std::size_t keyBytes = 32, keyCharacters = 40;
constexpr std::size_t longestFile = 4096;

[[noreturn]] void refuse(const std::string& file, const std::string& why) {
    throw std::runtime_error("key file " + file + ": " + why);
}
[[noreturn]] void refuseForError(const std::string& file) { refuse(file, std::system_category().message(errno)); }

// The public key that belongs to a secret one, if that is a key.
std::optional<std::string> publicKeyOf(const std::string& secretKey) {
    std::array<char, keyCharacters + 1> text{};
    if (secretKey.size() != keyCharacters || zmq_curve_public(text.data(), secretKey.c_str()) != 0) return std::nullopt;
    return text.data();
}

// The text of a file that is this user's own.
std::string privateText(const std::string& file) {
    const io::FileDescriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!opened || fstat(opened.get(), &status) != 0) refuseForError(file);
    if (!S_ISREG(status.st_mode)) refuse(file, "not a file");
    if (status.st_uid != geteuid() && status.st_uid != 0) refuse(file, "belongs to another user");
    if ((status.st_mode & 077) != 0) refuse(file, "open to other users (wanted: mode 0600)");
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

KeyPair makeKeys() {
    std::array<char, keyCharacters + 1> publicKey{}, secretKey{};
    if (zmq_curve_keypair(publicKey.data(), secretKey.data()) != 0)
        throw std::runtime_error(std::string("cannot make keys: ") + zmq_strerror(zmq_errno()));
    return {publicKey.data(), secretKey.data()};
}

void writeKeys(const std::string& file, const KeyPair& keys) {
    const io::FileDescriptor made(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!made) refuseForError(file);
    const std::string text =
        "# The keys of this machine. Others are told the public one; nobody else may read this file.\n"
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
        // Not the parser's own words, as they may quote the secret key.
        refuse(file + ":" + std::to_string(error.source().begin.line), "not TOML");
    }
    KeyPair keys{keyIn(table, "public", file), keyIn(table, "secret", file)};
    if (publicKeyOf(keys.secretKey) != keys.publicKey) refuse(file, "its keys are no pair of keys");
    return keys;
}

void checkKey(const std::string& key, const std::string& what) {
    std::array<std::uint8_t, keyBytes> bytes{};
    if (key.size() != keyCharacters || !zmq_z85_decode(bytes.data(), key.c_str()))
        throw std::runtime_error(what + ": not a key of 40 characters: \"" + key + '"');
}

} // namespace host
