// A notification's arguments for people.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace demo {

// Numbers and texts by their names; of records the fields that say something, that is neither zero nor empty:
// "intParam1 2, terminal 0:0, 4 streams". Records of a list are separated by semicolons.
std::string textOfArguments(const nlohmann::json& arguments);

} // namespace demo
