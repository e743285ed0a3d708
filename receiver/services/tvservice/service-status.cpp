#include "tvservice/service-status.h"

#include <tvservice/values.h>

#include <algorithm>
#include <map>
#include <media/service-id.h>
#include <utility>

namespace services {

tvservice::TvServiceStatusInfo_t statusOf(const std::vector<TerminalTable::Entry>& shown, const Locks& locks,
                                          const ChannelList& channels, std::int32_t listNumber) {
    std::map<Terminal, tvservice::ServiceStatusInfo_t> entries;
    for (const auto& [terminal, what] : shown) {
        auto& entry = entries[terminal];
        entry.byteParam1 = tvservice::displayState::showing;
        entry.strParam1 = what.uri;
        entry.intParam6 = channels.numberOf(what.uri);
        if (entry.intParam6 == 0) continue;
        const media::ServiceId id = media::serviceIdOf(what.uri);
        entry.intParam3 = id.network;
        entry.intParam4 = id.stream;
        entry.intParam5 = id.service;
    }
    for (const auto& [terminal, held] : locks.all()) {
        auto& entry = entries[terminal];
        entry.byteParam2 = tvservice::lockState::locked;
        entry.shortParam1 = static_cast<std::uint16_t>(std::clamp<std::int32_t>(held.entry.rating, 0, UINT16_MAX));
    }
    tvservice::TvServiceStatusInfo_t info{listNumber, {}};
    info.services.reserve(entries.size());
    for (auto& [terminal, entry] : entries) {
        entry.intParam1 = terminal.type;
        entry.intParam2 = terminal.id;
        info.services.push_back(std::move(entry));
    }
    return info;
}

} // namespace services
