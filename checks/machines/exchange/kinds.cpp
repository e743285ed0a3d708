#include "kinds.h"

#include "marker.h"
#include "tvservice/emit.h"

#include <genrpc/json.h>
#include <tvservice/messages.h>
#include <tvservice/values.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <utility>

namespace exchange {
namespace {

using namespace tvservice;
namespace messages = tvservice::messages;

// The adapter's method for a request.
template <class Message> struct Forwarder;
#define FORWARDER(service, direction, Name, method, ...) \
    template <> struct Forwarder<messages::Name> { static constexpr auto pointer = &ModelTvServiceAdapter::method; };
TVSERVICE_REQUESTS(FORWARDER)
#undef FORWARDER

template <class Message> void request(const Exchange& exchange, const typename Message::Body::Arguments& arguments) {
    frame::MsgIds ids;
    const int result = std::apply(
        [&](const auto&... argument) {
            return (exchange.application.adapter().*Forwarder<Message>::pointer)(ids, {}, argument...);
        },
        arguments);
    if (result != 0) throw std::runtime_error(std::string(Message::name) + " was refused: " + std::to_string(result));
}

template <class Message> std::string textOf(const typename Message::Body::Arguments& arguments) {
    const auto json = [](const auto&... argument) { return genrpc::argumentsToJson<Message>(argument...).dump(); };
    return std::string(Message::name) + ' ' + std::apply(json, arguments);
}

template <class Message> bool is(const std::string& received) {
    const std::string name = Message::name;
    return received.compare(0, name.size() + 1, name + ' ') == 0;
}

template <class Message> genrpc::Json argumentsOf(const std::string& received) {
    return genrpc::Json::parse(received.substr(std::string(Message::name).size()));
}

// Sends a marker, and adds the notifications that arrive before its answer.
void receiveRemaining(const Exchange& exchange, int number, Notifications& received) {
    TvServiceStreamInfoReq_t query;
    query.intParam1 = firstMarker + number;
    request<messages::TvServiceStreamInfoReq>(exchange, {query});
    TvServiceStreamInfo_t answer;
    answer.intParam1 = query.intParam1;
    const std::string last = textOf<messages::TvServiceStreamInfo>({answer});
    Notifications rest = exchange.application.receiveUntil([&](const std::string& text) { return text == last; });
    rest.pop_back();
    std::move(rest.begin(), rest.end(), std::back_inserter(received));
}

bool endsDownload(const std::string& received) {
    if (!is<messages::TvserviceOadStatusNotify>(received)) return false;
    const int status = argumentsOf<messages::TvserviceOadStatusNotify>(received)["status"];
    return status == tvservice::oadStatus::done || status == tvservice::oadStatus::refused;
}

template <class Message> RoundTrip playRequest(const Exchange& exchange, int number) {
    typename Message::Body::Arguments arguments;
    exchange.random.fill(arguments);
    if constexpr (std::is_same_v<Message, messages::SetParentalLockInfo>)
        if (!exchange.random.once(4))
            std::get<0>(arguments).intParam1 = 0; // otherwise nearly all terminals would be locked
    request<Message>(exchange, arguments);
    RoundTrip trip;
    if constexpr (std::is_same_v<Message, messages::RequestPackagesReq>) // it continues on its own
        trip.received = exchange.application.receiveUntil(endsDownload);
    receiveRemaining(exchange, number, trip.received);
    return trip;
}

// The answers of both services as one sorted list.
std::string sorted(genrpc::Json answer) {
    auto& infos = answer["infos"];
    std::sort(infos.begin(), infos.end(),
              [](const genrpc::Json& a, const genrpc::Json& b) { return a.dump() < b.dump(); });
    return std::string(messages::TvServiceInfo::name) + ' ' + answer.dump();
}

// The predictable part of the answer: an entry for each request, with the request's fields.
std::string predictablePart(genrpc::Json answer, bool ownId) {
    for (auto& info : answer["infos"]) {
        info["result"] = 0;
        info["uuidAncestor"] = "";
        if (!ownId && info["reqId"] != "") info["reqId"] = "of the manager";
    }
    return sorted(std::move(answer));
}

template <> RoundTrip playRequest<messages::TvServiceReq>(const Exchange& exchange, int number) {
    std::vector<TvServiceReq_t> requests;
    exchange.random.fill(requests);
    std::string reqId;
    if (exchange.random.once(2)) exchange.random.fill(reqId);
    std::vector<TvServiceInfo_t> expected;
    for (TvServiceReq_t& play : requests) {
        exchange.random.fillUri(play.uri);
        play.reqId = reqId;
        expected.push_back({play.terminal, 0, play.uri, play.uuid, "", reqId.empty() ? "of the manager" : reqId});
    }
    request<messages::TvServiceReq>(exchange, {requests});
    RoundTrip trip;
    if (requests.empty()) { // there is no answer
        receiveRemaining(exchange, number, trip.received);
        return trip;
    }
    Notifications received = exchange.application.receiveUntil(is<messages::TvServiceInfo>);
    const auto answer = argumentsOf<messages::TvServiceInfo>(received.back());
    received.pop_back();
    receiveRemaining(exchange, number, received);
    trip.received = {sorted(answer)};
    std::move(received.begin(), received.end(), std::back_inserter(trip.received));
    const std::string all = sorted(genrpc::argumentsToJson<messages::TvServiceInfo>(expected));
    if (predictablePart(answer, !reqId.empty()) != all) trip.expected = all;
    return trip;
}

template <class Message> RoundTrip playNotification(const Exchange& exchange, int number) {
    std::string expected, json;
    do {
        typename Message::Body::Arguments arguments;
        exchange.random.fill(arguments);
        expected = textOf<Message>(arguments);
        json = expected.substr(std::string(Message::name).size() + 1);
    } while (json.size() >= services::EmitCommand::jsonLimit);
    exchange.tvService.emit(Message::name, json);
    RoundTrip trip;
    receiveRemaining(exchange, number, trip.received);
    if (trip.received != Notifications{expected}) trip.expected = expected;
    return trip;
}

} // namespace

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> all{
#define REQUEST(service, direction, Name, ...)                                                   \
    {#Name, playRequest<messages::Name>, std::is_same_v<messages::Name, messages::TvServiceReq>, \
     std::is_same_v<messages::Name, messages::RequestPackagesReq>},
        TVSERVICE_REQUESTS(REQUEST)
#undef REQUEST
#define NOTIFICATION(service, direction, Name, ...) {#Name, playNotification<messages::Name>, false, false},
            TVSERVICE_NOTIFICATIONS(NOTIFICATION)
#undef NOTIFICATION
    };
    return all;
}

} // namespace exchange
