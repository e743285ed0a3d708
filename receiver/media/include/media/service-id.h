// The numbers in the address of a channel.
#pragma once

#include <cstdint>
#include <string>

namespace media {

// The three numbers in dvb://NETWORK.STREAM.SERVICE; missing or malformed numbers are 0.
struct ServiceId {
    std::int32_t network = 0;
    std::int32_t stream = 0;
    std::int32_t service = 0;
    bool operator==(const ServiceId&) const = default;
};
ServiceId serviceIdOf(const std::string& channel);

} // namespace media
