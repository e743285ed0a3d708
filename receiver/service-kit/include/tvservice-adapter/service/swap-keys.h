// Swaps the values of two keys of a map.
#pragma once

#include <utility>

namespace services {

// Either or both may be missing. Allocates nothing, so it never throws.
template <class Map> void swapKeys(Map& map, const typename Map::key_type& a, const typename Map::key_type& b) {
    if (a == b) return;
    auto atA = map.extract(a), atB = map.extract(b);
    if (atA) atA.key() = b;
    if (atB) atB.key() = a;
    map.insert(std::move(atA));
    map.insert(std::move(atB));
}

} // namespace services
