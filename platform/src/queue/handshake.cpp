#include "handshake.h"

#include "byte-order.h"

#include <host/marshaller.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string_view>

namespace host::io {
namespace {

constexpr std::string_view magic = "tvsq";
constexpr std::uint32_t byteOrderMark = 0x01020304;
constexpr std::size_t fixedBytes = 32, messageBytes = 24;

template <class T> void put(std::string& out, T value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

std::uint64_t mixed(std::uint64_t seed, std::uint64_t value) {
    std::uint64_t x = (seed ^ value) + 0x9E3779B97F4A7C15u;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9u;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBu;
    return x ^ (x >> 31);
}

// The peer's name for the service may have any bytes.
std::string printable(const char* text, std::size_t size) {
    std::string result(text, std::min<std::size_t>(size, 64));
    for (char& c : result)
        if (c < ' ' || c > '~') c = '?';
    return result;
}

std::string hex(std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", value);
    return text;
}

Handshake::Judgement refused(std::string reason) {
    return {.verdict = Handshake::Verdict::Refused, .reason = std::move(reason)};
}

} // namespace

Handshake::Handshake(const std::string& service, const frame::MessageSet& messages, bool serving)
    : service_(service), serving_(serving) {
    for (const auto& message : messages) {
        if (!message.table)
            throw std::invalid_argument("service " + service + ": message " + message.name + " has no table");
        messages_.push_back({message.meta, fingerprint(*message.table), message.name});
        const auto& own = messages_.back();
        // A sum, so that the order in which a side lists its messages does not matter.
        std::uint64_t hash = mixed(mixed(own.meta.instance, own.meta.interfaceCode), own.meta.messageId);
        setFingerprint_ += mixed(mixed(hash, own.meta.flag), own.layout);
    }
    const std::size_t size = fixedBytes + service.size() + messages_.size() * messageBytes;
    if (size > maximumHelloBytes)
        throw std::invalid_argument("service " + service + ": " + std::to_string(messages_.size()) +
                                    " messages are too many for a hello");
    hello_.reserve(size);
    hello_ += magic;
    put(hello_, byteOrderMark);
    put(hello_, protocolVersion);
    put(hello_, static_cast<std::uint32_t>(size));
    put(hello_, static_cast<std::uint32_t>(service.size()));
    put(hello_, static_cast<std::uint32_t>(messages_.size()));
    put(hello_, setFingerprint_);
    hello_ += service;
    for (const auto& own : messages_) {
        put(hello_, own.meta.instance);
        put(hello_, own.meta.interfaceCode);
        put(hello_, own.meta.messageId);
        put(hello_, std::uint32_t{own.meta.flag});
        put(hello_, own.layout);
    }
}

Handshake::Judgement Handshake::judge(const char* data, std::size_t size) const {
    Judgement incomplete{.verdict = Verdict::Incomplete};
    if (std::string_view(data, std::min(size, magic.size())) != magic.substr(0, size))
        return refused("peer's first bytes are not a hello");
    if (size < 12) return incomplete;
    const std::uint32_t mark = load32(data + 4, false);
    const bool swap = mark == __builtin_bswap32(byteOrderMark);
    if (mark != byteOrderMark && !swap) return refused("peer's byte-order mark is " + hex(mark));
    if (const auto version = load32(data + 8, swap); version != protocolVersion)
        return refused("protocol version " + std::to_string(version) + ", ours is " + std::to_string(protocolVersion));
    if (size < fixedBytes) return incomplete;

    const std::uint64_t whole = load32(data + 12, swap), nameLength = load32(data + 16, swap);
    const std::uint64_t count = load32(data + 20, swap);
    if (whole > maximumHelloBytes) return refused("peer's hello claims " + std::to_string(whole) + " bytes");
    if (whole != fixedBytes + nameLength + count * messageBytes)
        return refused("peer's hello of " + std::to_string(whole) + " bytes contradicts its own counts");
    if (size < whole) return incomplete;
    const auto nameSize = static_cast<std::size_t>(nameLength), theirCount = static_cast<std::size_t>(count);

    if (std::string_view(data + fixedBytes, nameSize) != service_)
        return refused(std::string(serving_ ? "peer asks for service " : "peer offers service ") +
                       printable(data + fixedBytes, nameSize));
    if (load64(data + 24, swap) != setFingerprint_) {
        std::vector<Message> theirs;
        theirs.reserve(theirCount);
        for (std::size_t i = 0; i < theirCount; ++i) {
            const char* at = data + fixedBytes + nameSize + i * messageBytes;
            theirs.push_back({{load32(at, swap), load32(at + 4, swap), load32(at + 8, swap),
                               static_cast<std::uint8_t>(load32(at + 12, swap))},
                              load64(at + 16, swap),
                              {}});
        }
        return refused(difference(theirs));
    }
    return {.verdict = Verdict::Accepted, .size = static_cast<std::size_t>(whole), .swap = swap};
}

std::string Handshake::difference(const std::vector<Message>& theirs) const {
    const auto find = [](const std::vector<Message>& messages, const frame::MsgMeta& meta) {
        return std::find_if(messages.begin(), messages.end(), [&](const Message& m) { return m.meta == meta; });
    };
    for (const auto& own : messages_) {
        const std::string name = hex(own.meta.messageId) + " (" + own.name + ")";
        const auto other = find(theirs, own.meta);
        if (other == theirs.end()) return "peer does not know message " + name;
        if (other->layout != own.layout) return "peer's message " + name + " has another layout";
    }
    for (const auto& other : theirs)
        if (find(messages_, other.meta) == messages_.end())
            return "peer has message " + hex(other.meta.messageId) + ", which is unknown here";
    return "peer lists the same messages with another fingerprint of the set";
}

} // namespace host::io
