// What the reference MM service can show.
#pragma once

#include <cstdint>
#include <string>

namespace services {

// result::done, result::cannotOpenFile for a local path that is not a readable file, or result::unsupportedUri.
std::int32_t checkMmUri(const std::string& uri);

// The path that a file:// or fsl2:// URI names: what follows the scheme, without the authority "localhost",
// percent-decoded. A percent sign without two hex digits after it stays as it is.
std::string localPathOf(const std::string& uri);

} // namespace services
