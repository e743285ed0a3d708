// Sends a message. All proxies and services use this.
#pragma once

#include <frame/message.h>
#include <genrpc/flat-region.h>
#include <vdl/endian-table.h>

#include <cstddef>
#include <new>
#include <utility>

namespace genrpc {

struct Sending {
    const frame::MsgIds& ids;
    const frame::TransportInfo* transport; // as for frame::OmqIOModule::asyncSend
    std::size_t firstBytes;                // of the message's memory
};

// Builds meta and body in a region of their own and passes both to port.asyncSend, which has the parameters of
// frame::OmqIOModule::asyncSend; the completion frees the region. Returns the result of asyncSend. Throws
// std::bad_alloc, with nothing sent, when memory runs out.
template <class Message, class Port, class... Args> int send(Port&& port, const Sending& sending, const Args&... args) {
    auto region = FlatRegion::create(sending.firstBytes);
    const auto* meta = new (region->allocate(sizeof(frame::MsgMeta))) frame::MsgMeta(Message::meta);
    const char* body = Message::Body::build(*region, args...);
    return port.asyncSend(sending.ids, *meta, sending.transport, *Message::table(), body,
                          FlatRegion::giveBack(std::move(region)));
}

} // namespace genrpc
