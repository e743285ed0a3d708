// Messages: their declaration, and how their bodies are built for sending and read when received.
//
// A message is declared once, in a list of its service:
//
//     MESSAGE(tvservice, Request, TvServiceReq, tvServiceReq, 0x28671236, (std::vector<TvServiceReq_t>, requests))
//
// GENRPC_MESSAGE, applied to the list in a header, defines messages::TvServiceReq with its meta; GENRPC_MESSAGE_TABLE,
// in one source file, defines its table __vdl_EndianTable_tvserviceMsgTvServiceReq_t; GENRPC_MESSAGE_DESCRIPTION is its
// entry in the set. A body is the packed record of the message's arguments in order, or one zero byte without
// arguments. Interfaces, senders and handlers are plain code, which `./dev generate` writes from the lists.
#pragma once

#include <frame/message-set.h>
#include <frame/message.h>
#include <genrpc/arguments.h>
#include <genrpc/flat-region.h>
#include <genrpc/flatten.h>
#include <genrpc/record.h>
#include <genrpc/table.h>

#include <array>
#include <cstddef>
#include <tuple>
#include <utility>
#include <vector>

namespace genrpc {

enum class Direction { Request, Notification };

// The meta of a message. Every service has its own numbers; the connection distinguishes services.
constexpr frame::MsgMeta metaOf(Direction direction, std::uint32_t messageId) {
    return direction == Direction::Request ? frame::MsgMeta{0xFFFFFFFF, 0x1CCD7773, messageId, 0}
                                           : frame::MsgMeta{0xFFFFFFFF, 0x1CCD7774, messageId, 1};
}

// The entry of an argument in a message's table. A list is a nested record of its own, whose table is not exported.
template <class F> struct ArgumentCellOf : CellOf<F> {};
template <class E> struct ArgumentCellOf<Sequence<E>> {
    static constexpr TableCell cell{vdl::EndianNested, &ListTable<E>::table};
};

template <class... Args> struct Body {
    using Arguments = std::tuple<Args...>;
    static constexpr std::size_t count = sizeof...(Args);
    static constexpr std::size_t size = count == 0 ? 1 : (0 + ... + sizeof(FlatType<Args>));

    // The offset of argument `index`.
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
    static Arguments read(const void* body) {
        return [body]<std::size_t... I>(std::index_sequence<I...>) {
            return Arguments(
                plainOf(*reinterpret_cast<const FlatType<Args>*>(static_cast<const char*>(body) + offsetOf(I)))...);
        }
        (std::index_sequence_for<Args...>());
    }
};

// The body of a message, for lists; the arguments follow the first parameter.
template <class, class... Args> using BodyOf = Body<Args...>;

} // namespace genrpc

#define GENRPC_MESSAGE(service, direction_, Name, method, id_, ...)                                                  \
    extern "C" GENRPC_EXPORT const vdl::EndianTable __vdl_EndianTable_##service##Msg##Name##_t;                      \
    namespace messages {                                                                                             \
    struct Name {                                                                                                    \
        using Body = ::genrpc::BodyOf<void GENRPC_EACH(GENRPC_TYPE, __VA_ARGS__)>;                                   \
        static constexpr const char* name = #Name;                                                                   \
        static constexpr std::array<const char*, Body::count> arguments{GENRPC_EACH(GENRPC_NAME_TEXT, __VA_ARGS__)}; \
        static constexpr ::genrpc::Direction direction = ::genrpc::Direction::direction_;                            \
        static constexpr frame::MsgMeta meta = ::genrpc::metaOf(direction, id_);                                     \
        static constexpr const vdl::EndianTable* table() { return &__vdl_EndianTable_##service##Msg##Name##_t; }     \
    };                                                                                                               \
    }

// One element of a service's message set.
#define GENRPC_MESSAGE_DESCRIPTION(service, direction_, Name, ...) \
    frame::MessageDescription{messages::Name::name, messages::Name::meta, messages::Name::table()},

#define GENRPC_MESSAGE_TABLE(service, direction_, Name, ...)                                   \
    namespace tables {                                                                         \
    static constexpr auto message##Name##_entries = messages::Name::Body::entries();           \
    }                                                                                          \
    extern "C" constinit const vdl::EndianTable __vdl_EndianTable_##service##Msg##Name##_t = { \
        messages::Name::Body::size, tables::message##Name##_entries.data()};
