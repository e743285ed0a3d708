// Converts messages to wire bytes and back, in this machine's byte order and in the other one.
#pragma once

#include <genrpc/message.h>
#include <host/marshaller.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>

namespace support {

using FlatBlock = std::unique_ptr<char, decltype(&vdlFlatFree)>;

inline std::string marshalled(const vdl::EndianTable& table, const void* form) {
    host::Bytes wire;
    host::marshal(host::planOf(table), form, wire, 1U << 20);
    return std::string(wire.data(), wire.size());
}

// The flat form of a received message. swap: the sender has the other byte order.
inline FlatBlock received(const vdl::EndianTable& table, const std::string& wire, bool swap) {
    FlatBlock block(static_cast<char*>(vdlFlatAlloc(wire.size())), vdlFlatFree);
    std::memcpy(block.get(), wire.data(), wire.size());
    if (const char* problem = host::unmarshal(host::planOf(table), block.get(), wire.size(), swap))
        throw std::invalid_argument(problem);
    return block;
}

namespace details {

inline void reverseForm(const vdl::EndianTable& table, std::string& wire, std::size_t at) {
    const auto word = [&](std::size_t place) {
        std::uint32_t value;
        std::memcpy(&value, wire.data() + place, sizeof value);
        return value;
    };
    const auto reverse = [&](std::size_t place, std::size_t width) {
        const auto begin = wire.begin() + static_cast<std::ptrdiff_t>(place);
        std::reverse(begin, begin + static_cast<std::ptrdiff_t>(width));
    };
    for (auto* entry = table.entries; entry->arg.word != vdl::EndianEntry::terminator; ++entry) {
        const std::size_t place = at + entry->offset;
        if (entry->kind == vdl::EndianNested) {
            reverseForm(*entry->arg.table, wire, place);
        } else if (entry->kind == vdl::EndianSequence) {
            for (std::size_t i = 0; i < word(place); ++i)
                reverseForm(*entry->arg.table, wire, word(place + 4) + i * entry->arg.table->size);
            reverse(place, 4);
            reverse(place + 4, 4);
        } else {
            reverse(place, entry->kind);
        }
    }
}

} // namespace details

// The message as a machine with the other byte order would send it.
inline std::string reversed(const vdl::EndianTable& table, std::string wire) {
    details::reverseForm(table, wire, 0);
    return wire;
}

// The flat body of a message, as a handler receives it.
template <class Message> class FlatBody {
public:
    explicit FlatBody(const typename Message::Body::Arguments& arguments)
        : region_(genrpc::FlatRegion::create(64)),
          body_(std::apply([&](const auto&... args) { return Message::Body::build(*region_, args...); }, arguments)) {}
    const char* get() const { return body_; }

private:
    genrpc::FlatRegion::Owner region_;
    const char* body_;
};

template <class Message> std::string wireOf(const typename Message::Body::Arguments& arguments) {
    return marshalled(*Message::table(), FlatBody<Message>(arguments).get());
}

// A message's arguments, or a record, after encoding and decoding.
template <class Message>
typename Message::Body::Arguments roundTripped(const typename Message::Body::Arguments& arguments, bool otherOrder) {
    const std::string wire = wireOf<Message>(arguments);
    const FlatBlock body =
        received(*Message::table(), otherOrder ? reversed(*Message::table(), wire) : wire, otherOrder);
    return Message::Body::read(body.get());
}
template <class Record> Record roundTripped(const Record& record, bool otherOrder) {
    using Form = typename Record::Flat;
    Form form(record);
    const std::string wire = marshalled(*Form::table(), &form);
    genrpc::release(form);
    const FlatBlock body = received(*Form::table(), otherOrder ? reversed(*Form::table(), wire) : wire, otherOrder);
    return *reinterpret_cast<const Form*>(body.get());
}

} // namespace support
