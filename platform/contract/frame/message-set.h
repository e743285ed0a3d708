// The messages that two peers agree on. Peers compare their sets when they connect and refuse each other when the sets
// differ, so that a record that changed on one side only is found at once and by name.
#pragma once

#include <frame/message.h>
#include <vdl/endian-table.h>

#include <cstddef>

namespace frame {

struct MessageDescription {
    const char* name; // for people: "TvServiceReq"
    MsgMeta meta;
    const vdl::EndianTable* table;
};

// An array of descriptions that lives as long as the process.
struct MessageSet {
    const MessageDescription* messages = nullptr;
    std::size_t count = 0;

    const MessageDescription* begin() const { return messages; }
    const MessageDescription* end() const { return messages + count; }
};

} // namespace frame
