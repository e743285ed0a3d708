// Reading records and arguments from JSON, and the errors for JSON that does not match.
#include <genrpc/json.h>
#include <tvservice/messages.h>

#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace {

using namespace tvservice;
using genrpc::Json;

template <class T> std::string problemOf(const std::string& text, T value = {}) {
    try {
        genrpc::fromJson(Json::parse(text), "", value);
    } catch (const genrpc::JsonError& error) {
        return error.what();
    }
    return "none";
}

template <class Message> std::string problemOfArguments(const std::string& text) {
    try {
        genrpc::argumentsFromJson<Message>(Json::parse(text));
    } catch (const genrpc::JsonError& error) {
        return error.what();
    }
    return "none";
}

TEST(Json, IsOneLineWithInvalidUtf8Replaced) {
    TvServicePlayInfo_t info;
    info.strParam1 = "\xC3\xA4\xFF";
    EXPECT_EQ(genrpc::toText(info), "TvServicePlayInfo_t {\"strParam1\":\"\xC3\xA4\xEF\xBF\xBD\"}");
}

TEST(Json, NamesTheWrongFieldAndTheExpectedType) {
    EXPECT_EQ(problemOf<TvServiceReq_t>("[]"), "the value: wanted an object");
    EXPECT_EQ(problemOf<TvServiceReq_t>(R"({"uri": 1})"), "uri: wanted a string");
    EXPECT_EQ(problemOf<TvServiceReq_t>(R"({"intParam1": "1"})"), "intParam1: wanted an integer");
    EXPECT_EQ(problemOf<TvServiceReq_t>(R"({"intParam1": 1.5})"), "intParam1: wanted an integer");
    EXPECT_EQ(problemOf<TvServiceReq_t>(R"({"terminal": {"type": "x"}})"), "terminal.type: wanted an integer");
    EXPECT_EQ(problemOf<TvServiceReq_t>(R"({"terminal": 3})"), "terminal: wanted an object");
    EXPECT_EQ(problemOf<TvServiceReq_t>(R"({"terminal": {"kind": 3}})"), "terminal: there is no field \"kind\"");
    EXPECT_EQ(problemOf<TvServiceReq_t>(R"({"strParamList": "x"})"), "strParamList: wanted a list");
    EXPECT_EQ(problemOf<TvServiceReq_t>(R"({"strParamList": ["a", 2]})"), "strParamList[1]: wanted a string");
    EXPECT_EQ(problemOf<AudioStreamInfo_t>(R"({"flagParam1": 1})"), "flagParam1: wanted true or false");
    EXPECT_EQ(problemOf<MtsAudioTrack_t>("\"one\""), "the value: wanted an integer");
}

TEST(Json, RejectsNumbersThatDoNotFit) {
    EXPECT_EQ(problemOf<std::uint16_t>("65535"), "none");
    EXPECT_EQ(problemOf<std::uint16_t>("65536"), "the value: 65536 does not fit into 16 bits");
    EXPECT_EQ(problemOf<std::uint16_t>("-1"), "the value: -1 does not fit into 16 bits");
    EXPECT_EQ(problemOf<std::int32_t>("-2147483648"), "none");
    EXPECT_EQ(problemOf<std::int32_t>("-2147483649"), "the value: -2147483649 does not fit into 32 bits");
    EXPECT_EQ(problemOf<MtsAudioTrack_t>("2147483648"), "the value: 2147483648 does not fit into 32 bits");
    std::uint32_t word = 0;
    genrpc::fromJson(Json::parse("4294967295"), "", word);
    EXPECT_EQ(word, std::numeric_limits<std::uint32_t>::max());
}

TEST(Json, LeavesUnnamedFieldsUnchanged) {
    TvServiceTerminal_t terminal{3, 4};
    genrpc::fromJson(Json::parse(R"({"id": 7})"), "", terminal);
    EXPECT_EQ(terminal, (TvServiceTerminal_t{3, 7}));
}

TEST(Json, NamesTheWrongArguments) {
    using Oad = messages::TvserviceOadStatusNotify;
    EXPECT_EQ(problemOfArguments<Oad>("1"), "the value: wanted an object");
    EXPECT_EQ(problemOfArguments<Oad>(R"({"state": 1})"), "the value: there is no field \"state\"");
    EXPECT_EQ(problemOfArguments<messages::TvServiceInfoReq>(R"({"state": 1})"),
              "the value: there is no field \"state\"")
        << "a message without arguments";
    EXPECT_EQ(problemOfArguments<Oad>(R"({"status": "x"})"), "status: wanted an integer");
    EXPECT_EQ(problemOfArguments<Oad>(R"({"status": 2, "text": 3})"), "text: wanted a string");
    EXPECT_EQ(problemOfArguments<messages::TvServiceInfo>(R"({"infos": [{}, {"terminal": {"id": true}}]})"),
              "infos[1].terminal.id: wanted an integer");
    const auto arguments = genrpc::argumentsFromJson<Oad>(Json::parse(R"({"text": "t"})"));
    EXPECT_EQ(static_cast<int>(std::get<0>(arguments)), 0);
    EXPECT_EQ(std::get<1>(arguments), "t");
}

} // namespace
