// Conditions that people write about events: infos.result != 0 and not infos.uri ~ 'dvb:'
//
//   CONDITION   CONDITION or CONDITION, CONDITION and CONDITION, not CONDITION, (CONDITION), or PATH OPERATOR VALUE
//   PATH        names joined with dots: of an argument and the fields inside, or of a member of the event
//   OPERATOR    == != < > <= >=, or ~ for "contains the text"
//   VALUE       a number, a name of a number, true, false, or a text in quotes
//
// A path through a list means each of its elements: the condition holds if it does for one of them. A path that the
// event does not have fulfils no comparison.
#pragma once

#include <cstddef>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>

namespace recording {

// The text points at the character.
class ConditionError : public std::runtime_error {
public:
    using runtime_error::runtime_error;
};

class Condition {
public:
    // Throws ConditionError.
    explicit Condition(const std::string& text);
    Condition(Condition&&) noexcept;
    Condition& operator=(Condition&&) noexcept;
    ~Condition();

    // description: of an event, as describe returns it.
    bool holds(const nlohmann::ordered_json& description) const;

    struct Node;

private:
    std::unique_ptr<Node> root_;
};

} // namespace recording
