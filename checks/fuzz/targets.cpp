#include "target.h"

namespace fuzz {

const std::vector<Target>& targets() {
    static const std::vector<Target> all = [] {
        std::vector<Target> found = messageTargets();
        found.insert(found.end(), {{"encode", encode},
                                   {"handshake", handshake},
                                   {"frames", frames},
                                   {"endian-tables", tables},
                                   {"json", json},
                                   {"shell-lines", shellLines},
                                   {"uris", uris},
                                   {"channel-list", channels}});
#ifdef FUZZ_TLS
        found.insert(found.end(), {{"tls-before", tlsBefore}, {"tls-inside", tlsInside}});
#endif
        return found;
    }();
    return all;
}

} // namespace fuzz
