#include <ov/uri.h>

namespace ov::orveltools::uri {

// Among the library's first initialisers, because others may use these.
namespace Scheme {
[[gnu::init_priority(101)]] const std::string File = "file";
[[gnu::init_priority(101)]] const std::string Fsl2 = "fsl2";
[[gnu::init_priority(101)]] const std::string Http = "http";
[[gnu::init_priority(101)]] const std::string Https = "https";
[[gnu::init_priority(101)]] const std::string Miracast = "miracast";
[[gnu::init_priority(101)]] const std::string External = "external";
[[gnu::init_priority(101)]] const std::string YouTube = "youtube";
[[gnu::init_priority(101)]] const std::string YouTubeV4 = "youtubev4";
[[gnu::init_priority(101)]] const std::string Rtp = "rtp";
} // namespace Scheme

namespace {

// ASCII only, whatever the process's locale.
constexpr bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool continuesScheme(char c) {
    return isLetter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}
constexpr char lowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string schemeOf(const std::string& uri) {
    if (uri.empty() || !isLetter(uri[0])) return {};
    std::size_t length = 1;
    while (length < uri.size() && continuesScheme(uri[length])) ++length;
    if (length == uri.size() || uri[length] != ':') return {};
    std::string scheme = uri.substr(0, length);
    for (char& c : scheme) c = lowerCase(c);
    return scheme;
}

} // namespace

LtUri::LtUri(const std::string& uri) : uri_(uri), scheme_(schemeOf(uri)) {}

} // namespace ov::orveltools::uri
