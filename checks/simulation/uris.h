// The URIs that clients ask for, and by whom each is played: sorted by hand, so that nothing here parses as the manager
// does.
#pragma once

#include <cstddef>
#include <string>

namespace simulation {

enum class Source { Stop, Recording, CachedRecording, File, Network, Live, LiveWithStopInside };

struct Uri {
    std::string text;
    Source source;
};

extern const Uri uris[];
extern const std::size_t uriCount;

// Of one of the above.
Source sourceOf(const std::string& uri);

} // namespace simulation
