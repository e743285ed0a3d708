// The messages that two peers agree on. Peers compare their sets when they connect and reject each other if the sets
// differ. A record that changed on one side only is thus detected at once and reported by name.
#pragma once

#include <frame/message.h>
#include <vdl/endian-table.h>

#include <cstddef>

namespace frame {

struct MessageDescription {
    const char* name; // for error texts: "TvServiceReq"
    MsgMeta meta;
    const vdl::EndianTable* table;
};

// An array of descriptions, which must live as long as the process.
struct MessageSet {
    const MessageDescription* messages = nullptr;
    std::size_t count = 0;

    const MessageDescription* begin() const { return messages; }
    const MessageDescription* end() const { return messages + count; }
};

} // namespace frame
