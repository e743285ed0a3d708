// The limit that ratios refer to: the cost of a codec written by hand for speed alone. Encoding makes one pass for the
// size, reuses its buffer, and copies each member once; decoding checks bounds. There are no terminators and pointers,
// no support for the other byte order, and no messages that outgrow their buffer.
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

template <class T> void put(char*& position, const T& value) {
    if constexpr (std::is_arithmetic_v<T>) {
        std::memcpy(position, &value, sizeof value);
        position += sizeof value;
    } else if constexpr (Record<T>) {
        eachMember(value, [&](const auto& member) { put(position, member); });
    } else {
        const auto count = static_cast<std::uint32_t>(value.size());
        put(position, count);
        if constexpr (std::is_same_v<T, std::string>) {
            std::memcpy(position, value.data(), count);
            position += count;
        } else {
            for (const auto& element : value) put(position, element);
        }
    }
}

[[noreturn, gnu::cold, gnu::noinline]] void throwTruncated() { throw std::out_of_range("truncated message"); }

struct Reader {
    const char *position, *end;

    [[gnu::always_inline]] const char* read(std::size_t size) {
        if (static_cast<std::size_t>(end - position) < size) throwTruncated();
        return std::exchange(position, position + size);
    }
    template <class T> void get(T& value) {
        if constexpr (std::is_arithmetic_v<T>) {
            std::memcpy(&value, read(sizeof value), sizeof value);
        } else if constexpr (Record<T>) {
            eachMember(value, [&](auto& member) { get(member); });
        } else {
            std::uint32_t count;
            get(count);
            if constexpr (std::is_same_v<T, std::string>) {
                const char* text = read(count);
                value.assign(text, count);
            } else {
                if (count > static_cast<std::size_t>(end - position)) throwTruncated();
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
        char* position = buffer_.get();
        put(position, plain);
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
