#include "condition.h"

#include "condition-node.h"
#include "described-event.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace recording {
namespace {

using Json = nlohmann::ordered_json;
using Node = Condition::Node;

bool fulfils(int order, Operator comparison) {
    switch (comparison) {
        case Operator::equal:
            return order == 0;
        case Operator::notEqual:
            return order != 0;
        case Operator::less:
            return order < 0;
        case Operator::greater:
            return order > 0;
        case Operator::lessOrEqual:
            return order <= 0;
        case Operator::greaterOrEqual:
            return order >= 0;
        case Operator::contains:
            break;
    }
    return false;
}

std::string plainText(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    return isTerminal(value) ? terminalText(value) : textOf(value);
}

// name: of the number, if it has one.
bool compares(const Json& value, const Json* name, const Node& node) {
    const Literal& wanted = node.value;
    if (node.comparison == Operator::contains)
        return plainText(value).find(wanted.text) != std::string::npos ||
               (name && plainText(*name).find(wanted.text) != std::string::npos);
    if (value.is_number() && wanted.number) {
        const auto number = value.get<double>();
        return fulfils(number < *wanted.number ? -1 : number > *wanted.number ? 1 : 0, node.comparison);
    }
    if (value.is_structured() && !isTerminal(value)) return false;
    return fulfils(plainText(value.is_number() && name ? *name : value).compare(wanted.text), node.comparison);
}

bool anyAt(const Json& value, const Json* name, const Node& node, std::size_t step) {
    if (value.is_array())
        return std::any_of(value.begin(), value.end(),
                           [&](const Json& element) { return anyAt(element, nullptr, node, step); });
    if (step == node.path.size()) return compares(value, name, node);
    if (!value.is_object()) return false;
    const auto member = value.find(node.path[step]);
    if (member == value.end()) return false;
    const auto named = value.find(node.path[step] + "Name");
    return anyAt(*member, named == value.end() ? nullptr : &*named, node, step + 1);
}

bool fulfilled(const Node& node, const Json& event) {
    const auto isFulfilled = [&](const Node& part) { return fulfilled(part, event); };
    switch (node.kind) {
        case Node::Kind::any:
            return std::any_of(node.parts.begin(), node.parts.end(), isFulfilled);
        case Node::Kind::all:
            return std::all_of(node.parts.begin(), node.parts.end(), isFulfilled);
        case Node::Kind::negation:
            return !isFulfilled(node.parts.front());
        case Node::Kind::comparison:
            break;
    }
    const auto arguments = event.find("arguments");
    const bool isArgument = arguments != event.end() && arguments->is_object() && arguments->contains(node.path[0]);
    return anyAt(isArgument ? *arguments : event, nullptr, node, 0);
}

} // namespace

Condition::Condition(const std::string& text) : root_(std::make_unique<Node>(parseCondition(text))) {}
Condition::Condition(Condition&&) noexcept = default;
Condition& Condition::operator=(Condition&&) noexcept = default;
Condition::~Condition() = default;

bool Condition::holds(const Json& description) const { return fulfilled(*root_, description); }

} // namespace recording
