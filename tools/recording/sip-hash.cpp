#include "sip-hash.h"

#include "words.h"

#include <cstddef>
#include <cstdio>

namespace recording {
namespace {

class State {
public:
    explicit State(const HashKey& key)
        : v_{key[0] ^ 0x736f6d6570736575, key[1] ^ 0x646f72616e646f6d, key[0] ^ 0x6c7967656e657261,
             key[1] ^ 0x7465646279746573} {}

    void add(std::uint64_t word) {
        v_[3] ^= word;
        rounds(2);
        v_[0] ^= word;
    }
    std::uint64_t finish() {
        v_[2] ^= 0xff;
        rounds(4);
        return v_[0] ^ v_[1] ^ v_[2] ^ v_[3];
    }

private:
    void rounds(int count) {
        for (int i = 0; i < count; ++i) {
            half(0, 1, 2, 3, 13, 16);
            half(2, 1, 0, 3, 17, 21);
        }
    }
    // One half of a round, as published: the second half has the words 0 and 2 exchanged.
    void half(std::size_t a, std::size_t b, std::size_t c, std::size_t d, int first, int second) {
        v_[a] += v_[b];
        v_[b] = std::rotl(v_[b], first) ^ v_[a];
        v_[a] = std::rotl(v_[a], 32);
        v_[c] += v_[d];
        v_[d] = std::rotl(v_[d], second) ^ v_[c];
    }

    std::array<std::uint64_t, 4> v_;
};

} // namespace

std::uint64_t sipHash(const HashKey& key, std::string_view text) {
    State state(key);
    const std::uint64_t length = text.size();
    for (; text.size() >= 8; text.remove_prefix(8)) state.add(load<std::uint64_t>(text, 0, std::endian::little));
    std::uint64_t last = length << 56;
    for (std::size_t i = 0; i < text.size(); ++i) last |= std::uint64_t{static_cast<unsigned char>(text[i])} << (8 * i);
    state.add(last);
    return state.finish();
}

std::string hexOf(std::uint64_t number) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(number));
    return text;
}

} // namespace recording
