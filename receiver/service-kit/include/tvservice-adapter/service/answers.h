// Turns a list of requests into the list of answers. The two services' record types differ, but not in the fields used
// here; both have the same stop URI.
#pragma once

#include <host/printable.h>
#include <tvservice-adapter/service/fault-switches.h>
#include <tvservice-adapter/service/log.h>
#include <tvservice-adapter/service/result.h>
#include <tvservice-adapter/service/terminal-table.h>
#include <tvservice/core-records.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace services {

// Executes requests in order and returns one answer for each. check(terminal, uri) returns result::done, or why the
// terminal cannot show the URI. A request for which the table has no room gets result::noRoom. A terminal whose
// request fails keeps showing what it did. Without evictions, a full table evicts nothing.
//
// With stopped, check itself begins to show the URI: stopped is called for each terminal that has to stop, and a
// terminal that the table has no room for stops, too. On the caller's thread.
template <class Info, class Request, class Check>
std::vector<Info> execute(const std::vector<Request>& requests, std::uint64_t client, TerminalTable& table,
                          const Check& check, Evictions* evictions = nullptr,
                          const std::function<void(const Terminal&)>& stopped = {}) {
    const auto now = std::chrono::system_clock::now();
    std::vector<Info> infos;
    infos.reserve(requests.size());
    for (const Request& request : requests) {
        const Terminal terminal{request.terminal.type, request.terminal.id};
        std::int32_t result = result::done;
        const auto stop = [&] {
            table.stop(terminal);
            if (stopped) stopped(terminal);
        };
        if (request.uri == tvservice::stopUri) {
            stop();
        } else if (result = check(terminal, request.uri); result == result::done) {
            if (!table.show(terminal, {request.uri, request.uuid, client, now}, evictions)) {
                result = result::noRoom;
                if (stopped) stop();
            }
        }
        Info& info = infos.emplace_back();
        info.terminal.type = terminal.type;
        info.terminal.id = terminal.id;
        info.result = result;
        info.uri = request.uri;
        info.uuid = request.uuid;
        info.reqId = request.reqId;
        SERVICE_LOG(vdlDebugProgress, "client %llu: request %s: terminal %d:%d: %s: %s\n",
                    static_cast<unsigned long long>(client), host::printable(request.reqId).c_str(), terminal.type,
                    terminal.id, host::printable(request.uri).c_str(), tvservice::nameOfResult(result));
    }
    return infos;
}

// Falsifies answers as the switches demand.
template <class Info> void falsify(std::vector<Info>& infos, const Faults& faults) {
    for (Info& info : infos) {
        if (faults.wrong) info.result = result::wrongByFault;
        if (faults.otherId) info.reqId += "-other";
    }
}

} // namespace services
