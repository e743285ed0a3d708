// The golden messages: contents with their bytes in both byte orders, written by another implementation of the wire
// format (tests/decoder). The code must decode and encode them exactly.
#include "support/tv-messages.h"
#include "support/wire.h"

#include <genrpc/json.h>

#include <algorithm>
#include <bit>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using genrpc::Json;

constexpr bool isLittle = std::endian::native == std::endian::little;
constexpr const char* ownOrder = isLittle ? "little" : "big";
constexpr const char* otherOrder = isLittle ? "big" : "little";

// One message, with its arguments as JSON.
struct Codec {
    const char* service;
    const char* name;
    std::string (*encode)(const Json& content);
    Json (*decode)(const std::string& wire, bool swap);

    std::string fileName() const { return std::string(service) + "-" + name + ".json"; }
    friend void PrintTo(const Codec& codec, std::ostream* out) { *out << codec.fileName(); }
};

template <class Message> std::string encode(const Json& content) {
    return support::wireOf<Message>(genrpc::argumentsFromJson<Message>(content));
}
template <class Message> Json decode(const std::string& wire, bool swap) {
    const auto body = support::received(*Message::table(), wire, swap);
    return std::apply([](const auto&... argument) { return genrpc::argumentsToJson<Message>(argument...); },
                      Message::Body::read(body.get()));
}

#define CODEC(service, direction, Name, ...) \
    {#service, #Name, encode<service::messages::Name>, decode<service::messages::Name>},
const std::vector<Codec> codecs{TVSERVICE_MESSAGES(CODEC) MMSERVICE_MESSAGES(CODEC)};

int digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    throw std::invalid_argument("no hexadecimal digit: " + std::string(1, c));
}
std::string bytesOf(const Json& hex) {
    const auto text = hex.get<std::string>();
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); i += 2)
        bytes += static_cast<char>(digit(text[i]) * 16 + digit(text.at(i + 1)));
    return bytes;
}
std::string hexOf(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

Json fileOf(const Codec& codec) {
    return Json::parse(std::ifstream(std::filesystem::path(GOLDEN_FOLDER) / codec.fileName()), nullptr, false);
}

class GoldenMessage : public testing::TestWithParam<Codec> {
protected:
    const Codec& codec_ = GetParam();
    const Json file_ = fileOf(codec_);

    void expectRead(const char* list) const {
        ASSERT_FALSE(file_.at(list).empty());
        for (const auto& value : file_[list]) {
            SCOPED_TRACE(value["name"]);
            EXPECT_EQ(codec_.decode(bytesOf(value[ownOrder]), false).dump(), value["content"].dump());
            EXPECT_EQ(codec_.decode(bytesOf(value[otherOrder]), true).dump(), value["content"].dump());
        }
    }
};

TEST_P(GoldenMessage, IsReadInBothByteOrders) { expectRead("values"); }

TEST_P(GoldenMessage, IsWrittenByteForByte) {
    for (const auto& value : file_["values"]) {
        SCOPED_TRACE(value["name"]);
        EXPECT_EQ(hexOf(codec_.encode(value["content"])), value[ownOrder].get<std::string>());
    }
}

TEST_P(GoldenMessage, IsRejectedWhenItIsCutShort) {
    for (const auto& value : file_["values"]) {
        SCOPED_TRACE(value["name"]);
        const std::string wire = bytesOf(value[ownOrder]);
        for (std::size_t size = 0; size < wire.size(); size += 1 + wire.size() / 64)
            EXPECT_THROW(codec_.decode(wire.substr(0, size), false), std::invalid_argument) << "of " << size;
    }
}

const auto nameOf = [](const auto& test) { return std::string(test.param.service) + "_" + test.param.name; };

INSTANTIATE_TEST_SUITE_P(, GoldenMessage, testing::ValuesIn(codecs), nameOf);

// An empty string may have a null pointer, and a set flag may be any word except zero. Everything else has one form.
bool hasSeveralForms(const Json& content) {
    return content.is_string() || content.is_boolean() ||
           (content.is_structured() && std::any_of(content.begin(), content.end(), hasSeveralForms));
}

std::vector<Codec> codecsWithSeveralForms() {
    std::vector<Codec> several;
    for (const Codec& codec : codecs) {
        const Json file = fileOf(codec);
        if (!file.is_object()) continue; // other tests report it
        const auto& values = file.at("values");
        if (std::any_of(values.begin(), values.end(),
                        [](const auto& value) { return hasSeveralForms(value["content"]); }))
            several.push_back(codec);
    }
    return several;
}

class GoldenMessageWithTextsOrFlags : public GoldenMessage {};

TEST_P(GoldenMessageWithTextsOrFlags, IsReadInOtherFormsThatASenderMayWrite) { expectRead("accepted"); }

INSTANTIATE_TEST_SUITE_P(, GoldenMessageWithTextsOrFlags, testing::ValuesIn(codecsWithSeveralForms()), nameOf);

TEST(GoldenMessages, ExistForEveryMessageAndNothingElse) {
    std::vector<std::string> wanted, found;
    for (const auto& codec : codecs) wanted.push_back(codec.fileName());
    for (const auto& entry : std::filesystem::directory_iterator(GOLDEN_FOLDER))
        found.push_back(entry.path().filename().string());
    EXPECT_THAT(found, testing::UnorderedElementsAreArray(wanted));
}

} // namespace
