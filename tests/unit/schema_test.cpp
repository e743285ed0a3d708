// The schema must match the code, in its forms for people and for programs, and the document must match the schema.
#include "support/tv-messages.h"

#include <mmservice/messages.h>
#include <tvservice/messages.h>
#include <tvservice/values.h>

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <schema/schema.h>
#include <set>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using schema::Kind;
using testing::HasSubstr;

const schema::Record& recordNamed(const std::string& name) {
    for (const auto& service : schema::services())
        for (const auto& record : service.records)
            if (name == record.name) return record;
    throw std::out_of_range("no record " + name);
}

// The entry that the marshaller's table must have for a field of the schema.
vdl::EndianEntry entryOf(const schema::Field& field) {
    const auto entry = [&](std::size_t kind, vdl::EndianEntry::Arg arg) {
        return vdl::EndianEntry{static_cast<std::uint16_t>(field.offset), static_cast<std::uint16_t>(kind), arg};
    };
    switch (field.type.kind) {
        case Kind::Scalar:
        case Kind::Flag:
            return entry(field.type.size, 0);
        case Kind::String:
            return entry(vdl::EndianNested, &__vdl_EndianTable_vdlDeserString_t);
        case Kind::StringList:
            return entry(vdl::EndianNested, &__vdl_EndianTable_vdlDeserBlobString_t);
        case Kind::Uint32List:
            return entry(vdl::EndianNested, &__vdl_EndianTable_vdlDeserBlobUint32_t);
        case Kind::Record:
            return entry(vdl::EndianNested, recordNamed(field.type.record).table);
        case Kind::Sequence:
            break;
    }
    return entry(vdl::EndianSequence, recordNamed(field.type.record).table);
}

void expectSameEntry(const vdl::EndianEntry& found, const vdl::EndianEntry& wanted) {
    EXPECT_EQ(found.offset, wanted.offset);
    EXPECT_EQ(found.kind, wanted.kind);
    EXPECT_EQ(found.arg.word, wanted.arg.word);
}

// isMessage: a sequence that is an argument has its own table.
void expectSameLayout(const std::vector<schema::Field>& fields, const vdl::EndianTable& table, bool isMessage) {
    const vdl::EndianEntry* entry = table.entries;
    std::size_t end = 0;
    for (const auto& field : fields) {
        SCOPED_TRACE(field.name);
        ASSERT_NE(entry->arg.word, vdl::EndianEntry::terminator) << "the table ends before the schema";
        if (isMessage && field.type.kind == Kind::Sequence) {
            EXPECT_EQ(entry->offset, field.offset);
            ASSERT_EQ(entry->kind, vdl::EndianNested);
            EXPECT_EQ(entry->arg.table->size, field.type.size);
            schema::Field alone = field;
            alone.offset = 0;
            expectSameEntry(entry->arg.table->entries[0], entryOf(alone));
        } else {
            expectSameEntry(*entry, entryOf(field));
        }
        EXPECT_EQ(field.offset, end);
        end += field.type.size;
        ++entry;
    }
    EXPECT_EQ(entry->arg.word, vdl::EndianEntry::terminator) << "the schema ends before the table";
    EXPECT_EQ(table.size, isMessage && fields.empty() ? 1 : end);
}

TEST(Schema, HasTheSameRecordsAsTheMarshaller) {
    std::set<std::string> names;
    for (const auto& service : schema::services()) {
        for (const auto& record : service.records) {
            SCOPED_TRACE(record.name);
            EXPECT_TRUE(names.insert(record.name).second) << "two records with the same name";
            expectSameLayout(record.fields, *record.table, false);
        }
    }
    EXPECT_EQ(names.size(), support::CoreRecords::size + support::StreamRecords::size + support::StatusRecords::size);
}

TEST(Schema, HasTheSameMessagesAsTheMarshaller) {
    for (const auto& service : schema::services()) {
        for (const auto& message : service.messages) {
            SCOPED_TRACE(message.name);
            expectSameLayout(message.arguments, *message.table, true);
        }
    }
}

TEST(Schema, HasTheSameMessagesAsTheHandshake) {
    const frame::MessageSet sets[] = {tvservice::messageSet(), mmservice::messageSet()};
    ASSERT_EQ(schema::services().size(), std::size(sets));
    for (std::size_t i = 0; i < std::size(sets); ++i) {
        const auto& messages = schema::services()[i].messages;
        ASSERT_EQ(messages.size(), sets[i].count);
        for (std::size_t m = 0; m < messages.size(); ++m) {
            SCOPED_TRACE(messages[m].name);
            EXPECT_STREQ(messages[m].name, sets[i].messages[m].name);
            EXPECT_EQ(messages[m].meta, sets[i].messages[m].meta);
            EXPECT_EQ(messages[m].table, sets[i].messages[m].table);
        }
    }
}

TEST(Schema, CountsTheMessagesOfEachDirection) {
    const auto count = [](const schema::Service& service, const std::string& direction) {
        const auto found = std::count_if(service.messages.begin(), service.messages.end(),
                                         [&](const auto& message) { return direction == message.direction; });
        return static_cast<std::size_t>(found);
    };
    const auto& tv = schema::services()[0];
    const auto& mm = schema::services()[1];
    EXPECT_STREQ(tv.name, "tvservice");
    EXPECT_EQ(count(tv, "Request"), support::TvRequests::size);
    EXPECT_EQ(count(tv, "Notification"), support::TvNotifications::size);
    EXPECT_STREQ(mm.name, "mmservice");
    EXPECT_EQ(count(mm, "Request"), 1U);
    EXPECT_EQ(count(mm, "Notification"), 1U);
}

TEST(Schema, PrintsEveryMethodAsDeclared) {
    const auto signatureOf = [](const std::string& name) {
        for (const auto& message : schema::services()[0].messages)
            if (name == message.name) return message.signature;
        return std::string();
    };
    const std::string first = "(frame::MsgIds& ids, const frame::TransportInfo& transport";
    EXPECT_EQ(signatureOf("TvServiceReq"),
              "int tvServiceReq" + first + ", const std::vector<tvservice::TvServiceReq_t>& requests)");
    EXPECT_EQ(signatureOf("TvServiceInfoReq"), "int tvServiceInfoReq" + first + ")");
    EXPECT_EQ(signatureOf("RequestPackagesReq"),
              "int requestPackagesReq" + first + ", tvservice::reqeustOadType_t type, const std::string& packages)");
    EXPECT_EQ(signatureOf("TvServiceFoundNewOadPacket"),
              "int tvServiceFoundNewOadPacket" + first + ", std::uint32_t packet)");
}

TEST(SchemaAsJson, HasTheOffsetAndKindOfEachField) {
    const json all = json::parse(schema::asJson());
    EXPECT_EQ(all["version"], 1);
    const auto& records = all["services"][0]["records"];
    const auto record = std::find_if(records.begin(), records.end(),
                                     [](const json& one) { return one["name"] == "TvServiceConflictInfo_t"; });
    ASSERT_NE(record, records.end());
    EXPECT_EQ(*record, json::parse(R"({
        "name": "TvServiceConflictInfo_t", "family": "Stream", "size": 20, "fields": [
            {"name": "uintList1", "offset": 0, "size": 8, "kind": "uint32List", "meaning": "the tuners that are wanted"},
            {"name": "uintList2", "offset": 8, "size": 8, "kind": "uint32List",
             "meaning": "the tuners of which one has to be released"},
            {"name": "intParam1", "offset": 16, "size": 4, "kind": "scalar", "signed": true,
             "meaning": "seconds until the service chooses; 0: it does not"}]})"));
    const auto& message = all["services"][1]["messages"][0];
    EXPECT_EQ(message["meta"], json::parse(R"({"instance": 4294967295, "interfaceCode": 483227507,
                                               "messageId": 677843510, "flag": 0})"));
    EXPECT_EQ(message["arguments"], json::parse(R"([{"name": "requests", "offset": 0, "size": 8, "kind": "sequence",
                                                     "record": "MMServiceReq_t"}])"));
}

TEST(SchemaAsJson, ExplainsEveryKindThatItUses) {
    const json all = json::parse(schema::asJson());
    std::set<std::string> used, explained;
    for (const auto& [kind, meaning] : all["kinds"].items()) explained.insert(kind);
    for (const auto& service : all["services"]) {
        for (const auto& message : service["messages"])
            for (const auto& argument : message["arguments"]) used.insert(argument["kind"]);
        for (const auto& record : service["records"])
            for (const auto& field : record["fields"]) used.insert(field["kind"]);
    }
    EXPECT_EQ(used, explained);
}

TEST(SchemaAsJson, SaysWhatEachFieldMeansAndNamesItsNumbers) {
    const json all = json::parse(schema::asJson());
    std::map<std::string, json> enumerations;
    for (const auto& enumeration : all["enumerations"]) enumerations[enumeration["name"]] = enumeration["values"];
    std::set<std::string> used;
    const auto check = [&](const json& field) {
        EXPECT_TRUE(field.contains("record") || field.contains("meaning")) << field;
        if (field.contains("enumeration")) used.insert(field["enumeration"]);
    };
    for (const auto& service : all["services"]) {
        for (const auto& message : service["messages"])
            for (const auto& argument : message["arguments"]) check(argument);
        for (const auto& record : service["records"])
            for (const auto& field : record["fields"]) check(field);
    }
    std::set<std::string> defined;
    for (const auto& [name, values] : enumerations) defined.insert(name);
    EXPECT_EQ(used, defined);
    EXPECT_EQ(enumerations["oadStatuses"][2], json::parse(R"({"number": 3, "name": "refused",
        "meaning": "the request is rejected, for the reason in the text"})"));
    const auto fieldOf = [](const std::string& record, std::size_t index) { return recordNamed(record).fields[index]; };
    EXPECT_EQ(fieldOf("TvServiceInfo_t", 1).values, &tvservice::results);
    EXPECT_EQ(fieldOf("MMServiceInfo_t", 1).values, &tvservice::results);
    EXPECT_STREQ(fieldOf("MMServiceReq_t", 4).meaning, fieldOf("TvServiceReq_t", 4).meaning);
}

TEST(SchemaAsText, NamesEveryMessageAndFieldWithItsType) {
    const std::string text = schema::asText();
    for (const auto& service : schema::services()) {
        for (const auto& message : service.messages) EXPECT_THAT(text, HasSubstr(message.signature));
        for (const auto& record : service.records) EXPECT_THAT(text, HasSubstr(" record " + std::string(record.name)));
    }
    EXPECT_THAT(text, HasSubstr("tvservice Notification 0x28671248 TvServiceConflictInfo, 20 bytes\n"));
    EXPECT_THAT(text, HasSubstr("       0    8  uintList1  list of uint32  the tuners that are wanted\n"));
    EXPECT_THAT(text, HasSubstr("       0    4  track  int32  the chosen track [MTS tracks]\n"));
    EXPECT_THAT(text, HasSubstr("\n2   both              both sounds\n"));
}

TEST(MessagesDocument, MatchesTheSchema) {
    std::ifstream file(MESSAGES_DOCUMENT);
    const std::string found{std::istreambuf_iterator<char>(file), {}};
    EXPECT_TRUE(found == schema::asMarkdown()) << "docs/messages.md is out of date; generate it again: "
                                                  "build/release/bin/tvctl schema --markdown > docs/messages.md";
}

} // namespace
