#include "ordeal.h"

#include "heap-count.h"
#include "service-socket.h"

#include <algorithm>
#include <csignal>
#include <thread>

namespace killed {
namespace {

using namespace std::chrono_literals;
using receiver::ReceiverError;

constexpr auto freezing = 6s;
// A request is dropped at the first look after five seconds. Looks come every second, and one more request puts them
// off by at most another one.
constexpr std::chrono::milliseconds shortestWait = 5s, longestWait = 7500ms;
constexpr auto endLimit = 16s; // of a request, for both of its phases
constexpr auto nextPlayLimit = 1000ms;

template <class Duration> std::string inMs(Duration duration) {
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count()) + " ms";
}

} // namespace

Ordeal::Ordeal() {
    kit_.start();
    tvHello_ = helloOf(socketOf(Part::tvService));
    mmHello_ = helloOf(socketOf(Part::mmService));
    // So that all have the threads and files that they will ever have: answers that are sent later, the run log.
    for (const Part service : {Part::tvService, Part::mmService}) setFault(service, {"delay", "1"});
    play("0:0", media);
    setFault(Part::tvService, {"mute", "on"});
    reqId_ = ask("0:0", live);
    if (!waitForEnd(reqId_)) throw ReceiverError("a request without an answer was finished");
    clearFaults();
    fillHistories();
    comeToRest();
}

// The control application keeps the newest thousand answers, and as many notifications. Until it has them it takes more
// memory with everything that is played; afterwards as much as with these, if they are like those that come later.
void Ordeal::fillHistories() {
    constexpr int kept = 1000, terminals = 5, atOnce = 20;
    for (int i = 0; i < kept; ++i) {
        const std::string terminal = std::to_string(i % terminals) + ":0";
        kit_.ask(Part::frameHost, {"play", terminal, i / terminals % 2 == 0 ? live : media});
        if (i % atOnce == atOnce - 1) awaitLine("finished req_id ", newestReqId());
    }
    const auto filled = [&] { return kit_.ask(Part::frameHost, {"answers", std::to_string(kept)}).size() == kept; };
    await(filled, "a full history of answers");
}

Outcome Ordeal::endure(const Situation& situation, unsigned number) {
    situation_ = situation;
    number_ = number;
    // The MM service is the one to be restarted for the framework process's first exchange; the other one lives on.
    const bool atMm = situation.victim == Part::mmService ||
                      (situation.victim == Part::frameHost && situation.moment == Moment::firstExchange);
    partner_ = atMm ? Part::mmService : Part::tvService;
    other_ = partner_ == Part::tvService ? Part::mmService : Part::tvService;
    uri_ = partner_ == Part::tvService ? live : media;
    log_.begin();
    earlier_ = play("0:0", uri_);
    reqId_.clear();
    queued_.clear();

    comeTo();
    const bool underWay = !reqId_.empty() && situation.moment != Moment::answered;
    if (underWay) askOnOtherTerminals();
    strike();
    Outcome outcome;
    outcome.exact = isExact();
    if (situation.moment == Moment::beforeStop && situation.victim != Part::frameHost) {
        reqId_ = ask("0:0", media);
        askOnOtherTerminals();
    }
    recover();
    const auto returned = Clock::now();
    const bool atOnce = number % 2 == 1 && !reqId_.empty();
    if (!atOnce) waitForEnds(outcome);
    const std::string next = playNext(returned, atOnce, outcome);
    if (outcome.nextPlay > nextPlayLimit) throw ReceiverError("the next play took " + inMs(outcome.nextPlay));
    if (situation.fate == Fate::staleAnswers) kit_.waitForAnswers(earlier_, 2);
    comeToRest();
    // Only now can nothing more come.
    requireOneAnswer(next, "2:0", uri_);
    for (const Queued& request : queued_)
        if (!request.dropped) requireOneAnswer(request.id, request.terminal, request.uri);
    return outcome;
}

// ---- what happens ----

bool Ordeal::hostEnds() const { return situation_.victim == Part::frameHost && situation_.fate != Fate::frozen; }

void Ordeal::strike() {
    const bool first = situation_.moment == Moment::firstExchange, ofHost = situation_.victim == Part::frameHost;
    switch (situation_.fate) {
        case Fate::killed:
        case Fate::staleAnswers:
            kit_.kill(situation_.victim);
            break;
        case Fate::exited:
            exitOrderly();
            break;
        case Fate::frozen:
            if (ofHost || !first) kit_.freeze(situation_.victim);
            break;
        case Fate::mute:
            if (first) kit_.thaw(partner_);
            break;
        case Fate::babbling:
            if (first) break;
            undecodable_ = connection().at("undecodable").get<std::uint64_t>();
            sendAs(kit_.processId(partner_), kit_.processId(Part::frameHost), garbage(partner_, number_));
            break;
    }
    if (situation_.fate != Fate::exited) struck_ = Clock::now();
    if (first && ofHost) kit_.thaw(partner_);
}

void Ordeal::exitOrderly() {
    const Part part = situation_.victim;
    ::kill(kit_.processId(part), SIGTERM);
    struck_ = Clock::now();
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
    kit_.kill(part); // which has the dead process collected
}

void Ordeal::recover() {
    switch (situation_.fate) {
        case Fate::killed:
        case Fate::exited:
            kit_.start(situation_.victim);
            break;
        case Fate::staleAnswers:
            kit_.start(situation_.victim);
            repeatOldAnswers();
            break;
        case Fate::frozen:
            std::this_thread::sleep_until(struck_ + freezing);
            kit_.thaw(situation_.victim);
            break;
        case Fate::mute:
            waitForEnd(reqId_);
            break;
        case Fate::babbling:
            if (situation_.moment == Moment::firstExchange)
                kit_.start(partner_);
            else // what is sent on a connection that is about to end is lost with it
                await([&] { return connection().at("undecodable").get<std::uint64_t>() > undecodable_; },
                      "the garbage");
            break;
    }
    clearFaults();
    if (!hostEnds()) return;
    log_.begin(); // the new process numbers its requests anew
    reqId_.clear();
    queued_.clear();
}

// The framework process's connection to the service.
nlohmann::json Ordeal::connection() {
    for (const auto& connection : kit_.ask(Part::frameHost, {"stats"}))
        if (connection.at("service") == serviceNameOf(partner_)) return connection;
    throw ReceiverError("the framework process has no connection to " + serviceNameOf(partner_));
}

void Ordeal::repeatOldAnswers() {
    const auto connected = [&] { return connection().at("connected").get<bool>(); };
    await(connected, "the connection to the new service");
    std::string answers = answerFrame(partner_, earlier_, uri_);
    if (!reqId_.empty()) answers += answerFrame(partner_, reqId_, media);
    sendAs(kit_.processId(partner_), kit_.processId(Part::frameHost), answers);
}

// ---- what comes of it ----

// Whether a request was dropped, else it was finished; it must have been one of the two in time.
bool Ordeal::waitForEnd(const std::string& reqId) {
    const auto finished = [&] { return log_.about("finished req_id ", reqId) != nullptr; };
    const receiver::LogLine* drop = nullptr;
    await([&] { return finished() || (drop = log_.about("Found reqid ", reqId)) != nullptr; },
          "the end of request " + reqId, endLimit);
    if (drop == nullptr) return false;
    const auto waited = drop->time - log_.about("Sending reqid ", reqId)->time;
    const bool hostSlept = situation_.victim == Part::frameHost;
    if (waited <= shortestWait || (waited > longestWait && !hostSlept))
        throw ReceiverError("request " + reqId + " was dropped after " + inMs(waited));
    return true;
}

// Of the request under way and of those behind it, one after the other.
void Ordeal::waitForEnds(Outcome& outcome) {
    if (!reqId_.empty() && waitForEnd(reqId_)) ++outcome.dropped;
    for (Queued& request : queued_)
        if ((request.dropped = waitForEnd(request.id))) ++outcome.dropped;
}

// Asks for what the partner plays, at once behind everything else or when that has ended. Returns the request's id.
std::string Ordeal::playNext(Clock::time_point returned, bool atOnce, Outcome& outcome) {
    const std::string before = queued_.empty() ? reqId_ : queued_.back().id;
    auto begin = std::max(returned, Clock::now());
    const std::string next = ask("2:0", uri_);
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

void Ordeal::requireOneAnswer(const std::string& reqId, const std::string& terminal, const std::string& uri) {
    const auto answers = kit_.waitForAnswers(reqId, 1);
    if (answers.size() != 1 || answers[0].result != 0 || answers[0].uri != uri || answers[0].terminal != terminal)
        throw ReceiverError("request " + reqId + " got " + std::to_string(answers.size()) + " answers, the first for " +
                            answers[0].terminal + ": " + std::to_string(answers[0].result) + ' ' + answers[0].uri);
}

void Ordeal::comeToRest() {
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

// A shell frees an answer after the client has it, but before it takes the next command: the one before may have been
// long, this one is short.
SizeAtRest Ordeal::sizeAtRest(Part part) {
    kit_.read(part, {"stats"});
    const HeapSize heap = heapSizeIn(heapCountOf(part));
    return {sizeOf(kit_.processId(part)), heap.bytes, heap.blocks};
}

// ---- helpers ----

std::string Ordeal::ask(const std::string& terminal, const std::string& uri) {
    const std::string before = newestReqId();
    kit_.ask(Part::frameHost, {"play", terminal, uri});
    std::string id = newestReqId();
    if (id == before) throw ReceiverError("the resource manager took no request");
    return id;
}

// Of the request that was made last, as the log says; empty before the first one.
std::string Ordeal::newestReqId() {
    const std::string mark = "POWER2:new reqid ";
    const receiver::LogLine* const line = log_.newest(mark);
    if (line == nullptr) return {};
    const std::string rest = line->text.substr(line->text.find(mark) + mark.size());
    return rest.substr(0, rest.find(' '));
}

std::string Ordeal::play(const std::string& terminal, const std::string& uri) {
    std::string id = ask(terminal, uri);
    awaitLine("finished req_id ", id);
    return id;
}

void Ordeal::awaitLine(const std::string& words, const std::string& reqId, const std::string& after) {
    await([&] { return log_.about(words, reqId + after) != nullptr; }, '"' + words + reqId + after + '"');
}

void Ordeal::setFault(Part part, const std::vector<std::string>& fault) {
    std::vector<std::string> words{"fault"};
    words.insert(words.end(), fault.begin(), fault.end());
    kit_.read(part, words);
}

void Ordeal::clearFaults() {
    for (const Part service : {Part::tvService, Part::mmService}) setFault(service, {"clear"});
}

std::uint64_t Ordeal::receivedBy(Part service) { return kit_.ask(service, {"stats"}).at(0).at("received"); }

void Ordeal::awaitReceived(Part service, std::uint64_t count) {
    await([&] { return receivedBy(service) >= count; }, "a request's arrival at the service");
}

void Ordeal::await(const std::function<bool()>& condition, const std::string& what, receiver::Milliseconds limit) {
    if (!kit_.waitFor(condition, limit)) throw ReceiverError(what + " did not come within " + inMs(limit));
}

std::string Ordeal::socketOf(Part service) const {
    return (kit_.runtimeFolder() / (serviceNameOf(service) + ".sock")).string();
}

std::filesystem::path Ordeal::heapCountOf(Part part) const {
    return kit_.folder() / "state" / heapCountFileOf(nameOf(part));
}

} // namespace killed
