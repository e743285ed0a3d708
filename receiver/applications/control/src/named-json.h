// A message's arguments as JSON with the names of their numbers: {"track":1,"trackName":"second programme"}.
#pragma once

#include <genrpc/json.h>
#include <tvservice/meanings.h>

#include <cstddef>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace control {

template <class T> genrpc::Json toNamedJson(const std::vector<T>& list);

// Adds a field or an argument, and after it the name of its number if it has one.
template <class T> void addNamed(genrpc::Json& object, const genrpc::Meaning& meaning, const T& value);

template <class T> genrpc::Json toNamedJson(const T& value) {
    if constexpr (requires { T::Flat::fields(); }) {
        auto object = genrpc::Json::object();
        auto meaning = genrpc::meanings<T>.begin();
        std::apply([&](const auto&... field) { (addNamed(object, *meaning++, value.*field.plain), ...); },
                   T::Flat::fields());
        return object;
    } else {
        return genrpc::toJson(value);
    }
}
template <class T> genrpc::Json toNamedJson(const std::vector<T>& list) {
    auto array = genrpc::Json::array();
    for (const auto& element : list) array.push_back(toNamedJson(element));
    return array;
}

template <class T> void addNamed(genrpc::Json& object, const genrpc::Meaning& meaning, const T& value) {
    object[meaning.field] = toNamedJson(value);
    if constexpr (std::is_enum_v<T> || std::is_integral_v<T>)
        if (meaning.values) object[std::string(meaning.field) + "Name"] = nameOf(*meaning.values, value);
}

// Of a message.
template <class Message, class... Args> genrpc::Json argumentsToNamedJson(const Args&... args) {
    auto object = genrpc::Json::object();
    [[maybe_unused]] std::size_t index = 0;
    if constexpr (genrpc::hasMeanings<Message>)
        (addNamed(object, genrpc::meanings<Message>[index++], args), ...);
    else
        ((object[Message::arguments[index++]] = toNamedJson(args)), ...);
    return object;
}

} // namespace control
