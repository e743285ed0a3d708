// Two ends of a stream inside this process.
#pragma once

#include "io/file-descriptor.h"

#include <utility>

namespace host::remote {

// Neither end blocks. Throws std::system_error.
std::pair<io::FileDescriptor, io::FileDescriptor> socketPair();

} // namespace host::remote
