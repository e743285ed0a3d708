// A message in its wire format.
#pragma once

#include <genrpc/flat-region.h>
#include <host/marshaller.h>
#include <host/message-queue.h>

#include <cstdint>
#include <string>

namespace access_check {

template <class Message, class... Args> std::string frameOf(const Args&... args) {
    const auto region = genrpc::FlatRegion::create(4096);
    host::Bytes body;
    host::marshal(host::planOf(*Message::table()), Message::Body::build(*region, args...), body,
                  host::maximumMessageBytes);
    constexpr auto& meta = Message::meta;
    std::string bytes;
    for (const std::uint32_t word : {static_cast<std::uint32_t>(body.size()), meta.instance, meta.interfaceCode,
                                     meta.messageId, std::uint32_t{meta.flag}, 0U, 0U, 0U})
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    return bytes.append(body.data(), body.size());
}

} // namespace access_check
