#include "remote/endpoint.h"

#include <charconv>
#include <memory>
#include <netdb.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>

namespace host {
namespace {
constexpr std::string_view scheme = "tcp://";
} // namespace

bool isRemote(const std::string& endpoint) { return endpoint.starts_with(scheme); }

namespace remote {

Place placeOf(const std::string& service, const std::string& endpoint, unsigned lowestPort) {
    const auto colon = endpoint.rfind(':');
    Place place{endpoint.substr(scheme.size(), colon < scheme.size() ? 0 : colon - scheme.size()),
                endpoint.substr(colon + 1)};
    unsigned port = 0;
    const auto [end, error] = std::from_chars(place.port.data(), place.port.data() + place.port.size(), port);
    const bool isPort = error == std::errc() && end == place.port.data() + place.port.size() && port >= lowestPort &&
                        port <= 65535 && place.port.size() <= 5;
    const bool bracketed =
        place.host.find(':') == std::string::npos || (place.host.front() == '[' && place.host.back() == ']');
    if (place.host.empty() || !isPort || !bracketed)
        throw std::runtime_error("service " + service + ": not tcp://HOST:PORT: \"" + endpoint + '"');
    if (place.host.front() == '[') place.host = place.host.substr(1, place.host.size() - 2);
    return place;
}

std::string resolved(const std::string& service, const std::string& endpoint, const Place& place, int flags) {
    addrinfo hints{}, *found = nullptr;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    const int error = ::getaddrinfo(place.host.c_str(), place.port.c_str(), &hints, &found);
    if (error != 0)
        throw std::runtime_error("service " + service + ": no address for the host of " + endpoint + ": " +
                                 gai_strerror(error));
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> all(found, ::freeaddrinfo);
    std::string host(NI_MAXHOST, '\0');
    if (::getnameinfo(all->ai_addr, all->ai_addrlen, host.data(), NI_MAXHOST, nullptr, 0, NI_NUMERICHOST) != 0)
        throw std::runtime_error("service " + service + ": no address for the host of " + endpoint);
    host.resize(host.find('\0'));
    return host.find(':') == std::string::npos ? host : '[' + host + ']';
}

} // namespace remote
} // namespace host
