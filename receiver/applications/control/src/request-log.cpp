#include "request-log.h"

#include "arguments.h"

#include <lrt/run-log-agent.h>
#include <tvservice-adapter/zap-queue.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace control {
namespace {

using namespace std::chrono_literals;
using State = RecordedRequest::State;

constexpr std::string_view shellIds = "control-";

bool isPending(const RecordedRequest& request) {
    return request.state == State::queued || request.state == State::sent;
}

std::string cut(const std::string& text) { return text.substr(0, RequestLog::longestText); }

std::size_t bytesOf(const RecordedRequest& request) {
    std::size_t bytes = request.id.size();
    for (const auto& each : request.terminals) bytes += sizeof each + each.uri.size();
    return bytes;
}

bool same(const tvservice::TvServiceTerminal_t& a, const tvservice::TvServiceTerminal_t& b) {
    return a.type == b.type && a.id == b.id;
}

// Sets a terminal's result; adds the terminal if it is not known, which is so for requests of other applications.
void takeResult(RecordedRequest& request, const tvservice::TvServiceInfo_t& info) {
    auto& all = request.terminals;
    auto known = std::find_if(all.begin(), all.end(), [&](const RequestedTerminal& each) {
        return same(each.terminal, info.terminal) && !each.result;
    });
    if (known == all.end()) {
        if (all.size() == RequestLog::mostTerminals) {
            ++request.moreTerminals;
            return;
        }
        known = all.insert(all.end(), {info.terminal, {}});
    }
    if (known->uri.empty()) known->uri = cut(info.uri);
    known->result = info.result;
}

// The step that a bundle waits in; nothing while it sends.
std::optional<RequestStep> stepOf(const tvservice::BundleStatus& bundle) {
    if (bundle.steps.empty()) return std::nullopt;
    const auto& [operation, awaited] = bundle.steps.front();
    const auto has = [](const std::string& text, const char* part) { return text.find(part) != std::string::npos; };
    if (!has(operation, "Waiting")) return std::nullopt;
    const char* services = has(awaited, "BOTH") ? "TV service and MM service"
                           : has(awaited, "MM") ? "MM service"
                                                : "TV service";
    return RequestStep{has(operation, "Stop") ? "stop" : "start", services, {}};
}

} // namespace

bool isFromShell(const std::string& reqId) { return reqId.starts_with(shellIds); }

const char* askerOf(const std::string& reqId) {
    if (isFromShell(reqId)) return "shell";
    return reqId.starts_with(tvservice::ZapQueue::idBeginning) ? "zapper" : "application";
}

// An id may be used again after its request has ended: the newest one counts.
RequestLog::Position RequestLog::position(const std::string& id) {
    const std::string_view known = std::string_view(id).substr(0, longestText);
    const auto found = std::find_if(requests_.rbegin(), requests_.rend(),
                                    [&](const RecordedRequest& each) { return each.id == known; });
    return found == requests_.rend() ? requests_.end() : std::prev(found.base());
}

RecordedRequest& RequestLog::add(const std::string& id) {
    RecordedRequest& made = requests_.emplace_back();
    made.id = cut(id);
    made.time = lrt::RunLogAgentImpl::getInstance().getLogCurrentUTCTime();
    made.made = now_();
    return made;
}

void RequestLog::remove(const Position& request) {
    bytes_ -= request->bytes;
    requests_.erase(request);
}

// Makes room after a request has changed. Keeps the newest one, whatever it takes.
void RequestLog::makeRoom(RecordedRequest& changed) {
    bytes_ += bytesOf(changed) - std::exchange(changed.bytes, bytesOf(changed));
    while (requests_.size() > 1 && (requests_.size() > mostRequests || bytes_ > mostBytes)) {
        const auto newest = std::prev(requests_.end());
        const auto finished = std::find_if_not(requests_.begin(), newest, isPending);
        remove(finished == newest ? requests_.begin() : finished);
        ++dropped_;
    }
}

std::string RequestLog::begin(std::vector<tvservice::TvServiceReq_t>& requests) {
    const thread_safety::LockGuard lock(mutex_);
    std::string id = std::string(shellIds) + std::to_string(++lastId_);
    RecordedRequest& made = add(id);
    for (auto& request : requests) {
        request.reqId = id;
        if (made.terminals.size() < mostTerminals)
            made.terminals.push_back({request.terminal, cut(request.uri)});
        else
            ++made.moreTerminals;
    }
    makeRoom(made);
    changed_.notify_all();
    return id;
}

void RequestLog::cancel(const std::string& id) {
    const thread_safety::LockGuard lock(mutex_);
    if (const auto known = position(id); known != requests_.end()) remove(known);
}

int RequestLog::tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                              const std::vector<tvservice::TvServiceInfo_t>& infos) {
    // The adapter, too, looks at the first id only. The TV service also reports its state, without an id.
    if (infos.empty() || infos.front().reqId.empty()) return 0;
    const auto now = now_();
    const thread_safety::LockGuard lock(mutex_);
    const auto known = position(infos.front().reqId);
    if (known != requests_.end() && !isPending(*known)) {
        ++known->lateAnswers;
        return 0;
    }
    const bool isKnown = known != requests_.end();
    RecordedRequest& request = isKnown ? *known : add(infos.front().reqId);
    for (const auto& info : infos) takeResult(request, info);
    request.state = State::answered;
    if (isKnown) request.duration = std::chrono::duration_cast<std::chrono::microseconds>(now - request.made);
    makeRoom(request);
    return 0;
}

void RequestLog::see(const tvservice::BundleStatus& bundle, bool isFirst, Clock::time_point taken) {
    auto known = position(bundle.reqId);
    if (known != requests_.end() && !isPending(*known) && known->made + known->duration.value_or(0us) >= taken) return;
    if (known == requests_.end() || !isPending(*known)) {
        RecordedRequest& made = add(bundle.reqId);
        for (const auto& terminal : bundle.terminals) {
            if (made.terminals.size() == mostTerminals) {
                ++made.moreTerminals;
                continue;
            }
            made.terminals.push_back({terminal, {}});
        }
        makeRoom(made);
        known = std::prev(requests_.end());
    }
    known->gone.reset();
    const auto step = stepOf(bundle);
    if (!isFirst || !step) return;
    known->state = State::sent;
    known->sent = taken - bundle.waited;
    if (known->steps.empty() || known->steps.back().name != step->name)
        known->steps.push_back(
            {step->name, "",
             std::chrono::duration_cast<std::chrono::microseconds>(std::max(*known->sent, known->made) - known->made)});
    known->steps.back().awaited = step->awaited;
}

void RequestLog::look(const std::vector<tvservice::BundleStatus>& bundles, Clock::time_point taken) {
    std::unordered_set<std::string_view> queued;
    for (const auto& bundle : bundles) queued.insert(std::string_view(bundle.reqId).substr(0, longestText));
    const thread_safety::LockGuard lock(mutex_);
    // The adapter's queue has no bound of its own; of more requests than these, the log could not keep all.
    const std::size_t seen = std::min(bundles.size(), mostRequests / 2);
    for (std::size_t i = 0; i < seen; ++i) see(bundles[i], i == 0, taken);
    for (auto& request : requests_) {
        if (!isPending(request) || queued.contains(request.id)) continue;
        if (!request.gone) request.gone = taken;
        const bool reachedLimit = request.sent && *request.gone - *request.sent >= tvservice::bundleAnswerLimit;
        if (taken - *request.gone < (reachedLimit ? answerDelay : Clock::duration(longestAnswerDelay))) continue;
        request.state = State::givenUp;
        request.duration = std::chrono::duration_cast<std::chrono::microseconds>(*request.gone - request.made);
    }
}

bool RequestLog::waitToLook() {
    thread_safety::UniqueLock lock(mutex_);
    const bool pending = std::any_of(requests_.begin(), requests_.end(), isPending);
    const auto end = Clock::now() + (pending ? lookInterval : std::chrono::milliseconds(1000));
    const auto last = lastId_;
    changed_.wait_until(lock, end, [&]() TVSA_REQUIRES(mutex_) { return ended_ || (!pending && lastId_ != last); });
    return !ended_;
}

void RequestLog::end() {
    const thread_safety::LockGuard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
}

std::vector<RecordedRequest> RequestLog::newest(std::size_t count) const {
    const thread_safety::LockGuard lock(mutex_);
    return {requests_.end() - static_cast<std::ptrdiff_t>(std::min(count, requests_.size())), requests_.end()};
}

std::optional<RecordedRequest> RequestLog::find(const std::string& id) {
    const thread_safety::LockGuard lock(mutex_);
    const auto known = position(id);
    return known == requests_.end() ? std::nullopt : std::optional(*known);
}

TableCount RequestLog::table() const {
    const thread_safety::LockGuard lock(mutex_);
    return {"requests", requests_.size(), mostRequests, bytes_, mostBytes, dropped_};
}

} // namespace control
