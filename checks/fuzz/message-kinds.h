// Every kind of message with what a check needs of it, made of the services' lists: a new message is checked from its
// first build on.
#pragma once

#include "support/tv-messages.h"
#include "wire-model.h"

#include <genrpc/message.h>

#include <array>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace checks {

// The value of plain arguments, as the model tells it of their message.
inline void append(model::Value& out, bool flag) { out.scalar(flag ? 1 : 0, 4); }
inline void append(model::Value& out, const std::string& text) { out.text(text); }
template <class T> void append(model::Value& out, const std::vector<T>& list);
template <class T> void append(model::Value& out, const T& value) {
    if constexpr (std::is_enum_v<T> || std::is_arithmetic_v<T>)
        // Only as many bytes as travel, whatever the sign.
        out.scalar(static_cast<std::uint32_t>(value) & (UINT32_MAX >> (32 - 8 * sizeof(T))), sizeof(T));
    else
        std::apply([&](const auto&... field) { (append(out, value.*field.plain), ...); }, T::Flat::fields());
}
template <class T> void append(model::Value& out, const std::vector<T>& list) {
    out.list(static_cast<std::uint32_t>(list.size()));
    for (const T& element : list) append(out, element);
}
template <class... T> std::string valueOf(const std::tuple<T...>& arguments) {
    model::Value value;
    std::apply([&](const T&... argument) { (append(value, argument), ...); }, arguments);
    return value.take();
}

struct Kind {
    const char* service;
    const char* name;
    const vdl::EndianTable* table;
    std::string (*valueAt)(const void* body); // of a message that has been unmarshalled
};

template <class Message> constexpr Kind kindOf(const char* service) {
    // Without arguments a message is one byte, which means nothing and is looked at by nobody.
    return {service, Message::name, Message::table(),
            [](const void* body) { return valueOf(Message::Body::read(body)); }};
}

#define CHECKS_KIND(service, direction, Name, ...) kindOf<service::messages::Name>(#service),
inline constexpr std::array kinds{TVSERVICE_MESSAGES(CHECKS_KIND) MMSERVICE_MESSAGES(CHECKS_KIND)};
#undef CHECKS_KIND

inline const model::Flags& flags() {
    static const model::Flags all = [] {
        model::Flags found;
        const auto record = [&]<class Record>() {
            const auto field = [&]<class F>(const F& one) {
                using Type = typename genrpc::MemberType<decltype(one.flat)>::Type;
                if constexpr (std::is_same_v<Type, genrpc::WideBool>)
                    found.insert({Record::Flat::table(), static_cast<std::uint32_t>(one.offset)});
            };
            std::apply([&](const auto&... one) { (field(one), ...); }, Record::Flat::fields());
        };
        // The only ones that have flags.
        [&]<class... Record>(support::TypeList<Record...>) {
            (record.template operator()<Record>(), ...);
        }(support::StreamRecords{});
        return found;
    }();
    return all;
}

} // namespace checks
