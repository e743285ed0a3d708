// The client side of a service: how a proxy sends its requests and delivers its notifications. The uses below,
// applied to the service's lists of messages, declare and define the senders and handlers of a class Proxy. It has a
// member `clients`, a ClientList of the service's ClientInterface; its source file has a constant `module`, the log
// module.
#pragma once

#include <frame/abstract-marshalling-impl.h>
#include <genrpc/client-list.h>
#include <genrpc/log.h>
#include <genrpc/message.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <tuple>

namespace genrpc {

// Builds meta and body in a region of their own and hands both over, with the caller's ids and without its transport;
// the completion gives the region back. Returns 0: the proxy does not look at what becomes of the message, answers come
// as notifications, and what never arrives is given up by who waits for it. Throws std::bad_alloc, with nothing sent,
// when memory runs out.
template <class Message, class... Args>
int send(frame::AbstractMarshallingImpl& proxy, const frame::MsgIds& ids, const Args&... args) {
    FlatRegion* region = FlatRegion::create(proxy.getSendBufferSize());
    frame::MsgMeta* meta = nullptr;
    char* body = nullptr;
    try {
        meta = new (region->allocate(sizeof(frame::MsgMeta))) frame::MsgMeta(Message::meta);
        body = Message::Body::build(*region, args...);
    } catch (...) {
        FlatRegion::release(region);
        throw;
    }
    proxy.asyncSend(proxy.getOmqIOModule(), ids, *meta, nullptr, *Message::table(), body,
                    [region] { FlatRegion::release(region); });
    return 0;
}

// Binds a notification to a proxy's handler, with the proxy as context. The result does not matter to the proxy.
template <class Message, class Proxy> void bind(Proxy& proxy, frame::MessageHandler handler) {
    frameOmqIOServiceRegisterMessageHandlerFunction(proxy.getOmqIOModule(), Message::meta, handler, &proxy,
                                                    *Message::table());
}

// Every client that was registered when the message came is called in order, outside the mutex, so that a client may
// register or remove clients or send from inside its notification. Each client gets its own arguments, made anew from
// the flat message, and its own copy of the empty ids.
template <class Message, class Client, class Method>
void deliver(ltMutex& mutex, const ClientList<Client>& clients, Method method, const frame::TransportInfo& transport,
             const void* payload) {
    const auto copy = [&] {
        ltGuard guard(mutex);
        return clients;
    }();
    for (const auto& client : copy) {
        frame::MsgIds ids = frame::MsgIds::none;
        std::apply([&](const auto&... args) { ((*client).*method)(ids, transport, args...); },
                   Message::Body::read(payload));
    }
}

// New members in a null-terminated array; all of it is the caller's. Throws std::bad_alloc, nothing being left over.
template <class... Members> void** arrayOf() {
    std::unique_ptr<void*, decltype(&std::free)> array(
        static_cast<void**>(std::calloc(sizeof...(Members) + 1, sizeof(void*))), std::free);
    if (!array) throw std::bad_alloc();
    std::tuple<std::unique_ptr<Members>...> members{std::make_unique<Members>()...};
    void** place = array.get();
    std::apply(
        [&](auto&... member) {
            ((*place++ = static_cast<void*>(static_cast<frame::AbstractProcessMember*>(member.release()))), ...);
        },
        members);
    return array.release();
}

} // namespace genrpc

#define GENRPC_HANDLER_PARAMETERS \
    const frame::MsgMeta &, const frame::TransportInfo &transport, const void *payload, void *context
#define GENRPC_DECLARE_HANDLER(service, direction, Name, ...) static int call##Name(GENRPC_HANDLER_PARAMETERS);

#define GENRPC_SENDER(service, direction, Name, method, id, ...)                                                    \
    int Proxy::method(frame::MsgIds& ids, const frame::TransportInfo& GENRPC_EACH(GENRPC_PARAMETER, __VA_ARGS__)) { \
        GENRPC_LOG(module, vdlDebugTrace, "Called.\n");                                                             \
        return ::genrpc::send<messages::Name>(*this, ids GENRPC_EACH(GENRPC_NAME, __VA_ARGS__));                    \
    }

// The misspelt word belongs to the log as it is written; it stays.
#define GENRPC_HANDLER(service, direction, Name, method, ...)                                                   \
    int Proxy::call##Name(GENRPC_HANDLER_PARAMETERS) {                                                          \
        GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");                                                          \
        auto& proxy = *static_cast<Proxy*>(context);                                                            \
        ::genrpc::deliver<messages::Name>(proxy.getMutex(), proxy.clients, &ClientInterface::method, transport, \
                                          payload);                                                             \
        GENRPC_LOG(module, vdlDebugTrace, "Exit\n");                                                            \
        return 0;                                                                                               \
    }

#define GENRPC_BIND(service, direction, Name, ...) ::genrpc::bind<messages::Name>(*this, call##Name);
