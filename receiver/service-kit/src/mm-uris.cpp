#include <ov/uri.h>
#include <tvservice-adapter/service/mm-uris.h>
#include <tvservice-adapter/service/result.h>

#include <algorithm>
#include <charconv>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace services {

namespace {

bool skip(std::string_view& text, std::string_view prefix) {
    if (!text.starts_with(prefix)) return false;
    text.remove_prefix(prefix.size());
    return true;
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    while (!text.empty()) {
        unsigned char byte = 0;
        if (text.size() >= 3 && text[0] == '%' &&
            std::from_chars(text.data() + 1, text.data() + 3, byte, 16).ptr == text.data() + 3) {
            decoded += static_cast<char>(byte);
            text.remove_prefix(3);
        } else {
            decoded += text[0];
            text.remove_prefix(1);
        }
    }
    return decoded;
}

bool isReadableFile(const std::string& path) {
    if (path.find('\0') != std::string::npos) return false;
    // O_NONBLOCK avoids waiting for the writer of a named pipe.
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return false;
    struct stat status {};
    const bool regular = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    close(descriptor);
    return regular;
}

// Whether an address of the network names a host, and can be sent as it is.
bool namesAHost(std::string_view uri) {
    const auto cannotBeSent = [](unsigned char byte) { return byte <= ' ' || byte == 0x7F; };
    if (std::any_of(uri.begin(), uri.end(), cannotBeSent)) return false;
    uri.remove_prefix(uri.find(':') + 1);
    return skip(uri, "//") && !uri.empty() && std::string_view("/:?#").find(uri.front()) == std::string_view::npos;
}

} // namespace

std::string localPathOf(const std::string& uri) {
    std::string_view rest = uri;
    rest.remove_prefix(std::min(rest.find(':'), rest.size() - 1) + 1);
    if (skip(rest, "//") && !rest.starts_with('/')) skip(rest, "localhost");
    return percentDecoded(rest);
}

std::int32_t checkMmUri(const std::string& uri) {
    namespace Scheme = ov::orveltools::uri::Scheme;
    const std::string scheme = ov::orveltools::uri::LtUri(uri).getScheme();
    if (scheme == Scheme::File || scheme == Scheme::Fsl2)
        return isReadableFile(localPathOf(uri)) ? result::done : result::cannotOpenFile;
    if (scheme == Scheme::Http || scheme == Scheme::Https || scheme == Scheme::Rtp)
        return namesAHost(uri) ? result::done : result::unsupportedUri;
    for (const std::string* shown : {&Scheme::Miracast, &Scheme::External, &Scheme::YouTube, &Scheme::YouTubeV4})
        if (scheme == *shown) return result::done;
    return result::unsupportedUri;
}

} // namespace services
