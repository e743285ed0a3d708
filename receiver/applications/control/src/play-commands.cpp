#include "play-commands.h"

#include "arguments.h"
#include "command-list.h"

#include <genrpc/json.h>

#include <algorithm>
#include <sstream>
#include <utility>
#include <vector>

namespace control {

int PlayCommands::registerAll() {
    static constexpr Command table[] = {
        {"play :s :s [:s]",
         "TERMINAL[,TERMINAL...] URI [UUID] - show something (a terminal is type:id, such as main:0)",
         call<PlayCommands, &PlayCommands::play>},
        {"stop :s", "TERMINAL[,TERMINAL...] - stop what is shown", call<PlayCommands, &PlayCommands::stop>},
    };
    return registerCommands(shell_, table, *this);
}

int PlayCommands::play() {
    tvservice::TvServiceReq_t request;
    request.uri = shell_.getArgument(1);
    request.uuid = shell_.getArgument(2);
    if (request.uri.empty()) return reject(shell_, "no URI given");
    return submit(request);
}

int PlayCommands::stop() {
    tvservice::TvServiceReq_t request;
    request.uri = tvservice::stopUri;
    return submit(request);
}

int PlayCommands::submit(const tvservice::TvServiceReq_t& common) {
    std::vector<tvservice::TvServiceReq_t> requests;
    // The comma at the end makes a terminal of what follows the last comma, be it empty.
    std::istringstream terminals(shell_.getArgument(0) + ",");
    for (std::string text; std::getline(terminals, text, ',');) {
        tvservice::TvServiceReq_t request = common;
        if (!readTerminal(text, request.terminal)) return rejectTerminal(shell_, text);
        const auto isSame = [&](const auto& other) { return nameOf(other.terminal) == nameOf(request.terminal); };
        if (std::any_of(requests.begin(), requests.end(), isSame))
            return reject(shell_, "terminal " + inQuotes(text) + " is named twice");
        requests.push_back(std::move(request));
    }
    const std::string id = log_.begin(requests);
    for (const auto& request : requests) zapper_.forget(request.terminal);
    frame::MsgIds ids;
    if (const int result = adapter_.tvServiceReq(ids, frame::TransportInfo{}, requests); result < 0) {
        log_.cancel(id);
        return result;
    }
    const auto count = requests.size();
    shell_.print(shell_.wantsJson() ? genrpc::textOf(genrpc::Json{{"queued", count}, {"request", id}}) + "\n"
                                    : "queued " + std::to_string(count) + " (request " + id + ")\n");
    return 0;
}

} // namespace control
