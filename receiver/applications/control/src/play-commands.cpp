#include "play-commands.h"

#include "arguments.h"
#include "command-list.h"

#include <genrpc/json.h>

#include <sstream>
#include <utility>
#include <vector>

namespace control {

int PlayCommands::registerAll() {
    static constexpr Command table[] = {
        {"play :s :s [:s]", "TERMINAL[,TERMINAL...] URI [UUID] - show something (a terminal is type:id)",
         call<PlayCommands, &PlayCommands::play>},
        {"stop :s", "TERMINAL[,TERMINAL...] - stop what is shown", call<PlayCommands, &PlayCommands::stop>},
    };
    return registerCommands(shell_, table, *this);
}

int PlayCommands::play() {
    const std::string uri = shell_.getArgument(1);
    if (uri.empty()) return reject(shell_, "no URI given");
    return submit(uri, shell_.getArgument(2));
}

int PlayCommands::stop() { return submit(tvservice::stopUri, ""); }

int PlayCommands::submit(const std::string& uri, const std::string& uuid) {
    std::vector<tvservice::TvServiceReq_t> requests;
    std::istringstream terminals(shell_.getArgument(0));
    for (std::string text; std::getline(terminals, text, ',');) {
        tvservice::TvServiceReq_t request;
        if (!readTerminal(text, request.terminal)) return rejectTerminal(shell_, text);
        request.uri = uri;
        request.uuid = uuid;
        requests.push_back(std::move(request));
    }
    if (requests.empty()) return reject(shell_, "no terminal given");
    for (const auto& request : requests) zapper_.forget(request.terminal);
    frame::MsgIds ids;
    const int result = adapter_.tvServiceReq(ids, frame::TransportInfo{}, requests);
    if (result < 0) return result;
    const auto count = requests.size();
    shell_.print(shell_.wantsJson() ? genrpc::textOf(genrpc::Json{{"queued", count}}) + "\n"
                                    : "queued " + std::to_string(count) + "\n");
    return 0;
}

} // namespace control
