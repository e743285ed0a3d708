#include <charconv>
#include <cstddef>
#include <media/service-id.h>
#include <system_error>

namespace media {

ServiceId serviceIdOf(const std::string& channel) {
    ServiceId id;
    const std::size_t slashes = channel.find("//");
    if (slashes == std::string::npos) return id;
    const char* at = channel.data() + slashes + 2;
    const char* const end = channel.data() + channel.size();
    for (std::int32_t* number : {&id.network, &id.stream, &id.service}) {
        const auto [stop, error] = std::from_chars(at, end, *number);
        if (error != std::errc{} || stop == end || *stop != '.') break;
        at = stop + 1;
    }
    return id;
}

} // namespace media
