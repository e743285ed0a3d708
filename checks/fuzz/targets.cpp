#include "target.h"

namespace fuzz {

const std::vector<Target>& targets() {
    static const std::vector<Target> all = [] {
        std::vector<Target> found = messageTargets();
        found.insert(found.end(), {{"encode", encode},
                                   {"handshake", handshake},
                                   {"frames", frames},
                                   {"relayed-frames", relayedFrames},
                                   {"endian-tables", tables},
                                   {"json", json},
                                   {"shell-lines", shellLines},
                                   {"uris", uris},
                                   {"channel-list", channels}});
        return found;
    }();
    return all;
}

} // namespace fuzz
