// Tables in text.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace tvctl {

using Row = std::array<std::string, 3>;

// A line for each row, without line feeds. All columns but the last are as wide as their longest cell.
std::vector<std::string> aligned(const std::vector<Row>& rows);

} // namespace tvctl
