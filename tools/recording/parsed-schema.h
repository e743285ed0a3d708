// The messages and records that a schema in JSON describes, as tvctl schema --json prints it. The JSON may come from
// anybody: it is checked, and bounded.
#pragma once

#include <frame/message.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <schema/schema.h>
#include <string>
#include <utility>
#include <vector>

namespace recording {

inline constexpr std::size_t mostSchemaBytes = 4 * 1024 * 1024;
inline constexpr std::size_t mostFields = 512;        // of a record
inline constexpr std::size_t mostNameBytes = 256;     // of a name in the schema
inline constexpr std::size_t mostLayoutBytes = 65536; // of a record, without what its pointers refer to
inline constexpr int mostNested = 32;                 // records inside records

struct NumberNames {
    std::map<std::int64_t, std::string> names;
};

struct Layout;

struct LayoutField {
    std::string name;
    schema::Kind kind{};
    std::size_t size = 0;
    bool isSigned = false;
    const Layout* record = nullptr;       // of a record or of a sequence's elements
    const NumberNames* numbers = nullptr; // null: its numbers have no names
};

// A record, or the arguments of a message.
struct Layout {
    std::vector<LayoutField> fields;
    std::size_t size = 0; // in bytes
    int nested = 0;       // how many levels of records are inside
};

struct MessageLayout {
    std::string service, name, direction;
    frame::MsgMeta meta{};
    Layout arguments;
};

class ParsedSchema {
public:
    // Throws RecordingError.
    explicit ParsedSchema(const std::string& json);
    // The layouts point to each other.
    ParsedSchema(const ParsedSchema&) = delete;
    ParsedSchema& operator=(const ParsedSchema&) = delete;

    // Null when there is none.
    const MessageLayout* find(const std::string& service, const frame::MsgMeta& meta) const;
    bool hasService(const std::string& name) const { return services_.count(name) > 0; }

private:
    using Json = nlohmann::ordered_json;

    void readNumbers(const Json& schema);
    void collectRecords(const Json& service);
    void readMessages(const Json& service);
    const Layout& layoutOf(const std::string& record);
    Layout layout(const std::string& name, const Json& fields, std::size_t size);
    LayoutField field(const Json& entry);

    struct Record {
        const Json* entry = nullptr; // while the schema is read
        bool isBeingRead = false, isRead = false;
        Layout layout;
    };
    int depth_ = 0; // of the record that is being read
    std::map<std::string, NumberNames> numbers_;
    std::map<std::string, Record> records_;
    std::map<std::string, std::vector<MessageLayout>> services_;
};

} // namespace recording
