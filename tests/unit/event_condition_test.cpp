// Which events a condition or a filter accepts, and how events are described.
#include "support/recorded-events.h"
#include "support/tv-messages.h"
#include "support/wire.h"

#include <genrpc/json.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <recording/condition.h>
#include <recording/described-event.h>
#include <recording/event-filter.h>
#include <recording/redaction.h>
#include <string>

using recording::Condition;
using recording::Event;
using recording::Json;
using testing::HasSubstr;
using testing::Not;

namespace {

const Json answer = Json::parse(R"({
    "process": "tvserviced", "kind": "message", "service": "tvservice", "message": "TvServiceInfo",
    "arguments": {"infos": [
        {"terminal": {"type": 0, "typeName": "main", "id": 1}, "result": 0, "resultName": "done", "uri": "dvb://1",
         "reqId": "r-1", "flag": true},
        {"terminal": {"type": 2, "typeName": "unknown", "id": 10}, "result": 2, "resultName": "unknown channel",
         "uri": "file:///x y", "reqId": "r-1", "flag": false}]},
    "receivers": [{"process": "frame-host", "latencyMs": 0.25}]})");

bool holds(const std::string& condition, const Json& event = answer) { return Condition(condition).holds(event); }

TEST(Condition, ComparesNumbers) {
    EXPECT_TRUE(holds("infos.result == 2"));
    EXPECT_TRUE(holds("infos.result != 0"));
    EXPECT_TRUE(holds("infos.result>=2"));
    EXPECT_TRUE(holds("infos.result < 1"));
    EXPECT_FALSE(holds("infos.result > 2"));
    EXPECT_FALSE(holds("infos.result <= -1"));
    EXPECT_TRUE(holds("receivers.latencyMs < 0.3"));
}

TEST(Condition, ComparesNamesOfNumbers) {
    EXPECT_TRUE(holds("infos.result == done"));
    EXPECT_TRUE(holds("infos.result == 'unknown channel'"));
    EXPECT_FALSE(holds("infos.result == locked"));
    EXPECT_TRUE(holds("infos.terminal.type == main"));
}

TEST(Condition, ComparesTextsFlagsAndTerminals) {
    EXPECT_TRUE(holds("infos.uri == 'dvb://1'"));
    EXPECT_TRUE(holds("infos.uri ~ \"x y\""));
    EXPECT_FALSE(holds("infos.uri ~ 'dvb://2'"));
    EXPECT_TRUE(holds("infos.flag == true"));
    EXPECT_TRUE(holds("infos.terminal == '2:10'"));
    EXPECT_FALSE(holds("infos.terminal == '2:1'"));
}

TEST(Condition, CombinesComparisons) {
    EXPECT_TRUE(holds("infos.result == 2 and infos.uri ~ 'file'"));
    EXPECT_FALSE(holds("infos.result == 2 and infos.uri ~ 'rtsp'"));
    EXPECT_TRUE(holds("infos.result == 9 or infos.uri ~ 'file'"));
    EXPECT_TRUE(holds("not infos.result == 9"));
    EXPECT_TRUE(holds("process == x and process == y or kind == message")) << "and binds more closely";
    EXPECT_FALSE(holds("process == x and (process == y or kind == message)"));
    EXPECT_TRUE(holds("not not (kind == message)"));
}

TEST(Condition, NamesMembersOfTheEvent) {
    EXPECT_TRUE(holds("process == tvserviced and message ~ Info"));
    EXPECT_FALSE(holds("text ~ x"));
    EXPECT_TRUE(holds("not text ~ x"));
    EXPECT_FALSE(holds("infos == 1")) << "a list of records is no value";
}

std::string errorOf(const std::string& text) {
    try {
        Condition condition(text);
    } catch (const recording::ConditionError& error) {
        return error.what();
    }
    return "";
}

TEST(Condition, IsRejectedAtTheCharacterThatIsWrong) {
    EXPECT_EQ(errorOf("infos.result ="),
              "wanted ==, !=, <, >, <=, >= or ~, at character 14:\n  infos.result =\n               ^");
    EXPECT_THAT(errorOf(""), HasSubstr("wanted a name, such as infos.result, at character 1:"));
    EXPECT_THAT(errorOf("a == "), HasSubstr("wanted a value"));
    EXPECT_THAT(errorOf("a == 'x"), HasSubstr("the text that begins here has no end, at character 6:"));
    EXPECT_THAT(errorOf("(a == 1"), HasSubstr("wanted ')', at character 8:"));
    EXPECT_THAT(errorOf("a == 1 b == 2"), HasSubstr("wanted 'and', 'or' or the end, at character 8:"));
    EXPECT_THAT(errorOf("a. == 1"), HasSubstr("wanted a name"));
    EXPECT_THAT(errorOf("a \x1b= 1"), HasSubstr("\\x1b"));
}

TEST(Condition, IsRejectedWhenItIsTooLongOrNestedTooDeeply) {
    EXPECT_THAT(errorOf(std::string(5000, '(')), HasSubstr("longer than 4096 characters"));
    EXPECT_THAT(errorOf(std::string(1000, '(')), HasSubstr("nested more than 32 levels deep"));
    std::string nots;
    for (int i = 0; i < 1000; ++i) nots += "not ";
    EXPECT_THAT(errorOf(nots), HasSubstr("nested more than 32 levels deep"));
}

TEST(EventFilter, AcceptsWhatAllItsPartsAccept) {
    recording::EventFilter filter;
    EXPECT_TRUE(filter.isEmpty() && filter.accepts(answer));
    filter.messages = {"TvServiceInfo", "TvServiceReq"};
    filter.services = {"tvservice"};
    filter.kinds = {"message"};
    filter.processes = {"frame-host"}; // which received it
    filter.terminal = "0:1";
    filter.request = "r-1";
    filter.where.emplace("infos.result != 0");
    EXPECT_FALSE(filter.isEmpty());
    EXPECT_TRUE(filter.accepts(answer));
    const auto rejects = [&](auto change) {
        auto narrower = recording::EventFilter{filter.messages, filter.services, filter.kinds, filter.processes,
                                               filter.terminal, filter.request,  {},           {}};
        change(narrower);
        return !narrower.accepts(answer);
    };
    EXPECT_FALSE(rejects([](auto&) {}));
    EXPECT_TRUE(rejects([](auto& f) { f.messages = {"TvServiceReq"}; }));
    EXPECT_TRUE(rejects([](auto& f) { f.services = {"mmservice"}; }));
    EXPECT_TRUE(rejects([](auto& f) { f.kinds = {"line"}; }));
    EXPECT_TRUE(rejects([](auto& f) { f.processes = {"mmserviced"}; }));
    EXPECT_TRUE(rejects([](auto& f) { f.terminal = "0:10"; }));
    EXPECT_TRUE(rejects([](auto& f) { f.request = "r"; }));
    EXPECT_TRUE(rejects([](auto& f) { f.where.emplace("infos.result == 7"); }));
}

TEST(EventFilter, FindsTerminalsAndRequestsInTexts) {
    const Json line{{"kind", "line"}, {"text", "request r-1: terminal 0:10: done"}};
    const auto accepts = [&](const std::string& terminal, const std::string& request) {
        recording::EventFilter filter;
        filter.terminal = terminal;
        filter.request = request;
        return filter.accepts(line);
    };
    EXPECT_TRUE(accepts("0:10", ""));
    EXPECT_FALSE(accepts("0:1", ""));
    EXPECT_FALSE(accepts(":10", ""));
    EXPECT_TRUE(accepts("", "r-1"));
    EXPECT_FALSE(accepts("", "r"));
}

// ---- descriptions ----

template <class Message> Event message(const Json& arguments, bool isSent = true) {
    const std::string body = support::wireOf<Message>(genrpc::argumentsFromJson<Message>(arguments));
    Event event = support::eventOf(support::processNamed(isSent ? "frame-host" : "tvserviced"),
                                   host::EventKind::message, 1'234'567, "tvservice",
                                   support::frameOf(support::messageNamed("tvservice", Message::name).meta, body));
    event.recorded.flags = isSent ? host::EventFlags::sent : 0;
    return event;
}

Event request() {
    return message<tvservice::messages::TvServiceReq>(Json::parse(
        R"({"requests": [{"terminal": {"type": 0, "id": 1}, "intParam2": 5, "uri": "dvb://\u001b", "reqId": "r-1"}]})"));
}
Event change(int track) { return message<tvservice::messages::MtsAudioChangeReq>({{"track", track}}, false); }

TEST(DescribedEvent, OfAMessageIsALineWithWhatMatters) {
    const auto service = support::processNamed("tvserviced", 9);
    EXPECT_EQ(recording::lineOf(recording::describe({request(), {{service, 2'500'000}}, {}})),
              "08:00:00.001234 frame-host -> tvserviced TvServiceReq requests=[{terminal=0:1 intParam2=5 "
              "uri=\"dvb://\\u001b\" reqId=\"r-1\"}] (2.500 ms)");
    EXPECT_EQ(recording::lineOf(recording::describe({change(2), {}, 7'000})),
              "08:00:00.001234 tvserviced <- tvservice MtsAudioChangeReq track=2 (both) (0.007 ms after it was sent)");
    EXPECT_EQ(recording::lineOf(recording::describe({change(0), {}, {}})),
              "08:00:00.001234 tvserviced <- tvservice MtsAudioChangeReq track=0 (main)");
}

TEST(DescribedEvent, SaysWhyAMessageCannotBeDecoded) {
    Event event = request();
    event.recorded.data.resize(40);
    EXPECT_THAT(recording::lineOf(recording::describe({event, {}, {}})),
                HasSubstr("frame-host -> tvservice TvServiceReq (only 8 of its "));
    event.recorded.data.resize(8);
    EXPECT_THAT(recording::lineOf(recording::describe({event, {}, {}})), HasSubstr("tvservice unknown (only 8 bytes"));
}

TEST(DescribedEvent, OfOtherKindsHasNameNumberAndText) {
    const auto process = support::processNamed("p");
    const auto line = [&](host::EventKind kind, const std::string& name, std::uint64_t number) {
        Event event = support::eventOf(process, kind, 0, name, "text\n\x9b");
        event.recorded.number = number;
        return recording::lineOf(recording::describe({event, {}, {}})).substr(sizeof "08:00:00.000000");
    };
    EXPECT_EQ(line(host::EventKind::process, "", 0), "p process: text\\x0a\\x9b");
    EXPECT_EQ(line(host::EventKind::connection, "tvservice", 3), "p connection tvservice 3: text\\x0a\\x9b");
    EXPECT_EQ(line(host::EventKind::line, "io", 3000), "p line io warning: text\\x0a\\x9b");
    EXPECT_EQ(line(host::EventKind::command, "shell", 5), "p command 5: text\\x0a\\x9b");
    EXPECT_EQ(line(host::EventKind::result, "shell", 5), "p result 5: text\\x0a\\x9b");
    EXPECT_EQ(line(host::EventKind::runLog, "0x10", 0), "p runLog 0x10: text\\x0a\\x9b");
    EXPECT_EQ(line(static_cast<host::EventKind>(77), "n", 8), "p kind 77 n 8: text\\x0a\\x9b");
}

TEST(DescribedEvent, HasAllMembersAsJson) {
    const auto json = recording::describe({request(), {}, {}});
    EXPECT_EQ(json["time"], "2027-01-15T08:00:00.001234Z");
    EXPECT_EQ(json["direction"], "sent");
    EXPECT_EQ(json["arguments"]["requests"][0]["intParam1"], 0);
    EXPECT_EQ(json["arguments"]["requests"][0]["terminal"]["typeName"], "main");
}

// ---- redaction ----

const recording::HashKey key{1, 2};

TEST(Redaction, HidesTextsOfMessagesAndKeepsNumbers) {
    Event event = request();
    recording::Redaction(key).apply(event);
    const auto decoded = recording::decode(event, recording::Numbers::plain);
    ASSERT_EQ(decoded.problem, "");
    const auto& first = decoded.arguments["requests"][0];
    EXPECT_EQ(first["uri"], "#" + recording::hexOf(recording::sipHash(key, "dvb://\x1b")));
    EXPECT_EQ(first["uuid"], "");
    EXPECT_EQ(first["intParam2"], 5);
    EXPECT_EQ(decoded.header.ids, (frame::MsgIds{41, 42}));
    EXPECT_EQ(event.recorded.size, event.recorded.data.size());
}

TEST(Redaction, LeavesOnlyTheHeaderOfAMessageThatCannotBeDecoded) {
    Event event = request();
    event.recorded.data += "secret";
    recording::Redaction(key).apply(event);
    EXPECT_EQ(event.recorded.data.size(), 32U);
}

TEST(Redaction, HidesTextsOfOtherEvents) {
    const auto hidden = [](host::EventKind kind, const std::string& text, const recording::HashKey& by = key) {
        Event event = support::eventOf(support::processNamed("p"), kind, 0, "name", text);
        recording::Redaction(by).apply(event);
        return event.recorded.data;
    };
    using enum host::EventKind;
    for (const auto kind : {line, connection, runLog, static_cast<host::EventKind>(99)})
        EXPECT_THAT(hidden(kind, "secret 1"), Not(HasSubstr("secret")));
    EXPECT_EQ(hidden(line, "secret"), hidden(connection, "secret"));
    EXPECT_NE(hidden(line, "secret"), hidden(line, "secret", {3, 4}));
    EXPECT_EQ(hidden(process, "p 1.2 began"), "p 1.2 began");
    EXPECT_EQ(hidden(result, R"({"status":-5})"), R"({"status":-5})");
    EXPECT_THAT(hidden(command, R"({"words":["play","secret"],"json":true})"),
                testing::AllOf(HasSubstr(R"("json":true)"), Not(HasSubstr("secret"))));
    EXPECT_THAT(hidden(command, "[\"secret\"]"), Not(HasSubstr("secret")));
    EXPECT_THAT(hidden(command, std::string(50000, '[') + "secret"), Not(HasSubstr("secret")));
    EXPECT_THAT(hidden(command, R"({"a":)" + std::string(20, '[') + "\"secret\"" + std::string(20, ']') + "}"),
                Not(HasSubstr("secret")));
}

TEST(Redaction, HasAnotherKeyEachTime) {
    Event one = support::lineOf(support::processNamed("p"), 0, "text"), two = one;
    recording::Redaction().apply(one);
    recording::Redaction().apply(two);
    EXPECT_NE(one.recorded.data, two.recorded.data);
}

} // namespace
