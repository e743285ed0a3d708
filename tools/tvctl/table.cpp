#include "table.h"

#include <algorithm>
#include <cstddef>

namespace tvctl {

std::vector<std::string> aligned(const std::vector<Row>& rows) {
    std::array<std::size_t, 2> widths{};
    for (const Row& row : rows)
        for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    std::vector<std::string> lines;
    for (const Row& row : rows) {
        std::string& line = lines.emplace_back();
        for (std::size_t i = 0; i < widths.size(); ++i)
            line += row[i] + std::string(widths[i] + 2 - row[i].size(), ' ');
        line += row.back();
    }
    return lines;
}

} // namespace tvctl
