// What is fed with arbitrary bytes. Each target takes one input, holds what comes of it against what must hold for all
// inputs, and ends the process when that is not so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

namespace fuzz {

using Input = std::span<const std::uint8_t>;

struct Target {
    std::string name; // also of its folder in the corpus
    void (*run)(Input);
};

// All of them, those of the messages first, in the order of the services' lists.
const std::vector<Target>& targets();
// Those that this build leaves out, because libraries are missing. The corpus has them, too.
const std::vector<std::string>& targetsLeftOut();

// The targets by file.
std::vector<Target> messageTargets(); // one for each kind of message
void encode(Input input);
void handshake(Input input);
void frames(Input input);
void tlsBefore(Input input);
void tlsInside(Input input);
void tables(Input input);
void packets(Input input);
void tableSections(Input input);
void distribution(Input input);
void json(Input input);
void shellLines(Input input);
void uris(Input input);
void channels(Input input);

inline void expect(bool holds, const std::string& what) {
    if (holds) return;
    std::fprintf(stderr, "fuzz: does not hold: %s\n", what.c_str());
    std::abort();
}

inline std::string textOf(Input input) { return std::string(input.begin(), input.end()); }

// The input's bytes one after the other; zeros when it has no more.
class Source {
public:
    explicit Source(Input input) : rest_(input) {}

    std::uint8_t byte() {
        if (rest_.empty()) return 0;
        const std::uint8_t first = rest_.front();
        rest_ = rest_.subspan(1);
        return first;
    }
    std::uint32_t number(unsigned bytes) {
        std::uint32_t value = 0;
        for (; bytes > 0; --bytes) value = value << 8 | byte();
        return value;
    }
    Input upTo(std::size_t count) {
        const Input taken = rest_.first(count < rest_.size() ? count : rest_.size());
        rest_ = rest_.subspan(taken.size());
        return taken;
    }
    Input rest() const { return rest_; }

private:
    Input rest_;
};

} // namespace fuzz
