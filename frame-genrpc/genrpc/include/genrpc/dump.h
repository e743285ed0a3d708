// Records as JSON, for tools, services and tests: an object with the record's fields by name, in their order. As text:
// toJson(record).dump(2).
#pragma once

#include <genrpc/flatten.h>

#include <nlohmann/json.hpp>
#include <string>
#include <type_traits>
#include <vector>

namespace genrpc {

using Json = nlohmann::ordered_json;

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

// The text of a record for people. Strings need not be UTF-8: what is not is replaced.
template <class R> std::string toText(const R& record) {
    return std::string(R::recordName) + " " + toJson(record).dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace genrpc
