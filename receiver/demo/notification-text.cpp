#include "notification-text.h"

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

std::string textOfRecord(const json& record) {
    std::string text;
    for (const auto& [name, value] : record.items())
        if (!isZeroOrEmpty(value)) append(text, ", ", textOf(name, value));
    return text;
}

} // namespace

std::string textOfArguments(const json& arguments) {
    std::string text;
    for (const auto& [name, argument] : arguments.items())
        if (argument.is_object())
            append(text, ", ", textOfRecord(argument));
        else if (argument.is_array())
            for (const json& record : argument) append(text, "; ", textOfRecord(record));
        else
            append(text, ", ", textOf(name, argument));
    return text;
}

} // namespace demo
