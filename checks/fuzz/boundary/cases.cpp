#include "cases.h"

#include <cstddef>
#include <set>

namespace checks {
namespace {

// The other values for a byte: its neighbours on the number line, in bits, and the ends of the range.
std::set<unsigned char> otherValues(unsigned char byte, bool all) {
    std::set<unsigned char> values{0, 1, 0x7F, 0x80, 0xFF};
    for (unsigned bit = 0; bit < 8; ++bit) values.insert(static_cast<unsigned char>(byte ^ 1U << bit));
    values.insert(static_cast<unsigned char>(~byte));
    values.erase(byte);
    const std::size_t wanted = all ? 255 : 16;
    for (unsigned step = 1; values.size() < wanted; ++step)
        for (const unsigned other : {byte + step, byte + 256 - step % 256})
            if (static_cast<unsigned char>(other) != byte) values.insert(static_cast<unsigned char>(other));
    return values;
}

std::set<std::uint32_t> boundaryValues(std::uint32_t right, std::size_t messageSize) {
    std::set<std::uint32_t> values{0, 1, 1U << 15, UINT16_MAX, INT32_MAX, 1U << 31, UINT32_MAX};
    for (const std::uint32_t middle : {right, static_cast<std::uint32_t>(messageSize)})
        values.insert({middle - 1, middle, middle + 1});
    return values;
}

void store(std::string& message, std::size_t place, std::uint32_t word, bool bigEndian) {
    for (unsigned i = 0; i < 4; ++i) message[place + i] = static_cast<char>(word >> 8 * (bigEndian ? 3 - i : i));
}

} // namespace

void eachTruncation(const std::string& message, const TryMessage& use) {
    for (std::size_t size = 0; size < message.size(); ++size) use(message.substr(0, size));
}

void eachByteChange(const std::string& message, bool allValues, const TryMessage& use) {
    std::string changed = message;
    for (std::size_t i = 0; i < message.size(); ++i) {
        for (const unsigned char other : otherValues(static_cast<unsigned char>(message[i]), allValues)) {
            changed[i] = static_cast<char>(other);
            use(changed);
        }
        changed[i] = message[i];
    }
}

void eachPointerChange(const std::string& message, const std::vector<model::Pointer>& pointers, bool bigEndian,
                       const TryMessage& use) {
    for (const auto& pointer : pointers) {
        std::string changed = message;
        for (const std::uint32_t count : boundaryValues(pointer.count, message.size()))
            for (const std::uint32_t offset : boundaryValues(pointer.offset, message.size())) {
                store(changed, pointer.place, count, bigEndian);
                store(changed, pointer.place + 4, offset, bigEndian);
                if (changed != message) use(changed);
            }
    }
}

} // namespace checks
