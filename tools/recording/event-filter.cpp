#include "event-filter.h"

#include "described-event.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

namespace recording {
namespace {

using Json = nlohmann::ordered_json;
using Names = std::set<std::string>;

bool has(const Json& event, const char* member, const Names& names) {
    const auto value = event.find(member);
    return names.empty() || (value != event.end() && value->is_string() && names.count(value->get<std::string>()) > 0);
}

// Those of the message's sender or of one of its receivers.
bool hasProcess(const Json& event, const Names& names) {
    if (has(event, "process", names)) return true;
    const auto receivers = event.find("receivers");
    return receivers != event.end() && std::any_of(receivers->begin(), receivers->end(), [&](const Json& receiver) {
               return has(receiver, "process", names);
           });
}

// Whether check is true for a value in the arguments. name: of its field.
template <class Check> bool anyValue(const Json& value, const std::string& name, const Check& check) {
    if (check(value, name)) return true;
    if (value.is_array())
        return std::any_of(value.begin(), value.end(), [&](const Json& each) { return anyValue(each, name, check); });
    if (!value.is_object()) return false;
    for (const auto& [key, member] : value.items())
        if (anyValue(member, key, check)) return true;
    return false;
}

// As a word of its own: 0:1 is neither in 0:10 nor in 10:1.
bool mentions(const std::string& text, const std::string& word) {
    const auto isPart = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-'; };
    for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        const auto end = at + word.size();
        const bool begins = at == 0 || (!isPart(text[at - 1]) && text[at - 1] != ':');
        if (begins && (end == text.size() || !isPart(text[end]))) return true;
    }
    return false;
}

// In the arguments of a message, or in the text of another event.
template <class Check> bool concerns(const Json& event, const std::string& word, const Check& check) {
    if (word.empty()) return true;
    if (const auto arguments = event.find("arguments"); arguments != event.end())
        return anyValue(*arguments, "", check);
    const auto text = event.find("text");
    return text != event.end() && mentions(text->get<std::string>(), word);
}

bool concernsTerminal(const Json& event, const std::string& terminal) {
    return concerns(event, terminal, [&](const Json& value, const std::string&) {
        return isTerminal(value) && terminalText(value) == terminal;
    });
}

bool concernsRequest(const Json& event, const std::string& id) {
    return concerns(event, id,
                    [&](const Json& value, const std::string& name) { return name == "reqId" && value == id; });
}

bool hasText(const Json& event, const std::vector<std::string>& texts) {
    if (texts.empty()) return true;
    const std::string line = lineOf(event);
    return std::any_of(texts.begin(), texts.end(),
                       [&](const std::string& text) { return line.find(text) != std::string::npos; });
}

} // namespace

bool EventFilter::isEmpty() const {
    return messages.empty() && services.empty() && kinds.empty() && processes.empty() && terminal.empty() &&
           request.empty() && texts.empty() && !where;
}

bool EventFilter::accepts(const Json& event) const {
    return has(event, "message", messages) && has(event, "service", services) && has(event, "kind", kinds) &&
           hasProcess(event, processes) && concernsTerminal(event, terminal) && concernsRequest(event, request) &&
           (!where || where->holds(event)) && hasText(event, texts);
}

} // namespace recording
