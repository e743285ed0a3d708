// Services that echo each request with every field as they decoded it, also requests that real services do not answer.
#pragma once

#include <genrpc/json.h>
#include <tvservice-adapter/service/program.h>
#include <tvservice-adapter/service/sender.h>

#include <cstdint>
#include <string>
#include <vector>

namespace exchange {

// Registers a handler for a message that calls service.handle<Message>(client, arguments), with a tuple of arguments.
template <class Message, class Service> void registerHandler(frame::OmqIOModule& channel, Service& service) {
    const frame::MessageHandler handler = [](const frame::MsgMeta&, const frame::TransportInfo& transport,
                                             const void* payload, void* context) {
        static_cast<Service*>(context)->template handle<Message>(transport.connection, Message::Body::read(payload));
        return 0;
    };
    channel.registerMessageHandler(Message::meta, handler, &service, *Message::table());
}

// The answers to requests to play and stop. Each has the whole request in a field that is otherwise empty.
template <class Info, class Request> std::vector<Info> answersTo(const std::vector<Request>& requests) {
    std::vector<Info> infos;
    for (const Request& request : requests) {
        Info& info = infos.emplace_back();
        info.terminal = request.terminal;
        info.uri = request.uri;
        info.uuid = request.uuid;
        info.uuidAncestor = genrpc::toText(request);
        info.reqId = request.reqId;
    }
    return infos;
}

} // namespace exchange
