#include "examination.h"

#include <host/result.h>
#include <tvservice/core-records.h>
#include <tvservice/results.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <unistd.h>
#include <utility>

namespace tvctl::conformance {
namespace {

using std::chrono::milliseconds;

constexpr int manyTerminals = 300;
constexpr int shortConnections = 20;
// More answers than a service may queue for one client.
constexpr int listsOfASlowReader = 1500;
constexpr std::size_t terminalsOfASlowReader = 5;
// So few that the socket takes them: the thread that would send them later is the one that does not read.
constexpr int listsPerRoundTrip = 16;

std::string secondsText(Clock::duration duration) {
    const auto tenths = std::chrono::duration_cast<milliseconds>(duration).count() / 100;
    return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10) + " s";
}

std::string textOf(const Terminal& terminal) {
    return std::to_string(terminal.type) + ':' + std::to_string(terminal.id);
}

std::string textOf(std::int32_t result) {
    return std::to_string(result) + " (" + tvservice::nameOfResult(result) + ")";
}

bool hasName(std::int32_t result) { return find(tvservice::results, result) != nullptr; }

bool isStop(const Request& request) { return request.uri == tvservice::stopUri; }

bool answers(const Entry& entry, const Request& request) {
    return entry.terminal == request.terminal && entry.uri == request.uri && entry.uuid == request.uuid;
}

} // namespace

Examination::Examination(const Protocol& protocol, const Settings& settings)
    : protocol_(protocol), settings_(settings), prefix_("check-" + std::to_string(getpid()) + '-') {}

Report Examination::run() {
    Report report(settings_.quick);
    try {
        check(report);
    } catch (const Stop&) {
    }
    if (honest_) checkAtTheEnd(report);
    return report;
}

void Examination::check(Report& report) {
    checkHandshake(report);
    checkMessageSet(report);
    checkAnswers(report);
    checkOrder(report);
    checkManyTerminals(report);
    checkEveryRequest(report);
    checkMalformed(report);
    if (settings_.quick) return;
    checkReconnect(report);
    checkSlowReader(report);
}

// ---- requests and answers ----

std::string Examination::newId() {
    std::string id = prefix_ + std::to_string(++lastId_);
    asked_.insert(id);
    return id;
}

Request Examination::stopOf(const Terminal& terminal) const { return {terminal, tvservice::stopUri, {}, {}}; }
Request Examination::playOf(const std::string& uri) const { return {settings_.terminal, uri, {}, {}}; }

Answer Examination::ask(Report& report, std::vector<Request> requests) {
    const std::string id = newId();
    // The uuid recognises an answer with another id.
    for (Request& request : requests) request.reqId = request.uuid = id;
    const std::size_t after = honest_->answers().size();
    const auto sent = Clock::now();
    if (const int result = honest_->send(requests); result < 0) {
        report.breaks("answer", std::string("a list could not be sent: ") + host::ResultText(result).text());
        throw Stop();
    }
    return awaitAnswer(report, requests, after, sent);
}

Answer Examination::awaitAnswer(Report& report, const std::vector<Request>& requests, std::size_t after,
                                Clock::time_point sent) {
    const std::string& id = requests.front().reqId;
    const auto until = sent + std::max<milliseconds>(settings_.timeout, answerLimit);
    bool otherIds = false;
    while (honest_->waitForAnswer(after, until)) {
        for (const Answer& answer : honest_->answers(after)) {
            ++after;
            const auto& entries = answer.entries;
            const bool hasId =
                std::any_of(entries.begin(), entries.end(), [&](const Entry& entry) { return entry.reqId == id; });
            const bool hasUuid =
                std::any_of(entries.begin(), entries.end(), [&](const Entry& entry) { return entry.uuid == id; });
            if (!hasId && !hasUuid) {
                otherIds = otherIds || std::none_of(entries.begin(), entries.end(),
                                                    [&](const Entry& entry) { return asked_.contains(entry.reqId); });
                continue;
            }
            report.keeps("answer");
            if (answer.when - sent > answerLimit) {
                report.breaks("in-time", "a list was answered after " + secondsText(answer.when - sent));
                throw Stop();
            }
            report.keeps("in-time");
            checkEntries(report, requests, answer);
            if (report.isBroken("request-id")) throw Stop(); // the answers cannot be told apart
            return answer;
        }
    }
    checkConnection(report, "it was to answer a list");
    if (otherIds)
        report.breaks("request-id", "a list with the id " + id + " got only answers with other ids");
    else
        report.breaks("answer", "a list was not answered within " + secondsText(Clock::now() - sent));
    throw Stop();
}

void Examination::checkEntries(Report& report, const std::vector<Request>& requests, const Answer& answer) const {
    const auto& entries = answer.entries;
    for (const char* rule : {"request-id", "entries", "result"}) report.keeps(rule);
    if (entries.size() != requests.size())
        report.breaks("entries", std::to_string(requests.size()) + " requests in a list got " +
                                     std::to_string(entries.size()) + " entries");
    for (const Request& request : requests) {
        const auto entry =
            std::find_if(entries.begin(), entries.end(), [&](const Entry& one) { return answers(one, request); });
        if (entry == entries.end()) {
            report.breaks("entries", "no entry repeats terminal " + textOf(request.terminal) + ", address " +
                                         request.uri + " and the uuid of a request");
            continue;
        }
        if (entry->reqId != request.reqId)
            report.breaks("request-id", "a list with the id " + request.reqId + " got the id " + entry->reqId);
        if (!hasName(entry->result))
            report.breaks("result", "the result " + std::to_string(entry->result) + " has no name");
        if (!isStop(request)) continue;
        report.keeps("stop");
        if (entry->result != tvservice::result::done)
            report.breaks(
                "stop", "a stop of terminal " + textOf(request.terminal) + " got the result " + textOf(entry->result));
    }
}

void Examination::checkConnection(Report& report, const std::string& during) {
    if (!honest_->lostConnection()) return;
    const std::string reason = honest_->failure();
    report.breaks("connection", "it closed the connection when " + during + (reason.empty() ? "" : ": " + reason));
    throw Stop();
}

void Examination::checkStillServes(Report& report, const char* rule, const std::string& what) {
    const bool wasBroken = report.isBroken("answer") || report.isBroken("in-time");
    try {
        ask(report, {stopOf(settings_.terminal)});
        report.keeps(rule);
    } catch (const Stop&) {
        if (!wasBroken) report.breaks(rule, what + ", it does not serve other clients");
        throw;
    }
}

// ---- the rules ----

void Examination::checkHandshake(Report& report) {
    const auto fail = [&](const std::string& what) {
        report.breaks("handshake", what);
        honest_.reset();
        throw Stop();
    };
    try {
        honest_ = std::make_unique<Client>(protocol_);
    } catch (const std::runtime_error& error) {
        fail(error.what());
    }
    const auto connected = honest_->connected(settings_.timeout);
    if (!connected) fail("no answer within " + secondsText(settings_.timeout));
    if (!*connected) fail(honest_->failure());
    report.keeps("handshake");
}

void Examination::checkMessageSet(Report& report) {
    const frame::MessageSet fewer{protocol_.messages.messages, protocol_.messages.count - 1};
    Client other(protocol_, fewer);
    const auto connected = other.connected(settings_.timeout);
    report.keeps("message-set");
    if (!connected)
        report.breaks("message-set", "a client without the last message was neither accepted nor rejected within " +
                                         secondsText(settings_.timeout));
    else if (*connected)
        report.breaks("message-set", "a client without the last message was accepted");
}

void Examination::checkAnswers(Report& report) {
    const auto resultOf = [&](const Request& request) { return ask(report, {request}).entries.front().result; };
    const std::string address = settings_.address.empty() ? protocol_.address : settings_.address;
    const Request stop = stopOf(settings_.terminal), play = playOf(address);
    resultOf(stop);
    resultOf(stop); // when it surely shows nothing
    report.keeps("play");
    const auto checkPlay = [&](const char* when) {
        if (const auto result = resultOf(play); result != tvservice::result::done)
            report.breaks("play", address + " on terminal " + textOf(settings_.terminal) + ", " + when +
                                      ", got the result " + textOf(result));
    };
    checkPlay("after a stop");
    checkPlay("while it is shown");
    report.keeps("refusal");
    if (resultOf(playOf("no-such-scheme:nothing")) == tvservice::result::done)
        report.breaks("refusal", "no-such-scheme:nothing got the result 0");
    resultOf(stop);
}

void Examination::checkOrder(Report& report) {
    constexpr int together = 10;
    std::vector<std::vector<Request>> lists;
    for (int i = 0; i < together; ++i) {
        const std::string id = newId();
        lists.push_back({stopOf(settings_.terminal), stopOf({settings_.terminal.type, settings_.terminal.id + 1})});
        for (Request& request : lists.back()) request.reqId = request.uuid = id;
    }
    const std::size_t after = honest_->answers().size();
    const auto sent = Clock::now();
    for (const auto& list : lists) honest_->send(list);
    try {
        for (const auto& list : lists) awaitAnswer(report, list, after, sent);
        report.keeps("order");
    } catch (const Stop&) {
        report.breaks("order", "of " + std::to_string(together) + " lists sent together, not each was answered");
        throw;
    }
}

void Examination::checkManyTerminals(Report& report) {
    std::vector<Request> stops;
    stops.reserve(manyTerminals);
    for (int id = 0; id < manyTerminals; ++id) stops.push_back(stopOf({settings_.terminal.type, id}));
    try {
        const Answer answer = ask(report, stops);
        report.keeps("many-terminals");
        if (answer.entries.size() != stops.size())
            report.breaks("many-terminals", "of " + std::to_string(stops.size()) + " terminals, " +
                                                std::to_string(answer.entries.size()) + " were answered");
    } catch (const Stop&) {
        report.breaks("many-terminals", "a list with " + std::to_string(stops.size()) + " stops was not answered");
        throw;
    }
}

void Examination::checkEveryRequest(Report& report) {
    for (const Sample& sample : protocol_.samples) {
        honest_->send(sample);
        checkStillServes(report, "every-request", std::string("after ") + sample.message + " with sample values");
    }
}

// Each message is sent with a correct frame, because the rest of a connection after a wrong frame has no meaning.
void Examination::checkMalformed(Report& report) {
    Request request = playOf(protocol_.address);
    request.reqId = request.uuid = newId();
    const std::string wire = protocol_.wireOf({request, request});
    Client malicious(protocol_);
    malicious.connected(settings_.timeout);
    const auto send = [&](const std::string& what, const std::string& body) {
        malicious.send(protocol_.request, body);
        checkStillServes(report, "malformed", what);
    };
    const std::size_t step = settings_.quick ? 16 : 4;
    for (std::size_t size = 1; size < wire.size(); size += step)
        send("after a list cut to " + std::to_string(size) + " of " + std::to_string(wire.size()) + " bytes",
             wire.substr(0, size));
    for (const std::uint32_t value : {0xFFFFFFFFU, 0x7FFFFFFFU, 0U, static_cast<std::uint32_t>(wire.size())})
        for (std::size_t at = 0; at + sizeof value <= wire.size(); at += step) {
            std::string body = wire;
            body.replace(at, sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
            send("after a list with the number " + std::to_string(value) + " at byte " + std::to_string(at), body);
        }
    frame::MsgMeta unknown = protocol_.request;
    unknown.messageId = 0;
    malicious.send(unknown, wire);
    checkStillServes(report, "malformed", "after a message with an unknown number");
}

void Examination::checkReconnect(Report& report) {
    for (int i = 0; i < shortConnections; ++i) {
        Client brief(protocol_);
        if (!brief.connected(settings_.timeout).value_or(false)) {
            report.breaks("reconnect", "connection " + std::to_string(i + 2) + " was not accepted: " + brief.failure());
            return;
        }
        Request request = stopOf(settings_.terminal);
        request.reqId = newId();
        brief.send({request});
    }
    checkStillServes(report, "reconnect",
                     "after " + std::to_string(shortConnections) + " clients that left without reading their answers");
}

void Examination::checkSlowReader(Report& report) {
    Client slow(protocol_);
    slow.connected(settings_.timeout);
    std::vector<Request> stops;
    for (std::size_t id = 0; id < terminalsOfASlowReader; ++id)
        stops.push_back(stopOf({settings_.terminal.type, static_cast<std::int32_t>(id)}));
    const std::string id = newId() + std::string(100, '-');
    for (Request& request : stops) request.reqId = request.uuid = id;
    slow.stopReading();
    slow.send(stops);
    if (!slow.hasStoppedReading(settings_.timeout)) {
        report.breaks("slow-reader", "a second client was not answered");
        throw Stop();
    }
    for (int i = 0; i < listsOfASlowReader; ++i) {
        slow.send(stops);
        if (i % listsPerRoundTrip == 0)
            checkStillServes(report, "slow-reader",
                             "with a client that does not read the answers to " + std::to_string(i) + " lists");
    }
    checkStillServes(report, "slow-reader", "with a client that does not read its answers");
}

void Examination::checkAtTheEnd(Report& report) {
    if (!report.isBroken("connection") && honest_->lostConnection()) {
        try {
            checkConnection(report, "it was examined");
        } catch (const Stop&) {
        }
    }
    if (report.isBroken("answer") || report.isBroken("request-id")) return; // answers that were counted mean nothing
    std::map<std::string, unsigned> counts;
    for (const Answer& answer : honest_->answers())
        if (!answer.entries.empty() && asked_.contains(answer.entries.front().reqId))
            ++counts[answer.entries.front().reqId];
    if (counts.empty()) return;
    report.keeps("once");
    for (const auto& [id, count] : counts)
        if (count > 1) report.breaks("once", "the list " + id + " got " + std::to_string(count) + " answers");
    report.keeps("decodable");
    if (const auto count = honest_->undecodable(); count > 0)
        report.breaks("decodable", std::to_string(count) + " of its messages could not be decoded");
    report.keeps("connection");
}

} // namespace tvctl::conformance
