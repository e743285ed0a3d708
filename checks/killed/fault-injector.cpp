#include "fault-injector.h"

#include "heap-count.h"
#include "service-socket.h"

#include <algorithm>
#include <csignal>
#include <thread>

namespace killed {
namespace {

using namespace std::chrono_literals;
using receiver::ReceiverError;

constexpr auto freezeTime = 6s;
// A request is dropped at the first check after five seconds. Checks run every second; another request postpones them
// by at most one more second.
constexpr std::chrono::milliseconds shortestWait = 5s, longestWait = 7500ms;
constexpr auto endLimit = 16s; // of a request, for both of its phases
constexpr auto nextPlayLimit = 1000ms;

template <class Duration> std::string inMs(Duration duration) {
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count()) + " ms";
}

} // namespace

FaultInjector::FaultInjector() {
    kit_.start();
    tvHello_ = helloOf(socketOf(Part::tvService));
    mmHello_ = helloOf(socketOf(Part::mmService));
    // Makes every process create all its threads and files, for delayed answers and for the run log.
    for (const Part service : {Part::tvService, Part::mmService}) setFault(service, {"delay", "1"});
    play("0:0", media);
    setFault(Part::tvService, {"mute", "on"});
    reqId_ = requestPlay("0:0", live);
    if (!waitForEnd(reqId_)) throw ReceiverError("an unanswered request was finished");
    clearFaults();
    fillHistories();
}

void FaultInjector::fillHistories() {
    constexpr int kept = 1000, terminals = 5, atOnce = 20;
    for (int i = 0; i < kept; ++i) {
        const std::string terminal = std::to_string(i % terminals) + ":0";
        kit_.ask(Part::frameHost, {"play", terminal, i / terminals % 2 == 0 ? live : media});
        if (i % atOnce == atOnce - 1) awaitLine("finished req_id ", newestReqId());
    }
    const auto filled = [&] { return kit_.ask(Part::frameHost, {"answers", std::to_string(kept)}).size() == kept; };
    await(filled, "a full history of answers");
    settle();
}

Outcome FaultInjector::run(const Situation& situation, unsigned number) {
    situation_ = situation;
    number_ = number;
    // For the framework process's first exchange the MM service is restarted; the other one keeps running.
    const bool atMm = situation.victim == Part::mmService ||
                      (situation.victim == Part::frameHost && situation.moment == Moment::firstExchange);
    partner_ = atMm ? Part::mmService : Part::tvService;
    other_ = partner_ == Part::tvService ? Part::mmService : Part::tvService;
    uri_ = partner_ == Part::tvService ? live : media;
    log_.begin();
    earlier_ = play("0:0", uri_);
    reqId_.clear();
    queued_.clear();

    reachMoment();
    const bool underWay = !reqId_.empty() && situation.moment != Moment::answered;
    if (underWay) requestOtherTerminals();
    injectFault();
    Outcome outcome;
    outcome.exact = isExact();
    if (situation.moment == Moment::beforeStop && situation.victim != Part::frameHost) {
        reqId_ = requestPlay("0:0", media);
        requestOtherTerminals();
    }
    recover();
    const auto returned = Clock::now();
    const bool atOnce = number % 2 == 1 && !reqId_.empty();
    if (!atOnce) waitForEnds(outcome);
    const std::string next = playNext(returned, atOnce, outcome);
    if (outcome.nextPlay > nextPlayLimit) throw ReceiverError("the next play took " + inMs(outcome.nextPlay));
    if (situation.fault == Fault::staleAnswers) kit_.waitForAnswers(earlier_, 2);
    settle();
    // Only now can no more answers arrive.
    requireOneAnswer(next, "2:0", uri_);
    for (const Queued& request : queued_)
        if (!request.dropped) requireOneAnswer(request.id, request.terminal, request.uri);
    return outcome;
}

// ---- faults and recovery ----

bool FaultInjector::hostRestarts() const {
    return situation_.victim == Part::frameHost && situation_.fault != Fault::frozen;
}

void FaultInjector::injectFault() {
    const bool first = situation_.moment == Moment::firstExchange, ofHost = situation_.victim == Part::frameHost;
    switch (situation_.fault) {
        case Fault::killed:
        case Fault::staleAnswers:
            kit_.kill(situation_.victim);
            break;
        case Fault::exited:
            exitOrderly();
            break;
        case Fault::frozen:
            if (ofHost || !first) kit_.freeze(situation_.victim);
            break;
        case Fault::mute:
            if (first) kit_.thaw(partner_);
            break;
        case Fault::garbage:
            if (first) break;
            undecodable_ = connection().at("undecodable").get<std::uint64_t>();
            sendAs(kit_.processId(partner_), kit_.processId(Part::frameHost), garbage(partner_, number_));
            break;
    }
    if (situation_.fault != Fault::exited) injected_ = Clock::now();
    if (first && ofHost) kit_.thaw(partner_);
}

void FaultInjector::exitOrderly() {
    const Part part = situation_.victim;
    ::kill(kit_.processId(part), SIGTERM);
    injected_ = Clock::now();
    kit_.thaw(part);
    const std::string state = "/proc/" + std::to_string(kit_.processId(part)) + "/stat";
    const auto ended = [&] {
        std::ifstream input(state);
        std::string text;
        std::getline(input, text);
        const auto name = text.rfind(") ");
        return name == std::string::npos || text[name + 2] == 'Z';
    };
    await(ended, "the end of " + std::string(nameOf(part)));
    kit_.kill(part); // reaps the dead process
}

void FaultInjector::recover() {
    switch (situation_.fault) {
        case Fault::killed:
        case Fault::exited:
            kit_.start(situation_.victim);
            break;
        case Fault::staleAnswers:
            kit_.start(situation_.victim);
            repeatOldAnswers();
            break;
        case Fault::frozen:
            std::this_thread::sleep_until(injected_ + freezeTime);
            kit_.thaw(situation_.victim);
            break;
        case Fault::mute:
            waitForEnd(reqId_);
            break;
        case Fault::garbage:
            if (situation_.moment == Moment::firstExchange)
                kit_.start(partner_);
            else // messages on a connection that is about to be closed would be lost
                await([&] { return connection().at("undecodable").get<std::uint64_t>() > undecodable_; },
                      "the garbage to be counted");
            break;
    }
    clearFaults();
    if (!hostRestarts()) return;
    log_.begin(); // the new process numbers its requests from 1 again
    reqId_.clear();
    queued_.clear();
}

// The framework process's connection to the service.
nlohmann::json FaultInjector::connection() {
    for (const auto& connection : kit_.ask(Part::frameHost, {"stats"}))
        if (connection.at("service") == serviceNameOf(partner_)) return connection;
    throw ReceiverError("the framework process has no connection to " + serviceNameOf(partner_));
}

void FaultInjector::repeatOldAnswers() {
    const auto connected = [&] { return connection().at("connected").get<bool>(); };
    await(connected, "the connection to the new service");
    std::string answers = answerFrame(partner_, earlier_, uri_);
    if (!reqId_.empty()) answers += answerFrame(partner_, reqId_, media);
    sendAs(kit_.processId(partner_), kit_.processId(Part::frameHost), answers);
}

// ---- results ----

// Waits until a request is finished or dropped, which must be in time. Returns whether it was dropped.
bool FaultInjector::waitForEnd(const std::string& reqId) {
    const auto finished = [&] { return log_.about("finished req_id ", reqId) != nullptr; };
    const receiver::LogLine* drop = nullptr;
    await([&] { return finished() || (drop = log_.about("Found reqid ", reqId)) != nullptr; },
          "the end of request " + reqId, endLimit);
    if (drop == nullptr) return false;
    const auto waited = drop->time - log_.about("Sending reqid ", reqId)->time;
    const bool hostWasFrozen = situation_.victim == Part::frameHost;
    if (waited <= shortestWait || (waited > longestWait && !hostWasFrozen))
        throw ReceiverError("request " + reqId + " was dropped after " + inMs(waited));
    return true;
}

// For the pending request and those queued behind it, in order.
void FaultInjector::waitForEnds(Outcome& outcome) {
    if (!reqId_.empty() && waitForEnd(reqId_)) ++outcome.dropped;
    for (Queued& request : queued_)
        if ((request.dropped = waitForEnd(request.id))) ++outcome.dropped;
}

// Plays on the partner: at once, behind everything that is queued, or after that has ended. Returns the request's id.
std::string FaultInjector::playNext(Clock::time_point returned, bool atOnce, Outcome& outcome) {
    const std::string before = queued_.empty() ? reqId_ : queued_.back().id;
    auto begin = std::max(returned, Clock::now());
    std::string next = requestPlay("2:0", uri_);
    if (atOnce) {
        waitForEnds(outcome);
        const receiver::LogLine* end = log_.about("finished req_id ", before);
        if (end == nullptr) end = log_.about("Found reqid ", before);
        begin = std::max<Clock::time_point>(begin, end->time);
    }
    awaitLine("finished req_id ", next);
    const Clock::time_point finished = log_.about("finished req_id ", next)->time;
    kit_.waitForAnswers(next, 1);
    outcome.nextPlay =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::max(finished - begin, Clock::duration::zero()));
    return next;
}

void FaultInjector::requireOneAnswer(const std::string& reqId, const std::string& terminal, const std::string& uri) {
    const auto answers = kit_.waitForAnswers(reqId, 1);
    if (answers.size() != 1 || answers[0].result != 0 || answers[0].uri != uri || answers[0].terminal != terminal)
        throw ReceiverError("request " + reqId + " got " + std::to_string(answers.size()) + " answers, the first for " +
                            answers[0].terminal + ": " + std::to_string(answers[0].result) + ' ' + answers[0].uri);
}

void FaultInjector::settle() {
    clearFaults();
    await([&] { return kit_.ask(Part::frameHost, {"bundles"}).empty(); }, "an empty queue of requests");
    const auto settled = [&] {
        const auto connections = kit_.ask(Part::frameHost, {"stats"});
        return std::all_of(connections.begin(), connections.end(), [](const auto& connection) {
            return connection.at("connected").template get<bool>() && connection.at("queued") == 0;
        });
    };
    await(settled, "connections that have sent everything");
}

// A shell frees an answer after it has sent it, but before it reads the next command. This command makes it free the
// previous answer, which may have been long.
IdleSize FaultInjector::idleSize(Part part) {
    kit_.read(part, {"stats"});
    const HeapSize heap = heapSizeIn(heapCountOf(part));
    return {sizeOf(kit_.processId(part)), heap.bytes, heap.blocks};
}

// ---- helpers ----

std::string FaultInjector::requestPlay(const std::string& terminal, const std::string& uri) {
    const std::string before = newestReqId();
    kit_.ask(Part::frameHost, {"play", terminal, uri});
    std::string id = newestReqId();
    if (id == before) throw ReceiverError("the resource manager did not accept a request");
    return id;
}

// The id of the newest request in the log; empty before the first one.
std::string FaultInjector::newestReqId() {
    const std::string mark = "POWER2:new reqid ";
    const receiver::LogLine* const line = log_.newest(mark);
    if (line == nullptr) return {};
    const std::string rest = line->text.substr(line->text.find(mark) + mark.size());
    return rest.substr(0, rest.find(' '));
}

std::string FaultInjector::play(const std::string& terminal, const std::string& uri) {
    std::string id = requestPlay(terminal, uri);
    awaitLine("finished req_id ", id);
    return id;
}

void FaultInjector::awaitLine(const std::string& words, const std::string& reqId, const std::string& after) {
    await([&] { return log_.about(words, reqId + after) != nullptr; }, '"' + words + reqId + after + '"');
}

void FaultInjector::setFault(Part part, const std::vector<std::string>& fault) {
    std::vector<std::string> words{"fault"};
    words.insert(words.end(), fault.begin(), fault.end());
    kit_.read(part, words);
}

void FaultInjector::clearFaults() {
    for (const Part service : {Part::tvService, Part::mmService}) setFault(service, {"clear"});
}

std::uint64_t FaultInjector::receivedBy(Part service) { return kit_.ask(service, {"stats"}).at(0).at("received"); }

void FaultInjector::awaitReceived(Part service, std::uint64_t count) {
    await([&] { return receivedBy(service) >= count; }, "a request's arrival at the service");
}

void FaultInjector::await(const std::function<bool()>& condition, const std::string& what,
                          receiver::Milliseconds limit) {
    if (!kit_.waitFor(condition, limit))
        throw ReceiverError("timeout after " + inMs(limit) + " while waiting for " + what);
}

std::string FaultInjector::socketOf(Part service) const {
    return (kit_.runtimeFolder() / (serviceNameOf(service) + ".sock")).string();
}

std::filesystem::path FaultInjector::heapCountOf(Part part) const {
    return kit_.folder() / "state" / heapCountFileOf(nameOf(part));
}

} // namespace killed
