// Intercepts a process's system calls so that the check controls its wall clock and its run log's disk. Everything else
// reaches the system unchanged.
#include "control.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using surroundings::Control;
using surroundings::Disk;

Control* control() {
    static Control* const mapped = []() -> Control* {
        const char* const file = std::getenv(surroundings::controlVariable);
        const int descriptor = file == nullptr ? -1 : open(file, O_RDWR | O_CLOEXEC);
        if (descriptor < 0) return nullptr;
        void* const page = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        close(descriptor);
        return page == MAP_FAILED ? nullptr : static_cast<Control*>(page);
    }();
    return mapped;
}

bool isRunLog(int descriptor) {
    char path[512];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t size = readlink(link.c_str(), path, sizeof path - 1);
    if (size < 0) return false;
    path[size] = '\0';
    return std::strstr(path, "/runlog.sqlite") != nullptr;
}

// Waits while the disk is stalled. Returns the error of a write, or 0 if it may reach the system.
int diskError(int descriptor) {
    Control* const page = control();
    if (page == nullptr || page->disk == Disk::working || !isRunLog(descriptor)) return 0;
    if (page->disk == Disk::stalled) ++page->stalledWrites;
    while (page->disk == Disk::stalled) usleep(1000);
    return page->disk == Disk::full ? ENOSPC : page->disk == Disk::failing ? EIO : 0;
}

template <class Call> Call* next(const char* name) { return reinterpret_cast<Call*>(dlsym(RTLD_NEXT, name)); }

} // namespace

#define VISIBLE extern "C" [[gnu::visibility("default")]]

VISIBLE ssize_t pwrite64(int descriptor, const void* data, size_t size, off64_t offset) {
    static const auto real = next<ssize_t(int, const void*, size_t, off64_t)>("pwrite64");
    if (const int error = diskError(descriptor)) return errno = error, -1;
    return real(descriptor, data, size, offset);
}

VISIBLE int ftruncate64(int descriptor, off64_t size) noexcept {
    static const auto real = next<int(int, off64_t)>("ftruncate64");
    if (const int error = diskError(descriptor)) return errno = error, -1;
    return real(descriptor, size);
}

VISIBLE int fdatasync(int descriptor) {
    static const auto real = next<int(int)>("fdatasync");
    if (const int error = diskError(descriptor)) return errno = error, -1;
    return real(descriptor);
}

VISIBLE int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static const auto real = next<int(clockid_t, timespec*)>("clock_gettime");
    const int result = real(clock, time);
    if (result == 0 && clock == CLOCK_REALTIME)
        if (const Control* const page = control()) time->tv_sec += page->clockOffset;
    return result;
}
