// The platform's URI parser.
#pragma once

#include <string>

namespace ov::orveltools::uri {

// The schemes that the platform knows, as LtUri::getScheme returns them.
namespace Scheme {
extern const std::string File, Fsl2, Http, Https, Miracast, External, YouTube, YouTubeV4, Rtp;
}

// A parsed URI. Accepts any bytes; throws nothing but std::bad_alloc.
class LtUri {
public:
    explicit LtUri(const std::string& uri);

    // The scheme by RFC 3986 (ALPHA *( ALPHA / DIGIT / "+" / "-" / "." ) ":"), lower-cased; empty when there is none.
    std::string getScheme() const { return scheme_; }
    // The whole URI, unchanged.
    std::string getUri() const { return uri_; }

private:
    std::string uri_;
    std::string scheme_;
};

} // namespace ov::orveltools::uri
