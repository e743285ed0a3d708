// The two services' messages and records as data: enough to decode a message without this system's code. Derived from
// the same lists and field tables as the code.
#pragma once

#include <frame/message.h>
#include <genrpc/values.h>
#include <vdl/endian-table.h>

#include <cstddef>
#include <string>
#include <vector>

namespace schema {

// Incremented when programs that read the JSON must change. New members that they may ignore do not count.
inline constexpr int version = 1;

enum class Kind { Scalar, Flag, String, StringList, Uint32List, Record, Sequence };

struct Type {
    Kind kind;
    std::size_t size;      // of the field, in bytes
    bool isSigned = false; // of a scalar
    const char* record{};  // the type of a Record or of a Sequence's elements
};

// A field of a record or an argument of a message.
struct Field {
    const char* name;
    std::size_t offset;
    Type type;
    const char* meaning{};               // empty for an argument whose record has the meanings
    const genrpc::Enumeration* values{}; // of its numbers, if they have names
};

struct Record {
    const char* name;
    const char* family;
    const vdl::EndianTable* table;
    std::vector<Field> fields;
};

struct Message {
    const char* name;
    const char* direction;
    const char* method;
    std::string signature; // of the method
    frame::MsgMeta meta;
    const vdl::EndianTable* table;
    std::vector<Field> arguments;
};

struct Service {
    const char* name;
    std::vector<Message> messages; // in the order of their ids, requests first
    std::vector<Record> records;
};

const std::vector<Service>& services();
const std::vector<const genrpc::Enumeration*>& enumerations();

// The schema as one JSON object, as text for a terminal, and as docs/messages.md.
std::string asJson();
std::string asText();
std::string asMarkdown();

} // namespace schema
