// A condition as a tree, and its parser.
#pragma once

#include "condition.h"

#include <optional>
#include <string>
#include <vector>

namespace recording {

enum class Operator { equal, notEqual, less, greater, lessOrEqual, greaterOrEqual, contains };

struct Literal {
    std::string text;
    std::optional<double> number; // of a text that is a number and has no quotes
};

struct Condition::Node {
    enum class Kind { any, all, negation, comparison };
    Kind kind = Kind::comparison;
    std::vector<Node> parts; // of all but a comparison
    std::vector<std::string> path;
    Operator comparison{};
    Literal value;
};

// Throws ConditionError.
Condition::Node parseCondition(const std::string& text);

} // namespace recording
