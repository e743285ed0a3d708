// The members of a request that a shell reads or ignores.
#include "shell/request.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using appovshell::quoted;
using appovshell::readRequest;
using appovshell::Request;
using Member = Request::Member;

Request read(const char* text) {
    Request request;
    EXPECT_TRUE(readRequest(text, request)) << text;
    return request;
}

TEST(ShellRequest, HasItsMembersInAnyOrderAmongOthers) {
    const auto request = read(R"({"other":{"line":1,"words":[1]},"json":true,"list":[["x"],{"json":0}],"line":"a b"})");
    EXPECT_TRUE(request.isObject);
    EXPECT_TRUE(request.json);
    EXPECT_EQ(request.line, "a b");
    EXPECT_EQ(request.wordsMember, Member::Missing);
    EXPECT_EQ(read(R"({"other":["x"],"words":["a","b c"],"after":["y"]})").words,
              (std::vector<std::string>{"a", "b c"}));
}

TEST(ShellRequest, HasTheLastOfTwoMembersOfOneName) {
    EXPECT_EQ(read(R"({"words":[1],"words":["a"]})").words, std::vector<std::string>{"a"});
    EXPECT_EQ(read(R"({"words":[1],"words":["a"]})").wordsMember, Member::Fits);
    EXPECT_EQ(read(R"({"line":"a","line":null})").lineMember, Member::OfAnotherType);
    EXPECT_EQ(read(R"({"json":1.5,"json":false})").jsonMember, Member::Fits);
}

TEST(ShellRequest, DetectsMembersOfAnotherType) {
    for (const char* words : {R"(["a",["b"]])", R"(["a",{}])", R"(["a",-1])", R"({"a":"b"})", "\"a\"", "true", "null"})
        EXPECT_EQ(read((std::string("{\"words\":") + words + "}").c_str()).wordsMember, Member::OfAnotherType) << words;
    EXPECT_EQ(read(R"({"line":["a"]})").lineMember, Member::OfAnotherType);
    EXPECT_EQ(read(R"({"json":{"json":true}})").jsonMember, Member::OfAnotherType);
}

TEST(ShellRequest, IsAnObject) {
    for (const char* text : {"[]", R"([{"line":"a"}])", "1", "\"line\"", "null"}) {
        const auto request = read(text);
        EXPECT_FALSE(request.isObject) << text;
        EXPECT_EQ(request.lineMember, Member::Missing) << text;
    }
    for (const char* text : {"", "{", "{}{}", "{\"line\":\"\xff\"}", "{\"line\":1e999}"}) {
        Request request;
        EXPECT_FALSE(readRequest(text, request)) << text;
    }
}

TEST(ShellRequest, IsReadHoweverDeeplyOtherMembersNest) {
    const std::string depth(30000, '[');
    Request request;
    EXPECT_TRUE(readRequest("{\"x\":" + depth + std::string(depth.size(), ']') + ",\"line\":\"a\"}", request));
    EXPECT_EQ(request.line, "a");
}

TEST(ShellText, IsQuotedAsInJson) {
    EXPECT_EQ(quoted("a \"b\"\n\x01"), R"("a \"b\"\n\u0001")");
    EXPECT_EQ(quoted("a\xff"), "\"a\xEF\xBF\xBD\"");
}

} // namespace
