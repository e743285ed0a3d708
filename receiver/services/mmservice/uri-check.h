// What the MM service can show.
#pragma once

#include <cstdint>
#include <string>

namespace services {

// result::done, result::cannotOpenFile for a local path that is no readable file, or result::unsupportedUri.
std::int32_t checkMmUri(const std::string& uri);

// The path that a file:// or fsl2:// URI names: what follows the scheme, without the authority "localhost",
// percent-decoded. A percent sign that two hex digits do not follow stands for itself.
std::string localPathOf(const std::string& uri);

} // namespace services
