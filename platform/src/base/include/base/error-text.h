// The text of an exception for the log.
#pragma once

#include <exception>
#include <new>

namespace host {

// Allocates no memory.
inline const char* textOf(const std::exception& error) noexcept {
    return dynamic_cast<const std::bad_alloc*>(&error) ? "out of memory" : error.what();
}

} // namespace host
