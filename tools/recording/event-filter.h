// Which events to show or to record. All given filters must accept an event; of several values of one, any.
#pragma once

#include "condition.h"

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace recording {

struct EventFilter {
    std::set<std::string> messages, services, kinds, processes; // empty: all
    std::string terminal;                                       // "0:0"; empty: all
    std::string request;                                        // its id; empty: all
    std::vector<std::string> texts;                             // parts of the event's line
    std::optional<Condition> where;

    bool isEmpty() const;
    // description: of an event, as describe returns it.
    bool accepts(const nlohmann::ordered_json& description) const;
};

} // namespace recording
