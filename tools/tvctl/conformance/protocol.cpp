#include "protocol.h"

#include <genrpc/message.h>
#include <genrpc/send.h>
#include <host/marshaller.h>
#include <mmservice/messages.h>
#include <tvservice/messages.h>

#include <schema/samples.h>
#include <tuple>
#include <utility>

namespace tvctl::conformance {
namespace {

constexpr std::size_t firstBytes = 16384;

template <class Message, class... Args> int sendOne(frame::OmqIOModule& channel, const Args&... args) {
    return genrpc::send<Message>(channel, {.ids = frame::MsgIds::none, .transport = nullptr, .firstBytes = firstBytes},
                                 args...);
}

template <class Message> int sendSample(frame::OmqIOModule& channel) {
    const auto arguments = schema::Samples().next<typename Message::Body::Arguments>();
    return std::apply([&](const auto&... args) { return sendOne<Message>(channel, args...); }, arguments);
}

// Lists: the message with a list of requests or answers.
template <class Lists> using ListOf = std::tuple_element_t<0, typename Lists::Body::Arguments>;

template <class Message> ListOf<Message> listOf(const std::vector<Request>& requests) {
    ListOf<Message> list;
    for (const Request& request : requests) {
        auto& record = list.emplace_back();
        record.terminal.type = request.terminal.type;
        record.terminal.id = request.terminal.id;
        record.uri = request.uri;
        record.uuid = request.uuid;
        record.reqId = request.reqId;
    }
    return list;
}

template <class Message> int sendList(frame::OmqIOModule& channel, const std::vector<Request>& requests) {
    return sendOne<Message>(channel, listOf<Message>(requests));
}

template <class Message> std::string wireOf(const std::vector<Request>& requests) {
    const auto region = genrpc::FlatRegion::create(firstBytes);
    const char* const body = Message::Body::build(*region, listOf<Message>(requests));
    host::Bytes wire;
    host::marshal(host::planOf(*Message::table()), body, wire, 1U << 20);
    return {wire.data(), wire.size()};
}

template <class Message> std::vector<Entry> entriesOf(const void* payload) {
    std::vector<Entry> entries;
    const auto arguments = Message::Body::read(payload);
    for (const auto& info : std::get<0>(arguments))
        entries.push_back({{info.terminal.type, info.terminal.id}, info.result, info.uri, info.uuid, info.reqId});
    return entries;
}

template <class RequestMessage, class AnswerMessage>
Protocol protocol(const char* service, const char* address, const frame::MessageSet& messages,
                  std::vector<Sample> samples) {
    std::vector<const frame::MessageDescription*> notifications;
    for (const frame::MessageDescription& message : messages)
        if (message.meta.flag == AnswerMessage::meta.flag) notifications.push_back(&message);
    return {service,
            address,
            messages,
            sendList<RequestMessage>,
            entriesOf<AnswerMessage>,
            RequestMessage::meta,
            AnswerMessage::meta,
            std::move(notifications),
            wireOf<RequestMessage>,
            std::move(samples)};
}

#define CONFORMANCE_SAMPLE(service, direction, Name, ...) {#Name, sendSample<service::messages::Name>},

const std::vector<Protocol>& protocols() {
    static const std::vector<Protocol> both{
        protocol<tvservice::messages::TvServiceReq, tvservice::messages::TvServiceInfo>(
            tvservice::serviceName, "dvb://1.1.1", tvservice::messageSet(), {TVSERVICE_REQUESTS(CONFORMANCE_SAMPLE)}),
        protocol<mmservice::messages::MmServiceReq, mmservice::messages::MmServiceInfo>(
            mmservice::serviceName, "http://media.example/film", mmservice::messageSet(),
            {MMSERVICE_REQUESTS(CONFORMANCE_SAMPLE)}),
    };
    return both;
}

#undef CONFORMANCE_SAMPLE

} // namespace

const Protocol* protocolOf(const std::string& service) {
    for (const Protocol& protocol : protocols())
        if (service == protocol.service) return &protocol;
    return nullptr;
}

std::string serviceNames() {
    std::string names;
    for (const Protocol& protocol : protocols()) names += (names.empty() ? "" : ", ") + std::string(protocol.service);
    return names;
}

} // namespace tvctl::conformance
