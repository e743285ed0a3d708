#include "kinds.h"

#include "support/tv-messages.h"
#include "tvservice/downloads.h"
#include "tvservice/emit.h"

#include <genrpc/json.h>

#include <tuple>

namespace exchange {
namespace {

template <class Message> std::string jsonOf(const typename Message::Body::Arguments& arguments) {
    return std::apply([](const auto&... argument) { return genrpc::argumentsToJson<Message>(argument...); }, arguments)
        .dump();
}

template <class Message> void request(const Sides& sides, const typename Message::Body::Arguments& arguments) {
    for (Side* const side : sides) {
        frame::MsgIds ids;
        support::call<Message>(side->proxy(), ids, {}, arguments);
    }
}

template <class Message> std::string playRequest(Random& random, const Sides& sides) {
    typename Message::Body::Arguments arguments;
    random.fill(arguments);
    request<Message>(sides, arguments);
    return {};
}

template <class Message> std::string playNotification(Random& random, const Sides& sides) {
    std::string json;
    do {
        typename Message::Body::Arguments arguments;
        random.fill(arguments);
        json = jsonOf<Message>(arguments);
    } while (json.size() >= services::EmitCommand::jsonLimit);
    for (Side* const side : sides) side->emit(Message::name, json);
    return std::string(Message::name) + ' ' + json;
}

} // namespace

const std::vector<Kind>& kinds() {
    using namespace tvservice::messages;
    constexpr const char* download = RequestPackagesReq::name;
    static const std::vector<Kind> all{
#define REQUEST(service, direction, Name, ...) {#Name, playRequest<Name>, Name::name == download},
        TVSERVICE_REQUESTS(REQUEST)
#undef REQUEST
#define NOTIFICATION(service, direction, Name, ...) {#Name, playNotification<Name>, false},
            TVSERVICE_NOTIFICATIONS(NOTIFICATION)
#undef NOTIFICATION
    };
    return all;
}

// The service's answer to a number that no channel has.
std::string askLast(const Sides& sides, int number) {
    using namespace tvservice;
    TvServiceStreamInfoReq_t last;
    last.intParam1 = number;
    request<messages::TvServiceStreamInfoReq>(sides, {last});
    TvServiceStreamInfo_t answer;
    answer.intParam1 = number;
    return std::string(messages::TvServiceStreamInfo::name) + ' ' + jsonOf<messages::TvServiceStreamInfo>({answer});
}

bool endsDownload(const std::string& heard) {
    const std::string name = tvservice::messages::TvserviceOadStatusNotify::name;
    if (heard.compare(0, name.size() + 1, name + ' ') != 0) return false;
    const int status = genrpc::Json::parse(heard.substr(name.size()))["status"];
    return status == services::Downloads::done || status == services::Downloads::refused;
}

} // namespace exchange
