#include "message-names.h"

#include <tvservice/messages.h>

#include <algorithm>
#include <cctype>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

namespace tvctl {
namespace {

#define TVCTL_NAME(service, direction, Name, ...) tvservice::messages::Name::name,
constexpr std::string_view notifications[] = {TVSERVICE_NOTIFICATIONS(TVCTL_NAME)};
#undef TVCTL_NAME

// The edit distance: letters to insert, delete or replace. Ignores case.
std::size_t distance(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (lower(a[i]) == lower(b[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

} // namespace

std::vector<std::string> notificationNames() { return {std::begin(notifications), std::end(notifications)}; }

std::string checkNotification(const std::string& name) {
    if (std::find(std::begin(notifications), std::end(notifications), name) != std::end(notifications)) return {};
    const std::string typed = name.substr(0, 64); // longer than any name
    // People omit the prefix that all names share.
    const auto distanceTo = [&](std::string_view known) {
        return std::min(distance(typed, known), distance("TvService" + typed, known));
    };
    std::vector<std::string_view> nearest(std::begin(notifications), std::end(notifications));
    std::stable_sort(nearest.begin(), nearest.end(),
                     [&](std::string_view a, std::string_view b) { return distanceTo(a) < distanceTo(b); });
    std::string text = "there is no notification " + typed + "; the nearest names are";
    for (std::size_t i = 0; i < 3; ++i) text += (i == 0 ? " " : ", ") + std::string(nearest[i]);
    return text;
}

} // namespace tvctl
