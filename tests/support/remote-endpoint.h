// A service's endpoint on the transport between hosts, for a test's own process: address, keys and environment.
#pragma once

#include <host/keys.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace support {

// A port that nobody has at the moment.
inline int freePort() {
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(0, ::bind(probe, reinterpret_cast<sockaddr*>(&address), size));
    EXPECT_EQ(0, ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size));
    ::close(probe);
    return ntohs(address.sin_port);
}

// Configures the service "tuner" at a port of this machine, with one pair of keys for both sides.
class RemoteEndpoint {
public:
    explicit RemoteEndpoint(const std::string& folder)
        : port(freePort()), address("tcp://127.0.0.1:" + std::to_string(port)), keyFile(folder + "/own.key") {
        host::writeKeys(keyFile, keys);
        set("TVSA_ENDPOINT_TUNER", address);
        set("TVSA_KEY_FILE", keyFile);
        set("TVSA_SERVICE_KEY_TUNER", keys.publicKey);
        set("TVSA_CLIENT_KEYS", keys.publicKey);
        set("TVSA_HEARTBEAT_MS", "50");
    }
    ~RemoteEndpoint() {
        for (const char* variable : {"TVSA_ENDPOINT_TUNER", "TVSA_KEY_FILE", "TVSA_SERVICE_KEY_TUNER",
                                     "TVSA_CLIENT_KEYS", "TVSA_HEARTBEAT_MS"})
            unsetenv(variable);
    }
    static void set(const char* variable, const std::string& value) { setenv(variable, value.c_str(), 1); }

    const int port;
    const std::string address, keyFile;
    const host::KeyPair keys = host::makeKeys();
};

} // namespace support
