// Writes the body of a message from its arguments, as BodyReader returned them with plain numbers.
#pragma once

#include "body-reader.h"

#include <bit>
#include <string>

namespace recording {

// The JSON must have every field, each with a value of its kind.
std::string writeBody(const Layout& arguments, const Json& content, std::endian order);

} // namespace recording
