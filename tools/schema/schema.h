// The two services' messages and records as data: what is needed to read a message off the wire without this system's
// code. All of it follows from the lists and field tables that the code itself is made of.
#pragma once

#include <frame/message.h>
#include <vdl/endian-table.h>

#include <cstddef>
#include <string>
#include <vector>

namespace schema {

// Grows when a program that reads the JSON would have to change; new members that it may ignore do not count.
inline constexpr int version = 1;

enum class Kind { Scalar, Flag, String, StringList, Uint32List, Record, Sequence };

struct Type {
    Kind kind;
    std::size_t size;      // of the field, in bytes
    bool isSigned = false; // of a scalar
    const char* record{};  // what a Record or the elements of a Sequence are
};

// A field of a record or an argument of a message.
struct Field {
    const char* name;
    std::size_t offset;
    Type type;
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

// The same for programs (one JSON object), for people at a terminal, and as docs/messages.md.
std::string asJson();
std::string asText();
std::string asMarkdown();

} // namespace schema
