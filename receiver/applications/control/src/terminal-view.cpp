#include "terminal-view.h"

#include "arguments.h"
#include "log.h"
#include "request-log.h"

#include <lrt/run-log-agent.h>
#include <tvservice-adapter/destination.h>
#include <tvservice-adapter/zap-queue.h>
#include <tvservice/results.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace control {
namespace {

using tvservice::destination::isForMmService;

// Splits an id into a prefix and the number at its end. Returns false when the number may not count requests: only ids
// of the resource manager, which have no prefix, of zap queues and of the shell's requests are known to count.
bool readCount(std::string_view reqId, std::string_view& prefix, std::uint64_t& number) {
    prefix = reqId.substr(0, reqId.find_last_not_of("0123456789") + 1);
    const bool counts =
        prefix.empty() || prefix.starts_with(tvservice::ZapQueue::idBeginning) || isFromShell(std::string(reqId));
    return counts && readNumber(reqId.substr(prefix.size()), number);
}

// Whether a request is older than another one. Only ids with the same prefix can be compared; any other id counts as
// new as its answer.
bool isOlder(const std::string& reqId, const std::string& than) {
    std::string_view prefix, otherPrefix;
    std::uint64_t number = 0, other = 0;
    return readCount(reqId, prefix, number) && readCount(than, otherPrefix, other) && prefix == otherPrefix &&
           number < other;
}

void take(TerminalState& terminal, const Answer& answer) {
    if (isOlder(answer.info.reqId, terminal.last.info.reqId)) return;
    terminal.last = answer;
    if (answer.info.result == tvservice::result::done) {
        terminal.shown = answer;
    } else if (answer.info.result != tvservice::result::superseded &&
               (isForMmService(answer.info.uri) || isForMmService(terminal.shown.info.uri))) {
        // The MM service plays only after both services have stopped, and it stops before the TV service plays.
        terminal.shown = answer;
        terminal.shown.info.uri = tvservice::stopUri;
        terminal.shown.info.uuid.clear();
    }
}

std::size_t bytesIn(const tvservice::TvServiceInfo_t& info) {
    return info.uri.size() + info.uuid.size() + info.uuidAncestor.size() + info.reqId.size();
}

void cut(std::string& text) {
    if (text.size() <= TerminalView::longestText) return;
    const std::string end = "... (" + std::to_string(text.size()) + " bytes)";
    text = text.substr(0, TerminalView::longestText - end.size()) + end;
}

} // namespace

int TerminalView::tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                                const std::vector<tvservice::TvServiceInfo_t>& infos) {
    const std::string now = lrt::RunLogAgentImpl::getInstance().getLogCurrentUTCTime();
    const thread_safety::LockGuard lock(mutex_);
    for (const auto& info : infos) {
        Answer answer{now, info};
        for (std::string* text : {&answer.info.uri, &answer.info.uuid, &answer.info.uuidAncestor, &answer.info.reqId})
            cut(*text);
        if (!info.reqId.empty()) take(known(info.terminal).state, answer);
        keep(std::move(answer));
    }
    return 0;
}

void TerminalView::keep(Answer answer) {
    bytes_ += bytesIn(answer.info);
    answers_.push_back(std::move(answer));
    while (answers_.size() > mostAnswers || bytes_ > mostBytes) {
        bytes_ -= bytesIn(answers_.front().info);
        answers_.pop_front();
        ++droppedAnswers_;
    }
}

TerminalView::Known& TerminalView::known(const tvservice::TvServiceTerminal_t& terminal) {
    const std::pair key{terminal.type, terminal.id};
    if (terminals_.size() == mostTerminals && !terminals_.contains(key)) {
        const auto oldest = std::min_element(terminals_.begin(), terminals_.end(), [](const auto& a, const auto& b) {
            return a.second.answered < b.second.answered;
        });
        CONTROL_LOG(vdlDebugWarning, "terminal %d:%d is evicted: there are answers for more than %zu terminals\n",
                    oldest->first.first, oldest->first.second, mostTerminals);
        terminals_.erase(oldest);
        ++droppedTerminals_;
    }
    Known& known = terminals_[key];
    known.answered = ++lastAnswer_;
    return known;
}

std::vector<Answer> TerminalView::newest(std::size_t count) const {
    const thread_safety::LockGuard lock(mutex_);
    const auto from = answers_.end() - static_cast<std::ptrdiff_t>(std::min(count, answers_.size()));
    return {from, answers_.end()};
}

std::vector<TerminalState> TerminalView::terminals() const {
    const thread_safety::LockGuard lock(mutex_);
    std::vector<TerminalState> result;
    for (const auto& [terminal, known] : terminals_) result.push_back(known.state);
    return result;
}

std::vector<TableCount> TerminalView::tables() const {
    const thread_safety::LockGuard lock(mutex_);
    std::size_t bytes = 0;
    for (const auto& [terminal, known] : terminals_)
        bytes += bytesIn(known.state.shown.info) + bytesIn(known.state.last.info);
    return {
        {"terminals", terminals_.size(), mostTerminals, bytes, mostTerminals * 2 * 4 * longestText, droppedTerminals_},
        {"answers", answers_.size(), mostAnswers, bytes_, mostBytes, droppedAnswers_}};
}

} // namespace control
