// From a list of requests to the list of answers. The two services' records differ as types, not in what this needs of
// them; both stop at the same URI.
#pragma once

#include "common/fault-switches.h"
#include "common/result.h"
#include "common/terminal-table.h"

#include <tvservice/core-records.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace services {

// Carries requests out, in order, and returns one answer for each. check(terminal, uri) says with its result whether it
// can be shown there; one for which the table has no room gets result::nothingShown. A terminal whose request fails
// goes on showing what it did. Without evictions a full table makes no room.
template <class Info, class Request, class Check>
std::vector<Info> carryOut(const std::vector<Request>& requests, std::uint64_t client, TerminalTable& table,
                           const Check& check, Evictions* evictions = nullptr) {
    const auto now = std::chrono::system_clock::now();
    std::vector<Info> infos;
    infos.reserve(requests.size());
    for (const Request& request : requests) {
        const Terminal terminal{request.terminal.type, request.terminal.id};
        std::int32_t result = result::done;
        if (request.uri == tvservice::stopUri)
            table.stop(terminal);
        else if (result = check(terminal, request.uri); result == result::done)
            if (!table.show(terminal, {request.uri, request.uuid, client, now}, evictions))
                result = result::nothingShown;
        Info& info = infos.emplace_back();
        info.terminal.type = terminal.type;
        info.terminal.id = terminal.id;
        info.result = result;
        info.uri = request.uri;
        info.uuid = request.uuid;
        info.reqId = request.reqId;
    }
    return infos;
}

// Makes answers as wrong as the switches ask.
template <class Info> void falsify(std::vector<Info>& infos, const Faults& faults) {
    for (Info& info : infos) {
        if (faults.wrong) info.result = result::wrongByFault;
        if (faults.otherId) info.reqId += "-other";
    }
}

} // namespace services
