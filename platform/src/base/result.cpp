#include <host/result.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace host {
namespace {

// The meaning of a result of the platform where the system's description of the error does not fit.
const char* meaningOf(int error) noexcept {
    switch (error) {
        case EAGAIN:
            return "no room now";
        case ENOTCONN:
            return "not connected";
        case ESHUTDOWN:
            return "stopped";
        default:
            return strerrordesc_np(error);
    }
}

} // namespace

ResultText::ResultText(int result) noexcept {
    const char* const name = result < 0 && result > -4096 ? strerrorname_np(-result) : nullptr;
    if (name)
        std::snprintf(text_, sizeof text_, "%s, %s", name, meaningOf(-result));
    else
        std::snprintf(text_, sizeof text_, "%d", result);
}

} // namespace host
