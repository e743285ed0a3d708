// Messages decoded by a schema that is only known as JSON: those of both services, and messages and schemas that are
// wrong.
#include "support/recorded-events.h"

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <recording/body-writer.h>
#include <recording/message-decoder.h>
#include <recording/sip-hash.h>
#include <string>
#include <vector>

using recording::Json;
using recording::Numbers;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::string bytesOf(const Json& hex) {
    const auto text = hex.get<std::string>();
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); i += 2)
        bytes += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    return bytes;
}

Json goldenOf(const schema::Service& service, const schema::Message& message) {
    const std::string name = std::string(service.name) + "-" + message.name + ".json";
    return Json::parse(std::ifstream(std::string(GOLDEN_FOLDER) + "/" + name));
}

class EveryGoldenMessage : public testing::TestWithParam<std::pair<const char*, std::endian>> {
protected:
    // Calls check with each golden value of every message: service, message, body, content.
    template <class Check> void forEach(const char* list, const Check& check) const {
        for (const auto& service : schema::services())
            for (const auto& message : service.messages) {
                const Json golden = goldenOf(service, message);
                for (const auto& value : golden.at(list)) {
                    SCOPED_TRACE(std::string(service.name) + "." + message.name + ", " +
                                 value["name"].get<std::string>());
                    check(service.name, message, bytesOf(value.at(GetParam().first)), value.at("content"));
                }
            }
    }
    const std::endian order_ = GetParam().second;
    const recording::MessageDecoder& decoder_ = *recording::ownDecoder();
};

TEST_P(EveryGoldenMessage, IsDecodedByTheSchema) {
    for (const char* list : {"values", "accepted"})
        forEach(list,
                [&](const char* service, const schema::Message& message, const std::string& body, const Json& content) {
                    const auto decoded = decoder_.decode(service, support::frameOf(message.meta, body, order_), order_);
                    ASSERT_EQ(decoded.problem, "");
                    EXPECT_EQ(decoded.layout->name, message.name);
                    EXPECT_EQ(decoded.layout->direction, message.direction);
                    EXPECT_EQ(decoded.arguments.dump(), content.dump());
                    EXPECT_EQ(decoded.header.ids, (frame::MsgIds{41, 42}));
                });
}

TEST_P(EveryGoldenMessage, IsWrittenByteForByte) {
    forEach("values", [&](const char* service, const schema::Message& message, const std::string& body, const Json&) {
        const auto decoded = decoder_.decode(service, support::frameOf(message.meta, body, order_), order_);
        ASSERT_NE(decoded.layout, nullptr);
        EXPECT_EQ(recording::writeBody(decoded.layout->arguments, decoded.arguments, order_), body);
    });
}

TEST_P(EveryGoldenMessage, HasAProblemWhenItIsCutShort) {
    forEach("values", [&](const char* service, const schema::Message& message, const std::string& body, const Json&) {
        for (std::size_t size = 0; size < body.size(); size += 1 + body.size() / 64) {
            const std::string frame = support::frameOf(message.meta, body.substr(0, size), order_);
            EXPECT_NE(decoder_.decode(service, frame, order_).problem, "") << "of " << size;
        }
    });
}

TEST_P(EveryGoldenMessage, IsReadWithoutHarmWhateverAByteIs) {
    forEach("values", [&](const char* service, const schema::Message& message, const std::string& body, const Json&) {
        for (std::size_t at = 0; at < body.size(); at += 1 + body.size() / 64) {
            std::string changed = body;
            changed[at] = static_cast<char>(changed[at] ^ 0xFF);
            const auto decoded =
                decoder_.decode(service, support::frameOf(message.meta, changed, order_), order_, Numbers::named);
            EXPECT_EQ(decoded.problem.empty(), !decoded.arguments.is_null());
        }
    });
}

INSTANTIATE_TEST_SUITE_P(, EveryGoldenMessage,
                         testing::Values(std::pair{"little", std::endian::little}, std::pair{"big", std::endian::big}),
                         [](const auto& test) { return std::string(test.param.first) + "Endian"; });

// A small schema, whose messages can be written by hand.
Json scalar(const char* name, int offset, int size) {
    return {{"name", name}, {"offset", offset}, {"size", size}, {"kind", "scalar"}, {"signed", true}};
}
Json other(const char* name, int offset, int size, const char* kind, const char* record = nullptr) {
    Json field{{"name", name}, {"offset", offset}, {"size", size}, {"kind", kind}};
    if (record) field["record"] = record;
    return field;
}
Json record(const char* name, int size, const Json& fields) {
    return {{"name", name}, {"size", size}, {"fields", fields}};
}
const frame::MsgMeta meta{1, 2, 3, 4};

Json schemaOf(const Json& arguments, int size, const Json& records) {
    const Json message{{"name", "M"},
                       {"direction", "request"},
                       {"meta", {{"instance", 1}, {"interfaceCode", 2}, {"messageId", 3}, {"flag", 4}}},
                       {"size", size},
                       {"arguments", arguments}};
    const Json service{{"name", "s"}, {"messages", Json::array({message})}, {"records", records}};
    const Json values = Json::array({{{"number", -1}, {"name", "none"}}});
    return {{"version", 1},
            {"enumerations", Json::array({{{"name", "E"}, {"values", values}}})},
            {"services", Json::array({service})}};
}

Json treeSchema() {
    const Json fields = Json::array({scalar("leaf", 0, 1), other("trees", 1, 8, "sequence", "Tree")});
    return schemaOf(Json::array({other("tree", 0, 9, "record", "Tree")}), 9, Json::array({record("Tree", 9, fields)}));
}

recording::DecodedMessage decoded(const Json& schema, const std::string& body, Numbers numbers = Numbers::plain) {
    // The layout of a result lives in the decoder.
    static std::vector<std::unique_ptr<recording::MessageDecoder>> decoders;
    decoders.push_back(std::make_unique<recording::MessageDecoder>(schema.dump()));
    return decoders.back()->decode("s", support::frameOf(meta, body, std::endian::big), std::endian::big, numbers);
}

std::string words(std::initializer_list<std::uint32_t> list) {
    std::string bytes;
    for (const auto word : list) recording::append(bytes, word, std::endian::big);
    return bytes;
}

TEST(MessageDecoder, AddsTheNamesOfNumbersWhereTheyAreWanted) {
    Json number = scalar("n", 0, 4);
    number["enumeration"] = "E";
    const Json schema = schemaOf(Json::array({number}), 4, Json::array());
    EXPECT_EQ(decoded(schema, words({0xFFFFFFFF}), Numbers::named).arguments.dump(), R"({"n":-1,"nName":"none"})");
    EXPECT_EQ(decoded(schema, words({5}), Numbers::named).arguments.dump(), R"({"n":5,"nName":"unknown"})");
    EXPECT_EQ(decoded(schema, words({5}), Numbers::plain).arguments.dump(), R"({"n":5})");
}

TEST(MessageDecoder, NamesTheFieldThatIsWrong) {
    const std::string twoTrees = '\1' + words({1, 9}) + '\2' + words({1, 0});
    EXPECT_EQ(decoded(treeSchema(), twoTrees).problem, "tree.trees[0].trees: count 1 with a null pointer");
    EXPECT_EQ(decoded(treeSchema(), '\1' + words({1, 8})).problem,
              "tree.trees: its block is at byte 8, but the next block begins at byte 9");
}

TEST(MessageDecoder, RejectsRecordsThatAreNestedTooDeeply) {
    std::string body;
    for (std::uint32_t i = 1; i <= 5000; ++i) body += '\1' + words({1, 9 * i});
    body += '\1' + words({0, 0});
    EXPECT_THAT(decoded(treeSchema(), body).problem, HasSubstr("nested more than 64 levels deep"));
}

TEST(MessageDecoder, RejectsCountsAndLengthsThatWrap) {
    for (const std::uint32_t count : {0x20000000U, 0x40000000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        for (const char* kind : {"string", "stringList", "uint32List"}) {
            const Json schema = schemaOf(Json::array({other("x", 0, 8, kind)}), 8, Json::array());
            EXPECT_THAT(decoded(schema, words({count, 8}) + std::string(64, 'a')).problem, StartsWith("x: "));
        }
        EXPECT_THAT(decoded(treeSchema(), '\1' + words({count, 9})).problem, StartsWith("tree.trees: "));
    }
}

TEST(MessageDecoder, SaysHowMuchOfAMessageIsRecorded) {
    const auto& decoder = *recording::ownDecoder();
    const auto& message = support::messageNamed("tvservice", "TvServiceInfoReq");
    const std::string frame = support::frameOf(message.meta, std::string(1, '\0'));
    const auto order = std::endian::native;
    EXPECT_EQ(decoder.decode("tvservice", frame.substr(0, 31), order).problem,
              "only 31 bytes of its header are recorded");
    EXPECT_EQ(decoder.decode("tvservice", frame.substr(0, 32), order).problem, "only 0 of its 1 bytes are recorded");
    EXPECT_EQ(decoder.decode("tvservice", frame.substr(0, 32), order).layout->name, "TvServiceInfoReq");
    EXPECT_EQ(decoder.decode("tvservice", frame + "x", order).problem, "its header says 1 bytes, it has 2");
}

TEST(MessageDecoder, SaysWhatTheSchemaDoesNotHave) {
    const auto& decoder = *recording::ownDecoder();
    const std::string frame = support::frameOf({1, 2, 3, 4}, "");
    EXPECT_EQ(decoder.decode("radio", frame, std::endian::native).problem, "the schema has no service radio");
    EXPECT_EQ(decoder.decode("tvservice", frame, std::endian::native).problem,
              "the service has no message 0x00000003 of instance 0x00000001, interface 0x00000002, flag 4");
}

TEST(MessageDecoder, HasTheFingerprintOfItsSchema) {
    const recording::MessageDecoder one(treeSchema().dump()), same(treeSchema().dump()), spaced(treeSchema().dump(1));
    EXPECT_EQ(one.fingerprint(), same.fingerprint());
    EXPECT_NE(one.fingerprint(), spaced.fingerprint());
    EXPECT_EQ(one.fingerprint().size(), 16U);
}

std::string rejectionOf(const std::string& json) {
    try {
        recording::MessageDecoder decoder(json);
    } catch (const recording::RecordingError& error) {
        return error.what();
    }
    return "";
}

TEST(ParsedSchema, IsRejectedWithWhatIsWrong) {
    EXPECT_THAT(rejectionOf("no JSON"), StartsWith("the schema: it is malformed: "));
    EXPECT_THAT(rejectionOf("[]"), StartsWith("the schema: it is malformed: "));
    EXPECT_EQ(rejectionOf(R"({"version": 2})"), "the schema: it has version 2, this tool reads version 1");
    EXPECT_THAT(rejectionOf(std::string(100000, '[')), HasSubstr("nested more than 16 levels deep"));
    EXPECT_THAT(rejectionOf(std::string(5 * 1024 * 1024, ' ')), HasSubstr("it has 5242880 bytes"));
    const auto rejected = [](const Json& arguments, int size, const Json& records = Json::array()) {
        return rejectionOf(schemaOf(arguments, size, records).dump());
    };
    EXPECT_EQ(rejected(Json::array({scalar("n", 0, 3)}), 3), "the schema: M.n: wrong offset or size");
    EXPECT_EQ(rejected(Json::array({scalar("n", 1, 4)}), 5), "the schema: M.n: wrong offset or size");
    EXPECT_EQ(rejected(Json::array({scalar("n", 0, 4)}), 8), "the schema: M: its size is 8, its fields take 4");
    EXPECT_EQ(rejected(Json::array({other("x", 0, 4, "magic")}), 4), "the schema: unknown kind magic");
    EXPECT_EQ(rejected(Json::array({other("x", 0, 8, "sequence", "R")}), 8), "the schema: there is no record R");
    EXPECT_EQ(rejected(Json::array({other("x", 0, 4, "record", "R")}), 4), "the schema: there is no record R");
    EXPECT_THAT(rejected(Json::array({scalar("n", -1, 4)}), 4), HasSubstr("offset is -1, not a number up to"));
    EXPECT_THAT(rejected(Json::array({scalar(std::string(300, 'n').c_str(), 0, 4)}), 4),
                HasSubstr("name of 300 bytes"));
}

TEST(ParsedSchema, IsRejectedWhenARecordContainsItself) {
    const Json inner = Json::array({other("r", 0, 4, "record", "R")});
    EXPECT_EQ(rejectionOf(schemaOf(inner, 4, Json::array({record("R", 4, inner)})).dump()),
              "the schema: the record R contains itself");
}

TEST(ParsedSchema, IsRejectedWhenRecordsAreNestedTooDeeply) {
    for (const bool isReversed : {false, true}) { // whichever record is read first
        std::vector<Json> chain;
        for (int i = 0; i < 40; ++i) {
            const std::string name = "R" + std::to_string(10 + (isReversed ? 89 - i : i));
            const std::string next = "R" + std::to_string(10 + (isReversed ? 88 - i : i + 1));
            const Json field = i == 39 ? scalar("n", 0, 4) : other("r", 0, 4, "record", next.c_str());
            chain.push_back(record(name.c_str(), 4, Json::array({field})));
        }
        EXPECT_THAT(rejectionOf(schemaOf(Json::array(), 1, chain).dump()), HasSubstr("nested more than 32 deep"));
    }
}

TEST(SipHash, HasThePublishedValues) {
    std::string text;
    for (char c = 0; c < 15; ++c) text += c;
    const recording::HashKey key{0x0706050403020100, 0x0f0e0d0c0b0a0908};
    EXPECT_EQ(recording::sipHash(key, text), 0xa129ca6149be45e5);
    EXPECT_EQ(recording::sipHash(key, ""), 0x726fdb47dd0e0e31);
}

} // namespace
