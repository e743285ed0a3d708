#include "terminal-view.h"

#include <lrt/run-log-agent.h>

#include <algorithm>

namespace control {

int TerminalView::tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                                const std::vector<tvservice::TvServiceInfo_t>& infos) {
    const std::string now = lrt::RunLogAgentImpl::getInstance().getLogCurrentUTCTime();
    const std::lock_guard lock(mutex_);
    for (const auto& info : infos) {
        answers_.push_back({now, info});
        if (answers_.size() > kept) answers_.pop_front();
        terminals_.insert_or_assign({info.terminal.type, info.terminal.id}, Answer{now, info});
    }
    return 0;
}

std::vector<Answer> TerminalView::newest(std::size_t count) const {
    const std::lock_guard lock(mutex_);
    const auto from = answers_.end() - static_cast<std::ptrdiff_t>(std::min(count, answers_.size()));
    return {from, answers_.end()};
}

std::vector<Answer> TerminalView::terminals() const {
    const std::lock_guard lock(mutex_);
    std::vector<Answer> result;
    for (const auto& [terminal, answer] : terminals_) result.push_back(answer);
    return result;
}

} // namespace control
