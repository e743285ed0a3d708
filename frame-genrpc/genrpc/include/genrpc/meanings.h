// Lists of what fields and arguments mean, and checks by the compiler that they are complete.
//
// For each record, and for each message with arguments that are no records, a function gives the meanings in the order
// of the fields or arguments:
//
//     GENRPC_MEANINGS(MyPoint_t, {"x", "millimetres from the left"}, {"label", "for people"})
//     MY_RECORDS(GENRPC_CHECK_RECORD_MEANINGS)
#pragma once

#include <genrpc/flatten.h>
#include <genrpc/values.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

namespace genrpc {

// Whether the fields of a record say what an argument of type T means.
template <class T> inline constexpr bool isOfRecords = requires { typename T::Flat; };
template <class E> inline constexpr bool isOfRecords<std::vector<E>> = isOfRecords<E>;

// Whether a message has meanings of its own.
template <class Message>
inline constexpr bool hasMeanings = []<class... Args>(std::type_identity<std::tuple<Args...>>) {
    return (!isOfRecords<Args> || ...);
}(std::type_identity<typename Message::Body::Arguments>{});

// The meanings of a record's fields, or of a message's arguments; found by argument-dependent lookup.
template <class T> inline constexpr auto meanings = meaningsOf(std::type_identity<T>{});

// The names of a record's fields, in order.
template <class Record> consteval auto fieldNames() {
    return std::apply([](const auto&... field) { return std::array{std::string_view(field.name)...}; },
                      Record::Flat::fields());
}

// Whether the meanings are those of the names, in order.
template <class T, class Names> consteval bool describes(const Names& names) {
    return std::equal(names.begin(), names.end(), meanings<T>.begin(), meanings<T>.end(),
                      [](std::string_view name, const Meaning& meaning) { return name == meaning.field; });
}
template <class Message> consteval bool hasAllMeanings() {
    if constexpr (hasMeanings<Message>)
        return describes<Message>(Message::arguments);
    else
        return true;
}

// The meanings of a record whose fields are among those of another one.
template <class Record, class Other> consteval auto meaningsLike() {
    constexpr auto names = fieldNames<Record>();
    std::array<Meaning, names.size()> some{};
    for (std::size_t i = 0; i < names.size(); ++i)
        some[i] = *std::find_if(meanings<Other>.begin(), meanings<Other>.end(),
                                [&](const Meaning& meaning) { return names[i] == meaning.field; });
    return some;
}

} // namespace genrpc

#define GENRPC_MEANINGS(Type, ...) \
    consteval auto meaningsOf(std::type_identity<Type>) { return std::to_array<::genrpc::Meaning>({__VA_ARGS__}); }

#define GENRPC_CHECK_RECORD_MEANINGS(family, Record, FIELDS)                   \
    static_assert(::genrpc::describes<Record>(::genrpc::fieldNames<Record>()), \
                  "each field of " #Record " needs its meaning, in the order of the fields");
#define GENRPC_CHECK_MESSAGE_MEANINGS(service, direction, Name, ...) \
    static_assert(::genrpc::hasAllMeanings<messages::Name>(),        \
                  "each argument of " #Name " needs its meaning, in their order");
