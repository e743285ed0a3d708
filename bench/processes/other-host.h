// Configures the TV service's endpoint as if it were on another host: at a port of this machine, with one key pair for
// both sides.
#pragma once

#include <host/keys.h>

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace bench {

// A currently unused port. Throws std::system_error.
inline int freePort() {
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const bool good = ::bind(probe, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                      ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    const int error = errno;
    ::close(probe);
    if (!good) throw std::system_error(error, std::generic_category(), "no free port");
    return ntohs(address.sin_port);
}

// Takes effect for the rest of this process and for its child processes. Also throws std::runtime_error.
inline void configureRemoteTvService(const std::filesystem::path& folder) {
    const host::KeyPair keys = host::makeKeys();
    const std::string file = folder / "own.key";
    host::writeKeys(file, keys);
    setenv("TVSA_ENDPOINT_TVSERVICE", ("tcp://127.0.0.1:" + std::to_string(freePort())).c_str(), 1);
    setenv("TVSA_KEY_FILE", file.c_str(), 1);
    setenv("TVSA_SERVICE_KEY_TVSERVICE", keys.publicKey.c_str(), 1);
    setenv("TVSA_CLIENT_KEYS", keys.publicKey.c_str(), 1);
}

} // namespace bench
