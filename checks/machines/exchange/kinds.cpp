#include "kinds.h"

#include "last-answer.h"
#include "tvservice/downloads.h"
#include "tvservice/emit.h"

#include <genrpc/json.h>
#include <tvservice/messages.h>

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
    if (result != 0) throw std::runtime_error(std::string(Message::name) + " is refused: " + std::to_string(result));
}

template <class Message> std::string textOf(const typename Message::Body::Arguments& arguments) {
    const auto json = [](const auto&... argument) { return genrpc::argumentsToJson<Message>(argument...).dump(); };
    return std::string(Message::name) + ' ' + std::apply(json, arguments);
}

template <class Message> bool is(const std::string& heard) {
    const std::string name = Message::name;
    return heard.compare(0, name.size() + 1, name + ' ') == 0;
}

template <class Message> genrpc::Json argumentsOf(const std::string& heard) {
    return genrpc::Json::parse(heard.substr(std::string(Message::name).size()));
}

// Adds what comes before the TV service's answer to a question that is asked now: a number that no channel has.
void hearTheRest(const Exchange& exchange, int number, Heard& heard) {
    TvServiceStreamInfoReq_t question;
    question.intParam1 = firstLast + number;
    request<messages::TvServiceStreamInfoReq>(exchange, {question});
    TvServiceStreamInfo_t answer;
    answer.intParam1 = question.intParam1;
    const std::string last = textOf<messages::TvServiceStreamInfo>({answer});
    Heard rest = exchange.application.hearUntil([&](const std::string& text) { return text == last; });
    rest.pop_back();
    std::move(rest.begin(), rest.end(), std::back_inserter(heard));
}

bool endsDownload(const std::string& heard) {
    if (!is<messages::TvserviceOadStatusNotify>(heard)) return false;
    const int status = argumentsOf<messages::TvserviceOadStatusNotify>(heard)["status"];
    return status == services::Downloads::done || status == services::Downloads::refused;
}

template <class Message> RoundTrip playRequest(const Exchange& exchange, int number) {
    typename Message::Body::Arguments arguments;
    exchange.random.fill(arguments);
    if constexpr (std::is_same_v<Message, messages::SetParentalLockInfo>)
        if (!exchange.random.once(4)) std::get<0>(arguments).intParam1 = 0; // or hardly a terminal would stay open
    request<Message>(exchange, arguments);
    RoundTrip trip;
    if constexpr (std::is_same_v<Message, messages::RequestPackagesReq>) // which goes on by itself
        trip.heard = exchange.application.hearUntil(endsDownload);
    hearTheRest(exchange, number, trip.heard);
    return trip;
}

// The answers of both services, as one list, in an order of its own.
std::string sorted(genrpc::Json answer) {
    auto& infos = answer["infos"];
    std::sort(infos.begin(), infos.end(),
              [](const genrpc::Json& one, const genrpc::Json& other) { return one.dump() < other.dump(); });
    return std::string(messages::TvServiceInfo::name) + ' ' + answer.dump();
}

// What is certain of the answer: an entry for each request, as it was asked for.
std::string certain(genrpc::Json answer, bool ownId) {
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
    std::vector<TvServiceInfo_t> wanted;
    for (TvServiceReq_t& one : requests) {
        exchange.random.fillUri(one.uri);
        one.reqId = reqId;
        wanted.push_back({one.terminal, 0, one.uri, one.uuid, "", reqId.empty() ? "of the manager" : reqId});
    }
    request<messages::TvServiceReq>(exchange, {requests});
    RoundTrip trip;
    if (requests.empty()) { // of which nothing comes
        hearTheRest(exchange, number, trip.heard);
        return trip;
    }
    Heard heard = exchange.application.hearUntil(is<messages::TvServiceInfo>);
    const auto answer = argumentsOf<messages::TvServiceInfo>(heard.back());
    heard.pop_back();
    hearTheRest(exchange, number, heard);
    trip.heard = {sorted(answer)};
    std::move(heard.begin(), heard.end(), std::back_inserter(trip.heard));
    const std::string all = sorted(genrpc::argumentsToJson<messages::TvServiceInfo>(wanted));
    if (certain(answer, !reqId.empty()) != all) trip.wanted = all;
    return trip;
}

template <class Message> RoundTrip playNotification(const Exchange& exchange, int number) {
    std::string wanted, json;
    do {
        typename Message::Body::Arguments arguments;
        exchange.random.fill(arguments);
        wanted = textOf<Message>(arguments);
        json = wanted.substr(std::string(Message::name).size() + 1);
    } while (json.size() >= services::EmitCommand::jsonLimit);
    exchange.tvService.emit(Message::name, json);
    RoundTrip trip;
    hearTheRest(exchange, number, trip.heard);
    if (trip.heard != Heard{wanted}) trip.wanted = wanted;
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
