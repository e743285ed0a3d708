// What accompanies every message of the platform's queue.
#pragma once

#include <cstdint>

namespace frame {

// Ids that a caller gives a request, for its own use; all zero when it has none. They travel with the message.
struct MsgIds {
    std::uint32_t sender = 0;
    std::uint32_t sequence = 0;

    bool operator==(const MsgIds&) const = default;

    // The empty ids. Hand out copies: receivers take ids by non-const reference.
    static const MsgIds none;
};

// Where a message came from, or (when given to asyncSend) the one connection it is to go to.
struct TransportInfo {
    std::uint64_t connection = 0; // number of the connection in this process, from 1; 0 is none
    MsgIds ids;                   // the ids that its sender gave it

    bool operator==(const TransportInfo&) const = default;
};

// What names a message. Messages are matched on all four fields.
struct MsgMeta {
    std::uint32_t instance;
    std::uint32_t interfaceCode;
    std::uint32_t messageId;
    std::uint8_t flag;

    bool operator==(const MsgMeta&) const = default;
};

} // namespace frame
