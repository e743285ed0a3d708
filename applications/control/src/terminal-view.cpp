#include "terminal-view.h"

#include "arguments.h"

#include <lrt/run-log-agent.h>

#include <algorithm>

namespace control {
namespace {

// Whether a request was made before another one. Only the ids that the resource manager gives tell it: numbers in order
// of the requests. Another id, which an application gave, is taken to be as new as its answer.
bool isOlder(const std::string& reqId, const std::string& than) {
    std::uint32_t number = 0, other = 0;
    return readNumber(reqId, number) && readNumber(than, other) && number < other;
}

void take(TerminalState& terminal, const Answer& answer) {
    if (isOlder(answer.info.reqId, terminal.last.info.reqId)) return;
    terminal.last = answer;
    if (answer.info.result == 0) terminal.shown = answer;
}

} // namespace

int TerminalView::tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                                const std::vector<tvservice::TvServiceInfo_t>& infos) {
    const std::string now = lrt::RunLogAgentImpl::getInstance().getLogCurrentUTCTime();
    const std::lock_guard lock(mutex_);
    for (const auto& info : infos) {
        answers_.push_back({now, info});
        if (answers_.size() > kept) answers_.pop_front();
        if (!info.reqId.empty()) take(terminals_[{info.terminal.type, info.terminal.id}], answers_.back());
    }
    return 0;
}

std::vector<Answer> TerminalView::newest(std::size_t count) const {
    const std::lock_guard lock(mutex_);
    const auto from = answers_.end() - static_cast<std::ptrdiff_t>(std::min(count, answers_.size()));
    return {from, answers_.end()};
}

std::vector<TerminalState> TerminalView::terminals() const {
    const std::lock_guard lock(mutex_);
    std::vector<TerminalState> result;
    for (const auto& [terminal, state] : terminals_) result.push_back(state);
    return result;
}

} // namespace control
