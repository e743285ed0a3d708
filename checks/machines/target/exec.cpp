// Loaded into every program that the emulator runs. If such a program starts one that this machine's kernel cannot run,
// the emulator, whose path is in EMULATOR, runs it too.
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::size_t maxWords = 256; // of a command; a fixed array, as fork and exec allow no allocation between them

int failed(int error) {
    errno = error;
    return -1;
}

} // namespace

extern "C" int execve(const char* path, char* const arguments[], char* const environment[]) noexcept {
    syscall(SYS_execve, path, arguments, environment);
    const char* const emulator = std::getenv("EMULATOR");
    if (errno != ENOEXEC || emulator == nullptr || arguments[0] == nullptr) return -1;
    const char* words[maxWords] = {emulator, "-0", arguments[0], path};
    for (std::size_t i = 1; arguments[i] != nullptr; ++i) {
        if (i + 4 >= maxWords) return failed(E2BIG);
        words[i + 3] = arguments[i];
    }
    syscall(SYS_execve, emulator, words, environment);
    return -1;
}

extern "C" int execv(const char* path, char* const arguments[]) noexcept { return execve(path, arguments, environ); }
