#include "base/endpoint.h"

#include "base/file-descriptor.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <utility>

namespace host {
namespace {

constexpr std::string_view scheme = "tcp://";

std::string inBrackets(const std::string& host) {
    return host.find(':') == std::string::npos ? host : '[' + host + ']';
}

// Binds without the port, which the service itself may already use.
void checkThatItIsOurs(const std::string& service, const std::string& endpoint, const net::Address& address) {
    const io::FileDescriptor probe(::socket(address.data()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (probe && ::bind(probe.get(), address.data(), static_cast<socklen_t>(address.size())) == 0) return;
    if (errno == EADDRINUSE) return; // it is local, but all of its ports are in use
    throw std::runtime_error("service " + service + ": cannot listen at " + endpoint + ": " +
                             std::system_category().message(errno));
}

// Splits an endpoint with this scheme; nothing if it is malformed.
std::optional<HostPort> partsOf(const std::string& endpoint, unsigned lowestPort) {
    const auto colon = endpoint.rfind(':');
    HostPort hostPort{endpoint.substr(scheme.size(), colon < scheme.size() ? 0 : colon - scheme.size()),
                      endpoint.substr(colon + 1)};
    unsigned port = 0;
    const auto [end, error] = std::from_chars(hostPort.port.data(), hostPort.port.data() + hostPort.port.size(), port);
    const bool isPort = error == std::errc() && end == hostPort.port.data() + hostPort.port.size() &&
                        port >= lowestPort && port <= 65535 && hostPort.port.size() <= 5;
    std::string& host = hostPort.host;
    const bool opened = host.starts_with('['), closed = host.ends_with(']');
    if (opened && closed) host = host.substr(1, host.size() - 2);
    const bool isHost = !host.empty() && opened == closed && (opened || host.find(':') == std::string::npos);
    if (!isHost || !isPort) return std::nullopt;
    return hostPort;
}

std::string textOfMalformed(const std::string& endpoint) { return "not tcp://HOST:PORT: \"" + endpoint + '"'; }

} // namespace

bool isRemote(const std::string& endpoint) { return endpoint.starts_with(scheme); }

std::string problemOfEndpoint(const std::string& endpoint) {
    if (isRemote(endpoint)) return partsOf(endpoint, 0) ? "" : textOfMalformed(endpoint);
    if (endpoint.size() < sizeof(sockaddr_un::sun_path)) return {};
    return "socket path too long (" + std::to_string(endpoint.size()) + " bytes): " + endpoint;
}

HostPort hostPortOf(const std::string& service, const std::string& endpoint, unsigned lowestPort) {
    auto hostPort = partsOf(endpoint, lowestPort);
    if (!hostPort) throw std::runtime_error("service " + service + ": " + textOfMalformed(endpoint));
    return *std::move(hostPort);
}

HostPort listenAddressOf(const std::string& service, const std::string& endpoint) {
    HostPort hostPort = hostPortOf(service, endpoint);
    if (hostPort.host == "*") return hostPort;
    const net::Address address = net::addressesOf(service, endpoint, {hostPort.host, "0"}, AI_PASSIVE).front();
    checkThatItIsOurs(service, endpoint, address);
    hostPort.host = address.address().to_string();
    return hostPort;
}

bool isAnyAddress(const std::string& host) { return host == "*" || host == "0.0.0.0" || host == "::"; }

namespace net {

std::string textOf(const Address& address) {
    return std::string(scheme) + inBrackets(address.address().to_string()) + ':' + std::to_string(address.port());
}

std::vector<Address> addressesOf(const std::string& service, const std::string& endpoint, const HostPort& hostPort,
                                 int flags) {
    addrinfo hints{}, *found = nullptr;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    const int error = ::getaddrinfo(hostPort.host.c_str(), hostPort.port.c_str(), &hints, &found);
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> all(found, &::freeaddrinfo);
    std::vector<Address> addresses;
    for (const addrinfo* entry = error == 0 ? found : nullptr; entry; entry = entry->ai_next) {
        Address address;
        if ((entry->ai_family != AF_INET && entry->ai_family != AF_INET6) || entry->ai_addrlen > address.capacity())
            continue;
        std::memcpy(address.data(), entry->ai_addr, entry->ai_addrlen);
        address.resize(entry->ai_addrlen);
        addresses.push_back(address);
    }
    if (addresses.empty())
        throw std::runtime_error("service " + service + ": no address for the host of " + endpoint + ": " +
                                 gai_strerror(error != 0 ? error : EAI_NONAME));
    return addresses;
}

} // namespace net
} // namespace host
