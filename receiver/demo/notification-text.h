// Formats a notification's arguments as text.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace demo {

// The name and value of each number and text, with the name of a number that has one; of records, only the fields that
// are neither zero nor empty: "intParam1 2, terminal 0:0, 4 streams". Records of a list are separated by semicolons.
std::string textOfArguments(const nlohmann::json& arguments);

} // namespace demo
