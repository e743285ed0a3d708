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
                                   {"packets", packets},
                                   {"channel-list", channels}});
#ifdef FUZZ_TLS
        found.insert(found.end(), {{"tls-before", tlsBefore}, {"tls-inside", tlsInside}});
#endif
#ifdef FUZZ_MEDIA
        found.insert(found.end(), {{"table-sections", tableSections}, {"distribution", distribution}});
#endif
        return found;
    }();
    return all;
}

const std::vector<std::string>& targetsLeftOut() {
    static const std::vector<std::string> names{
#ifndef FUZZ_TLS
        "tls-before",
        "tls-inside",
#endif
#ifndef FUZZ_MEDIA
        "table-sections",
        "distribution",
#endif
    };
    return names;
}

} // namespace fuzz
