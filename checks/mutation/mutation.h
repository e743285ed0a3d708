// What the rewritten sources ask: whether a mutant is the one that is looked at. Every source is compiled with this
// before its first line.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <type_traits>
#include <unistd.h>

namespace mutation {

// MUTANT names the mutant, none when unset. MUTANTS_REACHED names a file with a byte for each, which is set when a
// program comes by: a mapped file, so that processes that are killed or abort tell it as well.
struct State {
    int chosen = -1;
    char* reached = nullptr;

    State() {
        if (const char* number = std::getenv("MUTANT")) chosen = std::atoi(number);
        const char* path = std::getenv("MUTANTS_REACHED");
        const int file = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
        if (file < 0) return;
        const auto bytes = static_cast<std::size_t>(lseek(file, 0, SEEK_END));
        void* mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (mapped != MAP_FAILED) reached = static_cast<char*>(mapped);
    }
};

inline bool on(int mutant) noexcept {
    static const State state;
    if (state.reached) state.reached[mutant] = 1;
    return state.chosen == mutant;
}

// In what the compiler may evaluate: there, no mutant is on.
constexpr bool onUnlessConstant(int mutant) noexcept {
    if (__builtin_is_constant_evaluated()) return false;
    return on(mutant);
}

// Another value for a log line to print, of the same type.
template <class T> T other(bool wanted, T value) {
    if (!wanted) return value;
    if constexpr (std::is_convertible_v<T, const char*>) {
        return const_cast<T>("mutated");
    } else if constexpr (std::is_pointer_v<T>) {
        return value ? nullptr : reinterpret_cast<T>(16);
    } else {
        return static_cast<T>(value + 1);
    }
}

} // namespace mutation
