// The metadata of every message of the platform's queue.
#pragma once

#include <cstdint>

namespace frame {

// Ids that a caller assigns to a request for its own use; all zero by default. They are sent with the message.
struct MsgIds {
    std::uint32_t sender = 0;
    std::uint32_t sequence = 0;

    bool operator==(const MsgIds&) const = default;

    // The empty ids. Pass copies: receivers take ids by non-const reference.
    static const MsgIds none;
};

// The connection that a message came from, or (when passed to asyncSend) the one connection to send it on.
struct TransportInfo {
    std::uint64_t connection = 0; // number of the connection in this process, from 1; 0 for none
    MsgIds ids;                   // the ids that its sender assigned

    bool operator==(const TransportInfo&) const = default;
};

// Identifies a message. Messages are matched on all four fields.
struct MsgMeta {
    std::uint32_t instance;
    std::uint32_t interfaceCode;
    std::uint32_t messageId;
    std::uint8_t flag;

    bool operator==(const MsgMeta&) const = default;
};

} // namespace frame
