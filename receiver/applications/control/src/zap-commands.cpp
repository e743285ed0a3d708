#include "zap-commands.h"

#include "arguments.h"
#include "command-list.h"
#include "log.h"

#include <genrpc/json.h>
#include <host/printable.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace control {
namespace {

// Logs only missing answers; the list of answers has the others.
void logOutcome(const tvservice::ZapOutcome& outcome) {
    using Kind = tvservice::ZapOutcome::Kind;
    if (outcome.kind != Kind::dropped && outcome.kind != Kind::notSent) return;
    CONTROL_LOG(vdlDebugWarning, "zap to %s on terminal %s %s\n", host::printable(outcome.request.uri).c_str(),
                nameOf(outcome.request.terminal).c_str(),
                outcome.kind == Kind::dropped ? "got no answer and was dropped" : "was not sent: out of memory");
}

} // namespace

ZapCommands::ZapCommands(tvservice::ModelTvServiceAdapter& adapter, appovshell::Server& shell)
    : shell_(shell), zapper_(adapter, logOutcome) {}

int ZapCommands::registerAll() {
    static constexpr Command table[] = {
        {"zap :s ...",
         "TERMINAL URI... - request each in turn; when requests come faster than answers, only the newest is shown",
         call<ZapCommands, &ZapCommands::zap>},
    };
    return registerCommands(shell_, table, *this);
}

int ZapCommands::zap() {
    tvservice::TvServiceReq_t request;
    const std::string terminal = shell_.getArgument(0);
    if (!readTerminal(terminal, request.terminal)) return rejectTerminal(shell_, terminal);
    std::istringstream words(shell_.getArgument(1));
    std::size_t wanted = 0;
    for (; words >> request.uri; ++wanted)
        if (const int result = zapper_.want(request); result < 0)
            return reject(shell_, result == tvservice::ZapQueue::tooManyWaiting
                                      ? "requests for " + std::to_string(tvservice::ZapQueue::mostWaiting) +
                                            " other terminals are pending already; try again when some are answered"
                                      : "the receiver is stopping");
    if (wanted == 0) return reject(shell_, "no URI given");
    shell_.print(shell_.wantsJson() ? genrpc::textOf(genrpc::Json{{"wanted", wanted}}) + "\n"
                                    : "wanted " + std::to_string(wanted) + "\n");
    return 0;
}

} // namespace control
