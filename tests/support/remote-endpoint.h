// A service's endpoint on the transport between hosts, in the test's own process: address, keys and environment.
#pragma once

#include <host/keys.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace support {

// A port that is free at the moment.
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

// Configures a service at a port of this machine, with one key pair for both sides. The name is written as in
// variables: "TUNER".
class RemoteEndpoint {
public:
    RemoteEndpoint(const std::string& folder, const std::string& service)
        : port(freePort()),
          address("tcp://127.0.0.1:" + std::to_string(port)),
          keyFile(folder + "/own.key"),
          variables_{{"TVSA_ENDPOINT_" + service, address},
                     {"TVSA_KEY_FILE", keyFile},
                     {"TVSA_SERVICE_KEY_" + service, keys.publicKey},
                     {"TVSA_CLIENT_KEYS", keys.publicKey},
                     {"TVSA_HEARTBEAT_MS", "50"}} {
        host::writeKeys(keyFile, keys);
        for (const auto& [variable, value] : variables_) set(variable.c_str(), value);
    }
    ~RemoteEndpoint() {
        for (const auto& variable : variables_) unsetenv(variable.first.c_str());
    }
    RemoteEndpoint(const RemoteEndpoint&) = delete;
    RemoteEndpoint& operator=(const RemoteEndpoint&) = delete;

    static void set(const char* variable, const std::string& value) { setenv(variable, value.c_str(), 1); }

    const int port;
    const std::string address, keyFile;
    const host::KeyPair keys = host::makeKeys();

private:
    const std::map<std::string, std::string> variables_;
};

} // namespace support
