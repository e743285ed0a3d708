// Messages: how one is declared, and how its body is built for sending and read on arrival.
//
// A message is declared once, in a list of its service:
//
//     MESSAGE(tvservice, Request, TvServiceReq, 0x28671236, std::vector<TvServiceReq_t>)
//
// GENRPC_MESSAGE, applied to the list in a header, makes messages::TvServiceReq with its meta; GENRPC_MESSAGE_TABLE, in
// one source file, its table __vdl_EndianTable_tvserviceMsgTvServiceReq_t; GENRPC_MESSAGE_DESCRIPTION its place in the
// set. A body is the packed record of the message's arguments in order; without arguments it is one byte 0.
#pragma once

#include <frame/abstract-marshalling-impl.h>
#include <frame/message.h>
#include <genrpc/flat-region.h>
#include <genrpc/flatten.h>
#include <genrpc/record.h>
#include <genrpc/table.h>

#include <array>
#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <tuple>
#include <utility>
#include <vector>

namespace genrpc {

enum class Direction { Request, Notification };

// The meta of a message: every service numbers its own, the connection tells services apart.
constexpr frame::MsgMeta metaOf(Direction direction, std::uint32_t messageId) {
    return direction == Direction::Request ? frame::MsgMeta{0xFFFFFFFF, 0x1CCD7773, messageId, 0}
                                           : frame::MsgMeta{0xFFFFFFFF, 0x1CCD7774, messageId, 1};
}

// How an argument stands in a message's table. A list is a nested record of its own, whose table is not exported.
template <class F> struct ArgumentCellOf : CellOf<F> {};
template <class E> struct ArgumentCellOf<Sequence<E>> {
    static constexpr TableCell cell{vdl::EndianNested, &ListTable<E>::table};
};

template <class... Args> struct Body {
    static constexpr std::size_t count = sizeof...(Args);
    static constexpr std::size_t size = count == 0 ? 1 : (0 + ... + sizeof(FlatType<Args>));

    // Where argument `index` stands.
    static constexpr std::size_t offsetOf(std::size_t index) {
        constexpr std::array<std::size_t, count + 1> sizes{sizeof(FlatType<Args>)..., 0};
        std::size_t offset = 0;
        for (std::size_t i = 0; i < index; ++i) offset += sizes[i];
        return offset;
    }
    static constexpr auto entries() {
        return []<std::size_t... I>(std::index_sequence<I...>) {
            return std::array{entryOf(offsetOf(I), ArgumentCellOf<FlatType<Args>>::cell)..., endOfTable};
        }
        (std::index_sequence_for<Args...>());
    }

    // Builds the flat body in region.
    static char* build(FlatRegion& region, const Args&... args) {
        char* body = region.allocate(size);
        if constexpr (count == 0) body[0] = 0;
        std::size_t index = 0;
        (flatten(args, *reinterpret_cast<FlatType<Args>*>(body + offsetOf(index++)), region), ...);
        return body;
    }

    // The plain arguments of a flat body.
    static std::tuple<Args...> read(const void* body) {
        return [body]<std::size_t... I>(std::index_sequence<I...>) {
            std::tuple<Args...> args;
            (unflatten(*reinterpret_cast<const FlatType<Args>*>(static_cast<const char*>(body) + offsetOf(I)),
                       std::get<I>(args)),
             ...);
            return args;
        }
        (std::index_sequence_for<Args...>());
    }
};

// A proxy's send template: builds meta and body in a region of their own and hands both over, with the caller's ids and
// without its transport; the completion gives the region back. Returns 0: the proxy does not look at what becomes of
// the message, answers come as notifications, and what never arrives is given up by who waits for it. Throws
// std::bad_alloc, with nothing sent, when memory runs out.
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

// A proxy's delivery template: every client that was registered when the message came is called in order, outside the
// mutex, so that a client may register or remove clients or send from inside its notification. Each client gets its own
// arguments, made anew from the flat message, and its own copy of the empty ids.
template <class Message, class Client, class Method>
void deliver(ltMutex& mutex, const std::vector<boost::shared_ptr<Client>>& clients, Method method,
             const frame::TransportInfo& transport, const void* payload) {
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

} // namespace genrpc

#define GENRPC_MESSAGE(service, direction_, Name, id_, ...)                                                      \
    extern "C" GENRPC_EXPORT const vdl::EndianTable __vdl_EndianTable_##service##Msg##Name##_t;                  \
    namespace messages {                                                                                         \
    struct Name {                                                                                                \
        using Body = ::genrpc::Body<__VA_ARGS__>;                                                                \
        static constexpr const char* name = #Name;                                                               \
        static constexpr ::genrpc::Direction direction = ::genrpc::Direction::direction_;                        \
        static constexpr frame::MsgMeta meta = ::genrpc::metaOf(direction, id_);                                 \
        static constexpr const vdl::EndianTable* table() { return &__vdl_EndianTable_##service##Msg##Name##_t; } \
    };                                                                                                           \
    }

// One element of a service's message set.
#define GENRPC_MESSAGE_DESCRIPTION(service, direction_, Name, id_, ...) \
    frame::MessageDescription{messages::Name::name, messages::Name::meta, messages::Name::table()},

#define GENRPC_MESSAGE_TABLE(service, direction_, Name, id_, ...)                              \
    namespace tables {                                                                         \
    static constexpr auto message##Name##_entries = messages::Name::Body::entries();           \
    }                                                                                          \
    extern "C" constinit const vdl::EndianTable __vdl_EndianTable_##service##Msg##Name##_t = { \
        messages::Name::Body::size, tables::message##Name##_entries.data()};
