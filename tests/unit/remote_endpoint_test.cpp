// The parts of a network endpoint.
#include <host/endpoint.h>

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using host::HostPort;
using host::hostPortOf;

std::string partsOf(const std::string& endpoint) {
    const HostPort hostPort = hostPortOf("tuner", endpoint);
    return hostPort.host + ' ' + hostPort.port;
}

TEST(Endpoint, HasAHostAndAPort) {
    EXPECT_EQ(partsOf("tcp://*:0"), "* 0");
    EXPECT_EQ(partsOf("tcp://services.example:7401"), "services.example 7401");
    EXPECT_EQ(partsOf("tcp://127.0.0.1:65535"), "127.0.0.1 65535");
    EXPECT_EQ(partsOf("tcp://[::1]:7401"), "::1 7401");
    EXPECT_EQ(partsOf("tcp://[127.0.0.1]:7401"), "127.0.0.1 7401");
}

TEST(Endpoint, IsRejectedWithoutAHostOrAPort) {
    for (const char* endpoint :
         {"tcp://", "tcp://:", "tcp://host", "tcp://:7401", "tcp://host:", "tcp://host:65536", "tcp://host:-1",
          "tcp://host:7401x", "tcp://host:007401", "tcp://::1:7401", "tcp://[:7401", "tcp://[]:7401",
          "tcp://[127.0.0.1:7401", "tcp://127.0.0.1]:7401", "tcp://[::1:7401", "tcp://::1]:7401"}) {
        const std::string why = std::string("service tuner: not tcp://HOST:PORT: \"") + endpoint + '"';
        try {
            const std::string parts = partsOf(endpoint);
            ADD_FAILURE() << endpoint << " is " << parts;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), why);
        }
    }
    EXPECT_THROW(hostPortOf("tuner", "tcp://host:0", 1), std::runtime_error);
}

TEST(Endpoint, IsRemoteWhenItIsOnANetwork) {
    EXPECT_TRUE(host::isRemote("tcp://*:7401"));
    EXPECT_FALSE(host::isRemote("/run/tuner.sock"));
    for (const char* every : {"*", "0.0.0.0", "::"}) EXPECT_TRUE(host::isAnyAddress(every)) << every;
    EXPECT_FALSE(host::isAnyAddress("127.0.0.1"));
}

TEST(Endpoint, IsServedOnlyAtAnAddressOfThisMachine) {
    EXPECT_EQ(host::listenAddressOf("tuner", "tcp://localhost:7401").port, "7401");
    EXPECT_EQ(host::listenAddressOf("tuner", "tcp://127.0.0.1:1").host, "127.0.0.1");
    EXPECT_EQ(host::listenAddressOf("tuner", "tcp://*:7401").host, "*");
    EXPECT_THROW(host::listenAddressOf("tuner", "tcp://192.0.2.1:7401"), std::runtime_error);
}

} // namespace
