#include "parsed-schema.h"

#include "event.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <schema/kind-names.h>

namespace recording {
namespace {

using Json = nlohmann::ordered_json;
using schema::Kind;

[[noreturn]] void fail(const std::string& what) { throw RecordingError("the schema: " + what); }

Json parse(const std::string& text) {
    if (text.size() > mostSchemaBytes)
        fail("it has " + std::to_string(text.size()) + " bytes, more than " + std::to_string(mostSchemaBytes));
    constexpr int deepest = 16; // a schema has seven levels
    return Json::parse(text, [](int depth, Json::parse_event_t, Json&) {
        if (depth > deepest) fail("it is nested more than " + std::to_string(deepest) + " levels deep");
        return true;
    });
}

std::string nameIn(const Json& entry, const char* key = "name") {
    auto name = entry.at(key).get<std::string>();
    if (name.empty() || name.size() > mostNameBytes)
        fail(std::string(key) + " of " + std::to_string(name.size()) + " bytes");
    return name;
}

// get would convert negative numbers and fractions.
std::size_t sizeIn(const Json& entry, const char* key) {
    const Json& value = entry.at(key);
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > mostLayoutBytes)
        fail(std::string(key) + " is " + value.dump(-1, ' ', true, Json::error_handler_t::replace) +
             ", not a number up to " + std::to_string(mostLayoutBytes));
    return value.get<std::size_t>();
}

Kind kindIn(const Json& entry) {
    const auto name = nameIn(entry, "kind");
    for (std::size_t i = 0; i < std::size(schema::kinds); ++i)
        if (name == schema::kinds[i].name) return static_cast<Kind>(i);
    fail("unknown kind " + name);
}

bool isSizeOf(const LayoutField& field) {
    switch (field.kind) {
        case Kind::Scalar:
            return field.size == 1 || field.size == 2 || field.size == 4;
        case Kind::Flag:
            return field.size == 4;
        case Kind::Record:
            return field.size == field.record->size;
        default: // a count or length, and a pointer
            return field.size == 8;
    }
}

frame::MsgMeta metaIn(const Json& meta) {
    return {meta.at("instance").get<std::uint32_t>(), meta.at("interfaceCode").get<std::uint32_t>(),
            meta.at("messageId").get<std::uint32_t>(), meta.at("flag").get<std::uint8_t>()};
}

} // namespace

ParsedSchema::ParsedSchema(const std::string& text) {
    try {
        const Json schema = parse(text);
        if (const Json& version = schema.at("version"); version != schema::version)
            fail("it has version " + version.dump(-1, ' ', true, Json::error_handler_t::replace) +
                 ", this tool reads version " + std::to_string(schema::version));
        readNumbers(schema);
        for (const Json& service : schema.at("services")) collectRecords(service);
        for (auto& [name, record] : records_) layoutOf(name);
        for (const Json& service : schema.at("services")) readMessages(service);
        for (auto& [name, record] : records_) record.entry = nullptr;
    } catch (const Json::exception& error) {
        fail(std::string("it is malformed: ") + error.what());
    }
}

const MessageLayout* ParsedSchema::find(const std::string& service, const frame::MsgMeta& meta) const {
    const auto found = services_.find(service);
    if (found == services_.end()) return nullptr;
    const auto message = std::find_if(found->second.begin(), found->second.end(),
                                      [&](const MessageLayout& known) { return known.meta == meta; });
    return message == found->second.end() ? nullptr : &*message;
}

void ParsedSchema::readNumbers(const Json& schema) {
    const auto list = schema.find("enumerations");
    if (list == schema.end()) return;
    for (const Json& entry : *list) {
        auto& names = numbers_[nameIn(entry)].names;
        for (const Json& value : entry.at("values")) names[value.at("number").get<std::int64_t>()] = nameIn(value);
    }
}

void ParsedSchema::collectRecords(const Json& service) {
    for (const Json& entry : service.at("records")) records_[nameIn(entry)].entry = &entry;
}

void ParsedSchema::readMessages(const Json& service) {
    const auto serviceName = nameIn(service);
    auto& messages = services_[serviceName];
    for (const Json& entry : service.at("messages")) {
        const auto name = nameIn(entry);
        messages.push_back({serviceName, name, nameIn(entry, "direction"), metaIn(entry.at("meta")),
                            layout(name, entry.at("arguments"), sizeIn(entry, "size"))});
    }
}

const Layout& ParsedSchema::layoutOf(const std::string& name) {
    const auto found = records_.find(name);
    if (found == records_.end()) fail("there is no record " + name);
    Record& record = found->second;
    if (record.isRead) return record.layout;
    if (record.isBeingRead) fail("the record " + name + " contains itself");
    record.isBeingRead = true;
    record.layout = layout(name, record.entry->at("fields"), sizeIn(*record.entry, "size"));
    // Records without bytes could be nested endlessly in no space.
    if (record.layout.fields.empty()) fail("the record " + name + " has no fields");
    record.isRead = true;
    return record.layout;
}

Layout ParsedSchema::layout(const std::string& name, const Json& fields, std::size_t size) {
    if (!fields.is_array() || fields.size() > mostFields)
        fail(name + ": its fields are not a list of at most " + std::to_string(mostFields));
    Layout layout;
    for (const Json& entry : fields) {
        LayoutField next = field(entry);
        if (sizeIn(entry, "offset") != layout.size || !isSizeOf(next))
            fail(name + "." + next.name + ": wrong offset or size");
        if (next.kind == Kind::Record) layout.nested = std::max(layout.nested, next.record->nested + 1);
        layout.size += next.size;
        layout.fields.push_back(std::move(next));
    }
    if (layout.nested > mostNested) fail(name + ": records nested more than " + std::to_string(mostNested) + " deep");
    if (size != std::max<std::size_t>(layout.size, fields.empty() ? 1 : 0)) // one byte 0
        fail(name + ": its size is " + std::to_string(size) + ", its fields take " + std::to_string(layout.size));
    layout.size = size;
    return layout;
}

LayoutField ParsedSchema::field(const Json& entry) {
    LayoutField field{.name = nameIn(entry), .kind = kindIn(entry), .size = sizeIn(entry, "size")};
    if (field.kind == Kind::Scalar) field.isSigned = entry.at("signed").get<bool>();
    if (field.kind == Kind::Record) {
        // Nested readers use the stack; names of records are read only once.
        if (++depth_ > mostNested) fail("records nested more than " + std::to_string(mostNested) + " deep");
        field.record = &layoutOf(nameIn(entry, "record"));
        --depth_;
    }
    if (field.kind == Kind::Sequence) {
        const auto element = records_.find(nameIn(entry, "record"));
        if (element == records_.end()) fail("there is no record " + nameIn(entry, "record"));
        field.record = &element->second.layout; // which may be read later
    }
    if (const auto name = entry.find("enumeration"); name != entry.end())
        if (const auto numbers = numbers_.find(name->get<std::string>()); numbers != numbers_.end())
            field.numbers = &numbers->second;
    return field;
}

} // namespace recording
