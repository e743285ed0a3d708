#include "notification-text.h"

#include <string_view>

namespace demo {
namespace {

using nlohmann::json;

bool isZeroOrEmpty(const json& value) {
    return value == json(0) || value == json(false) || value == json("") || value == json::array();
}

std::string textOf(const std::string& name, const json& value) {
    if (value.is_object()) return name + ' ' + value.at("type").dump() + ':' + value.at("id").dump(); // a terminal
    if (value.is_array() && value.front().is_object()) return std::to_string(value.size()) + ' ' + name;
    return name + ' ' + (value.is_string() ? value.get<std::string>() : value.dump());
}

void append(std::string& text, const char* separator, const std::string& part) {
    text += (text.empty() ? "" : separator) + part;
}

// Calls use(name, value, what to show of it) for each member: of "track", the member "trackName" if there is one.
template <class Use> void eachMember(const json& object, const Use& use) {
    constexpr std::string_view ending = "Name";
    for (const auto& [name, value] : object.items()) {
        if (name.ends_with(ending) && object.contains(name.substr(0, name.size() - ending.size()))) continue;
        const auto named = object.find(name + std::string(ending));
        use(name, value, named == object.end() ? value : *named);
    }
}

std::string textOfRecord(const json& record) {
    std::string text;
    eachMember(record, [&](const std::string& name, const json& value, const json& shown) {
        if (!isZeroOrEmpty(value)) append(text, ", ", textOf(name, shown));
    });
    return text;
}

} // namespace

std::string textOfArguments(const json& arguments) {
    std::string text;
    eachMember(arguments, [&](const std::string& name, const json& argument, const json& shown) {
        if (argument.is_object())
            append(text, ", ", textOfRecord(argument));
        else if (argument.is_array())
            for (const json& record : argument) append(text, "; ", textOfRecord(record));
        else
            append(text, ", ", textOf(name, shown));
    });
    return text;
}

} // namespace demo
