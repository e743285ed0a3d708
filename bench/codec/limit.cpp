// The limit that ratios refer to: what a codec costs that is written by hand for nothing but speed. One pass for the
// size, one buffer that is kept, each member copied once; back with bounds checks. No terminators, no pointers, no
// other byte order, no message larger than what it was made for.
#include "codec/cases.h"
#include "codec/members.h"

#include <cstdint>
#include <utility>

namespace bench {
namespace {

template <class T> std::size_t sizeOf(const T& value) {
    if constexpr (std::is_arithmetic_v<T>) {
        return sizeof value;
    } else if constexpr (std::is_same_v<T, std::string>) {
        return 4 + value.size();
    } else if constexpr (Record<T>) {
        std::size_t size = 0;
        eachMember(value, [&](const auto& member) { size += sizeOf(member); });
        return size;
    } else {
        std::size_t size = 4;
        for (const auto& element : value) size += sizeOf(element);
        return size;
    }
}

template <class T> void put(char*& place, const T& value) {
    if constexpr (std::is_arithmetic_v<T>) {
        std::memcpy(place, &value, sizeof value);
        place += sizeof value;
    } else if constexpr (Record<T>) {
        eachMember(value, [&](const auto& member) { put(place, member); });
    } else {
        const auto count = static_cast<std::uint32_t>(value.size());
        put(place, count);
        if constexpr (std::is_same_v<T, std::string>) {
            std::memcpy(place, value.data(), count);
            place += count;
        } else {
            for (const auto& element : value) put(place, element);
        }
    }
}

[[noreturn, gnu::cold, gnu::noinline]] void cutShort() { throw std::out_of_range("message cut short"); }

struct Reader {
    const char *place, *end;

    [[gnu::always_inline]] const char* take(std::size_t size) {
        if (static_cast<std::size_t>(end - place) < size) cutShort();
        return std::exchange(place, place + size);
    }
    template <class T> void get(T& value) {
        if constexpr (std::is_arithmetic_v<T>) {
            std::memcpy(&value, take(sizeof value), sizeof value);
        } else if constexpr (Record<T>) {
            eachMember(value, [&](auto& member) { get(member); });
        } else {
            std::uint32_t count;
            get(count);
            if constexpr (std::is_same_v<T, std::string>) {
                const char* text = take(count);
                value.assign(text, count);
            } else {
                if (count > static_cast<std::size_t>(end - place)) cutShort();
                value.resize(count);
                for (auto& element : value) get(element);
            }
        }
    }
};

class Limit {
public:
    template <class Plain> WireBytes encode(const Plain& plain) {
        const std::size_t size = sizeOf(plain);
        if (size > capacity_) {
            buffer_ = std::make_unique_for_overwrite<char[]>(size);
            capacity_ = size;
        }
        char* place = buffer_.get();
        put(place, plain);
        return {buffer_.get(), size};
    }
    template <class Plain> Plain decode(char* bytes, std::size_t size) {
        Plain plain;
        Reader{bytes, bytes + size}.get(plain);
        return plain;
    }

private:
    std::unique_ptr<char[]> buffer_;
    std::size_t capacity_ = 0;
};

} // namespace

Codec limitCodec() { return codecOf<Limit>("limit"); }

} // namespace bench
