// Records and messages as JSON, for tools, services and tests. A record is an object with its fields by name, in their
// order; a message's arguments are an object with each argument by its name.
#pragma once

#include <genrpc/flatten.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace genrpc {

using Json = nlohmann::ordered_json;

// JSON as text for users and tools. Invalid UTF-8 in strings is replaced.
inline std::string textOf(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

// ---- to JSON ----

template <class T> Json toJson(const std::vector<T>& list);

template <class T> Json toJson(const T& value) {
    if constexpr (std::is_enum_v<T>) {
        return static_cast<std::underlying_type_t<T>>(value);
    } else if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, std::string>) {
        return value;
    } else {
        Json object = Json::object();
        std::apply([&](const auto&... field) { ((object[field.name] = toJson(value.*field.plain)), ...); },
                   T::Flat::fields());
        return object;
    }
}
template <class T> Json toJson(const std::vector<T>& list) {
    Json array = Json::array();
    for (const auto& element : list) array.push_back(toJson(element));
    return array;
}

// A record as text for users.
template <class R> std::string toText(const R& record) {
    return std::string(R::recordName) + " " + textOf(toJson(record));
}

// A message's arguments.
template <class Message, class... Args> Json argumentsToJson(const Args&... args) {
    Json object = Json::object();
    std::size_t index = 0;
    ((object[Message::arguments[index++]] = toJson(args)), ...);
    return object;
}

// ---- from JSON ----

// An error in the JSON of a record; the text begins with the field's path.
struct JsonError : std::invalid_argument {
    JsonError(const std::string& path, const std::string& problem)
        : std::invalid_argument((path.empty() ? "the value" : path) + ": " + problem) {}
};

template <class T> void fromJson(const Json& json, const std::string& path, std::vector<T>& list);
template <class T> void fromJson(const Json& json, const std::string& path, T& value);

// Reads one member of an object; leaves value unchanged if it is missing.
template <class T> void memberFromJson(const Json& object, const std::string& path, const char* name, T& value) {
    if (const auto member = object.find(name); member != object.end())
        fromJson(*member, path.empty() ? name : path + "." + name, value);
}
// Throws JsonError unless json is an object and known(name) is true for each of its members.
template <class Known> void checkMembers(const Json& json, const std::string& path, const Known& known) {
    if (!json.is_object()) throw JsonError(path, "wanted an object");
    for (const auto& [name, member] : json.items())
        if (!known(name)) throw JsonError(path, "there is no field \"" + name + '"');
}

template <class N> void numberFromJson(const Json& json, const std::string& path, N& number) {
    if (json.is_number_unsigned()) {
        if (std::in_range<N>(json.get<std::uint64_t>())) return void(number = json.get<N>());
    } else if (json.is_number_integer()) {
        if (std::in_range<N>(json.get<std::int64_t>())) return void(number = json.get<N>());
    } else {
        throw JsonError(path, "wanted an integer");
    }
    throw JsonError(path, json.dump() + " does not fit into " + std::to_string(8 * sizeof(N)) + " bits");
}

// Throws JsonError; value may then be partly changed.
template <class T> void fromJson(const Json& json, const std::string& path, T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        if (!json.is_string()) throw JsonError(path, "wanted a string");
        value = json.get<std::string>();
    } else if constexpr (std::is_same_v<T, bool>) {
        if (!json.is_boolean()) throw JsonError(path, "wanted true or false");
        value = json.get<bool>();
    } else if constexpr (std::is_enum_v<T>) {
        std::underlying_type_t<T> number{};
        numberFromJson(json, path, number);
        value = static_cast<T>(number);
    } else if constexpr (std::is_arithmetic_v<T>) {
        numberFromJson(json, path, value);
    } else {
        std::apply(
            [&](const auto&... field) {
                checkMembers(json, path, [&](const std::string& name) { return ((name == field.name) || ...); });
                (memberFromJson(json, path, field.name, value.*field.plain), ...);
            },
            T::Flat::fields());
    }
}
template <class T> void fromJson(const Json& json, const std::string& path, std::vector<T>& list) {
    if (!json.is_array()) throw JsonError(path, "wanted a list");
    std::vector<T> elements(json.size());
    for (std::size_t i = 0; i < json.size(); ++i) fromJson(json[i], path + "[" + std::to_string(i) + "]", elements[i]);
    list = std::move(elements);
}

// A message's arguments; missing ones are zero or empty. Throws JsonError.
template <class Message> typename Message::Body::Arguments argumentsFromJson(const Json& json) {
    typename Message::Body::Arguments arguments;
    checkMembers(json, "", [](const std::string& name) {
        return std::find(Message::arguments.begin(), Message::arguments.end(), name) != Message::arguments.end();
    });
    std::apply(
        [&](auto&... argument) {
            std::size_t index = 0;
            (memberFromJson(json, "", Message::arguments[index++], argument), ...);
        },
        arguments);
    return arguments;
}

} // namespace genrpc
