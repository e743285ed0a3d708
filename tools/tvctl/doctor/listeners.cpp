#include "listeners.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>
#include <vector>

namespace tvctl::doctor {
namespace {

// An address as the system's tables print it. IPv4 addresses are mapped to IPv6, as in a dual-stack socket.
std::string inSocketTables(const std::string& host) {
    in6_addr address{};
    const std::string numeric = host.substr(0, host.find('%')); // without the scope id
    inet_pton(AF_INET6, (numeric.find(':') == std::string::npos ? "::ffff:" + numeric : numeric).c_str(), &address);
    std::array<std::uint32_t, 4> words{};
    std::memcpy(words.data(), &address, sizeof address);
    char text[33];
    std::snprintf(text, sizeof text, "%08X%08X%08X%08X", words[0], words[1], words[2], words[3]);
    return text;
}

std::optional<uid_t> listenerIn(const char* table, const std::string& prefix, const std::vector<std::string>& addresses,
                                unsigned port) {
    constexpr std::string_view listening = "0A";
    std::ifstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string number, own, other, state, queues, timer, retransmissions;
        uid_t user = 0;
        if (!(words >> number >> own >> other >> state >> queues >> timer >> retransmissions >> user) ||
            state != listening)
            continue;
        const auto colon = own.rfind(':');
        unsigned ownPort = 0;
        std::from_chars(own.data() + colon + 1, own.data() + own.size(), ownPort, 16);
        if (ownPort == port &&
            std::find(addresses.begin(), addresses.end(), prefix + own.substr(0, colon)) != addresses.end())
            return user;
    }
    return std::nullopt;
}

} // namespace

unsigned portOf(const host::HostPort& hostPort) {
    unsigned port = 0;
    std::from_chars(hostPort.port.data(), hostPort.port.data() + hostPort.port.size(), port);
    return port;
}

std::optional<uid_t> listenerAt(const host::HostPort& hostPort) {
    const std::string anyIpv4 = inSocketTables("0.0.0.0"), anyIpv6 = inSocketTables("::");
    const std::vector<std::string> addresses{
        anyIpv6, anyIpv4, host::isAnyAddress(hostPort.host) ? anyIpv6 : inSocketTables(hostPort.host)};
    const std::string prefix = anyIpv4.substr(0, anyIpv4.size() - 8);
    const auto user = listenerIn("/proc/net/tcp6", "", addresses, portOf(hostPort));
    return user ? user : listenerIn("/proc/net/tcp", prefix, addresses, portOf(hostPort));
}

} // namespace tvctl::doctor
