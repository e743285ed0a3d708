#include <host/marshaller.h>
#include <vdl/endian-table.h>
#include <vdl/flat.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::HasSubstr;
using vdl::EndianEntry;
using vdl::EndianTable;

constexpr EndianEntry end{0, 0, EndianEntry::terminator};
constexpr std::size_t noLimit = SIZE_MAX;

// ---- tables ----

// A record with every kind of field at odd offsets:
// 0 u8 | 1 string | 9 u16 | 11 inner {u8, string} | 20 list of strings | 28 list of words | 36 sequence of inner |
// 44 sequence of points | 52 u32
const EndianEntry innerEntries[] = {
    {0, vdl::EndianScalar1, 0}, {1, vdl::EndianNested, &__vdl_EndianTable_vdlDeserString_t}, end};
const EndianTable inner{9, innerEntries};
const EndianEntry pointEntries[] = {{0, vdl::EndianScalar2, 0}, {2, vdl::EndianScalar1, 0}, end};
const EndianTable point{3, pointEntries};
const EndianEntry outerEntries[] = {{0, vdl::EndianScalar1, 0},
                                    {1, vdl::EndianNested, &__vdl_EndianTable_vdlDeserString_t},
                                    {9, vdl::EndianScalar2, 0},
                                    {11, vdl::EndianNested, &inner},
                                    {20, vdl::EndianNested, &__vdl_EndianTable_vdlDeserBlobString_t},
                                    {28, vdl::EndianNested, &__vdl_EndianTable_vdlDeserBlobUint32_t},
                                    {36, vdl::EndianSequence, &inner},
                                    {44, vdl::EndianSequence, &point},
                                    {52, vdl::EndianScalar4, 0},
                                    end};
const EndianTable outer{56, outerEntries};

// Two levels of sequences: rows of strings.
const EndianEntry rowsEntries[] = {{0, vdl::EndianSequence, &__vdl_EndianTable_vdlDeserBlobString_t}, end};
const EndianTable rows{8, rowsEntries};

// ---- messages ----

class Text {
public:
    Text& u8(std::uint8_t value) { return scalar(value); }
    Text& u16(std::uint16_t value) { return scalar(value); }
    Text& u32(std::uint32_t value) { return scalar(value); }
    Text& bytes(const std::string& value) {
        text_ += value;
        return *this;
    }
    Text& string(const std::string& value) { return bytes(value).u8(0); }
    operator const std::string&() const { return text_; }

private:
    template <class T> Text& scalar(T value) {
        text_.append(reinterpret_cast<const char*>(&value), sizeof value);
        return *this;
    }
    std::string text_;
};

// The position of a scalar, count or pointer in a message.
struct Scalar {
    std::size_t offset, width;
};

// The outer record with something in every field.
const std::string& outerMessage() {
    static const std::string message = Text()
                                           .u8(7)
                                           .u32(3)
                                           .u32(56) // "abc"
                                           .u16(0x1234)
                                           .u8(8)
                                           .u32(2)
                                           .u32(60) // "in"
                                           .u32(2)
                                           .u32(63) // list of strings
                                           .u32(2)
                                           .u32(86) // list of words
                                           .u32(2)
                                           .u32(94) // sequence of inner
                                           .u32(3)
                                           .u32(116) // sequence of points
                                           .u32(0xCAFEBABE)
                                           .string("abc")
                                           .string("in")
                                           .u32(1)
                                           .u32(79)
                                           .u32(4)
                                           .u32(81)
                                           .string("x")
                                           .string("long")
                                           .u32(0x11223344)
                                           .u32(0x55667788)
                                           .u8(1)
                                           .u32(1)
                                           .u32(112)
                                           .u8(2)
                                           .u32(1)
                                           .u32(114)
                                           .string("p")
                                           .string("q")
                                           .u16(1)
                                           .u8(2)
                                           .u16(3)
                                           .u8(4)
                                           .u16(5)
                                           .u8(6);
    return message;
}

// The offsets of all counts and pointers in it.
const std::vector<std::size_t> outerCounts{1, 12, 20, 28, 36, 44, 63, 71, 95, 104};

std::vector<Scalar> outerScalars() {
    std::vector<Scalar> scalars{{9, 2}, {52, 4}, {86, 4}, {90, 4}, {116, 2}, {119, 2}, {122, 2}};
    for (const std::size_t offset : outerCounts) {
        scalars.push_back({offset, 4});
        scalars.push_back({offset + 4, 4});
    }
    return scalars;
}

std::string swapped(std::string message, const std::vector<Scalar>& scalars) {
    for (const auto& [offset, width] : scalars)
        std::reverse(message.begin() + static_cast<std::ptrdiff_t>(offset),
                     message.begin() + static_cast<std::ptrdiff_t>(offset + width));
    return message;
}

void put(std::string& message, std::size_t offset, std::uint32_t word) {
    std::memcpy(message.data() + offset, &word, sizeof word);
}
std::uint32_t get(const std::string& message, std::size_t offset) {
    std::uint32_t word;
    std::memcpy(&word, message.data() + offset, sizeof word);
    return word;
}

// A received message in a flat block of exactly its size.
class Arrived {
public:
    explicit Arrived(const std::string& message)
        : block_(static_cast<char*>(vdlFlatAlloc(message.size())), vdlFlatFree), size_(message.size()) {
        std::memcpy(block_.get(), message.data(), size_);
    }

    // The error, or an empty string.
    std::string unmarshal(const EndianTable& table, bool swap = false) {
        const char* refusal = host::unmarshal(host::planOf(table), block_.get(), size_, swap);
        return refusal ? refusal : "";
    }
    std::string marshal(const EndianTable& table) const {
        host::Bytes out;
        host::marshal(host::planOf(table), block_.get(), out, noLimit);
        return {out.data(), out.size()};
    }
    char* data() { return block_.get(); }

private:
    std::unique_ptr<char, void (*)(void*) noexcept> block_;
    std::size_t size_;
};

std::string errorOf(const EndianTable& table, const std::string& message) { return Arrived(message).unmarshal(table); }

vdlDeserString_t flatString(const std::string& text) {
    auto* data = static_cast<char*>(vdlFlatAlloc(text.size() + 1));
    std::memcpy(data, text.c_str(), text.size() + 1);
    return {static_cast<std::uint32_t>(text.size()), data};
}

// ---- marshalling ----

TEST(Marshaller, CopiesWhatArrivedToTheSameBytes) {
    Arrived message(outerMessage());
    ASSERT_EQ(message.unmarshal(outer), "");
    EXPECT_EQ(message.marshal(outer), outerMessage());
}

TEST(Marshaller, WritesUnsetEmptyAndNonEmptyStrings) {
    const EndianTable& table = __vdl_EndianTable_vdlDeserString_t;
    const auto marshalled = [&](const vdlDeserString_t& string) {
        host::Bytes out;
        host::marshal(host::planOf(table), &string, out, noLimit);
        return std::string(out.data(), out.size());
    };
    EXPECT_EQ(marshalled({0, nullptr}), std::string(Text().u32(0).u32(0)));
    for (std::size_t length = 0; length < 70; ++length) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
        const vdlDeserString_t string = flatString(text);
        const std::string message = marshalled(string);
        EXPECT_EQ(message, std::string(Text().u32(static_cast<std::uint32_t>(length)).u32(8).string(text)));
        EXPECT_EQ(errorOf(table, message), "");
        vdlFlatFree(string.data);
    }
}

TEST(Marshaller, TerminatesStringsItself) {
    vdlDeserString_t string = flatString("abc");
    string.length = 2;
    host::Bytes out;
    host::marshal(host::planOf(__vdl_EndianTable_vdlDeserString_t), &string, out, noLimit);
    EXPECT_EQ(std::string(out.data(), out.size()), std::string(Text().u32(2).u32(8).string("ab")));
    vdlFlatFree(string.data);
}

// Strings one after the other as in a region, with gaps, in another order, without terminators between them, and one
// inside another.
TEST(Marshaller, WritesStringsWhereverTheyAreInMemory) {
    const std::string texts("abc\0de\0fgh\0", 11);
    constexpr std::uint32_t count = 3, arrayBytes = count * sizeof(vdlDeserString_t);
    const std::unique_ptr<char, void (*)(void*) noexcept> block(
        static_cast<char*>(vdlFlatAlloc(arrayBytes + texts.size())), vdlFlatFree);
    char* const pool = std::copy(texts.begin(), texts.end(), block.get() + arrayBytes) - texts.size();
    vdlDeserString_t* const strings = reinterpret_cast<vdlDeserString_t*>(block.get());
    const vdlDeserBlobString_t list{count, strings};
    host::Bytes out;

    std::vector<std::pair<std::size_t, std::uint32_t>> places;
    for (const std::size_t offset : {0U, 3U, 4U, 6U, 7U})
        for (const std::uint32_t length : {0U, 1U, 3U}) places.emplace_back(offset, length);
    for (const auto& first : places)
        for (const auto& second : places)
            for (const auto& third : places) {
                Text expected;
                expected.u32(count).u32(sizeof list);
                Text blocks;
                std::uint32_t next = sizeof list + arrayBytes;
                std::size_t index = 0;
                for (const auto& [offset, length] : {first, second, third}) {
                    strings[index++] = {length, pool + offset};
                    expected.u32(length).u32(next);
                    blocks.string(texts.substr(offset, length));
                    next += length + 1;
                }
                expected.bytes(blocks);
                out.truncate(0);
                host::marshal(host::planOf(__vdl_EndianTable_vdlDeserBlobString_t), &list, out, noLimit);
                ASSERT_EQ(std::string(out.data(), out.size()), std::string(expected));
            }
}

TEST(Marshaller, WritesAnEmptyArrayAsNull) {
    auto* word = static_cast<vdl::Word<std::uint32_t>*>(vdlFlatAlloc(4));
    const vdlDeserBlobUint32_t list{0, word};
    host::Bytes out;
    host::marshal(host::planOf(__vdl_EndianTable_vdlDeserBlobUint32_t), &list, out, noLimit);
    EXPECT_EQ(std::string(out.data(), out.size()), std::string(Text().u32(0).u32(0)));
    vdlFlatFree(word);
}

TEST(Marshaller, AppendsWithOffsetsFromTheMessagesStart) {
    Arrived message(outerMessage());
    ASSERT_EQ(message.unmarshal(outer), "");
    host::Bytes out;
    std::memcpy(out.append(5), "head:", 5);
    host::marshal(host::planOf(outer), message.data(), out, noLimit);
    EXPECT_EQ(std::string(out.data(), out.size()), "head:" + outerMessage());
}

TEST(Marshaller, LeavesTheOutputUnchangedWhenTheMessageIsTooLong) {
    Arrived message(outerMessage());
    ASSERT_EQ(message.unmarshal(outer), "");
    host::Bytes out;
    std::memcpy(out.append(5), "head:", 5);
    for (std::size_t limit = 0; limit < outerMessage().size(); ++limit) {
        EXPECT_THROW(host::marshal(host::planOf(outer), message.data(), out, limit), std::length_error) << limit;
        EXPECT_EQ(std::string(out.data(), out.size()), "head:") << limit;
    }
    host::marshal(host::planOf(outer), message.data(), out, outerMessage().size());
    EXPECT_EQ(out.size(), 5 + outerMessage().size());
}

TEST(Marshaller, RejectsCountsWithNullPointersWhenSending) {
    Arrived message(outerMessage());
    ASSERT_EQ(message.unmarshal(outer), "");
    for (const std::size_t offset : {1U, 12U, 20U, 28U, 36U, 44U}) {
        std::uint32_t pointer;
        std::memcpy(&pointer, message.data() + offset + 4, 4);
        std::memset(message.data() + offset + 4, 0, 4);
        host::Bytes out;
        try {
            host::marshal(host::planOf(outer), message.data(), out, noLimit);
            ADD_FAILURE() << offset;
        } catch (const std::invalid_argument& error) {
            EXPECT_THAT(error.what(), HasSubstr("at byte " + std::to_string(offset) + " "));
        }
        EXPECT_EQ(out.size(), 0U);
        std::memcpy(message.data() + offset + 4, &pointer, 4);
    }
}

// ---- unmarshalling ----

TEST(Marshaller, TurnsOffsetsIntoPointers) {
    const std::string message = Text()
                                    .u32(2)
                                    .u32(8) // two rows
                                    .u32(1)
                                    .u32(24)
                                    .u32(2)
                                    .u32(34)
                                    .u32(1)
                                    .u32(32) // the first row's string
                                    .string("a")
                                    .u32(2)
                                    .u32(50)
                                    .u32(0)
                                    .u32(53)
                                    .string("bc")
                                    .string("");
    Arrived arrived(message);
    ASSERT_EQ(arrived.unmarshal(rows), "");
    auto* row = reinterpret_cast<vdlDeserBlobString_t*>(arrived.data() + 8);
    EXPECT_STREQ(row[0].data[0].data, "a");
    EXPECT_STREQ(row[1].data[0].data, "bc");
    EXPECT_EQ(row[1].data[1].data.get(), arrived.data() + 53);
    EXPECT_EQ(arrived.marshal(rows), message);
}

TEST(Marshaller, CorrectsTheByteOrderOfAForeignMessage) {
    Arrived message(swapped(outerMessage(), outerScalars()));
    ASSERT_EQ(message.unmarshal(outer, true), "");
    EXPECT_EQ(message.marshal(outer), outerMessage());
    EXPECT_NE(errorOf(outer, swapped(outerMessage(), outerScalars())), "");
}

TEST(Marshaller, RejectsEveryTruncation) {
    for (std::size_t length = 0; length < outerMessage().size(); ++length) {
        EXPECT_NE(errorOf(outer, outerMessage().substr(0, length)), "") << length;
        Arrived foreign(swapped(outerMessage(), outerScalars()).substr(0, length));
        EXPECT_NE(foreign.unmarshal(outer, true), "") << length;
    }
}

TEST(Marshaller, RejectsBytesAfterTheLastBlock) {
    EXPECT_THAT(errorOf(outer, outerMessage() + '\0'), HasSubstr("1 bytes after its last block"));
}

TEST(Marshaller, RejectsBoundaryValuesInEveryCountAndOffset) {
    for (const std::size_t field : outerCounts) {
        for (const std::size_t place : {field, field + 4}) {
            const std::uint32_t right = get(outerMessage(), place);
            for (const std::uint32_t value :
                 {0U, 1U, right - 1, right, right + 1, static_cast<std::uint32_t>(outerMessage().size()), 1U << 15,
                  (1U << 16) - 1, (1U << 29), (1U << 31) - 1, 1U << 31, UINT32_MAX - 1, UINT32_MAX}) {
                std::string message = outerMessage();
                put(message, place, value);
                EXPECT_EQ(errorOf(outer, message) == "", value == right) << "at " << place << ": " << value;
            }
        }
    }
}

TEST(Marshaller, SurvivesEveryChangeOfASingleByte) {
    for (std::size_t i = 0; i < outerMessage().size(); ++i) {
        for (const int change : {1, 2, 0x7F, 0x80, 0xFF}) {
            std::string message = outerMessage();
            message[i] = static_cast<char>(message[i] ^ change);
            Arrived arrived(message);
            if (arrived.unmarshal(outer).empty()) {
                EXPECT_EQ(arrived.marshal(outer), message) << i;
            }
        }
    }
}

TEST(Marshaller, RejectsAStringWithoutTerminator) {
    std::string message = outerMessage();
    message[59] = 'd';
    EXPECT_THAT(errorOf(outer, message), HasSubstr("string at byte 1: its block at 56 is not terminated"));
}

TEST(Marshaller, RejectsBlocksThatOverlapOrLeaveGaps) {
    const EndianTable& table = __vdl_EndianTable_vdlDeserBlobString_t;
    const auto list = [](std::uint32_t first, std::uint32_t second) {
        return std::string(Text().u32(2).u32(8).u32(1).u32(first).u32(1).u32(second).string("a").string("b"));
    };
    EXPECT_EQ(errorOf(table, list(24, 26)), "");
    EXPECT_THAT(errorOf(table, list(24, 24)), HasSubstr("block of 2 bytes at 24, but the next is at 26"));
    EXPECT_NE(errorOf(table, list(26, 24)), "");
    EXPECT_NE(errorOf(table, list(25, 26)), "");
    EXPECT_NE(errorOf(table, list(8, 26)), "");
}

TEST(Marshaller, AcceptsAStringWithALengthAndANullPointer) {
    Arrived message(Text().u32(5).u32(0));
    EXPECT_EQ(message.unmarshal(__vdl_EndianTable_vdlDeserString_t), "");
    EXPECT_EQ(reinterpret_cast<vdlDeserString_t*>(message.data())->data.get(), nullptr);
}

TEST(Marshaller, RejectsAListWhoseCountAndPointerDisagree) {
    for (const EndianTable* table :
         {&__vdl_EndianTable_vdlDeserBlobString_t, &__vdl_EndianTable_vdlDeserBlobUint32_t}) {
        EXPECT_EQ(errorOf(*table, Text().u32(0).u32(0)), "");
        EXPECT_THAT(errorOf(*table, Text().u32(1).u32(0)), HasSubstr("count 1 with a null pointer"));
        EXPECT_THAT(errorOf(*table, Text().u32(0).u32(8)), HasSubstr("count 0 with a block"));
    }
}

TEST(Marshaller, RejectsACountWhoseBytesExceedAWord) {
    // 2^30 words of 4 bytes are 2^32, which is 0 in 32 bits.
    EXPECT_NE(errorOf(__vdl_EndianTable_vdlDeserBlobUint32_t, Text().u32(1U << 30).u32(8)), "");
    EXPECT_NE(errorOf(__vdl_EndianTable_vdlDeserBlobUint32_t, Text().u32((1U << 30) + 1).u32(8).u32(1)), "");
}

TEST(Marshaller, AcceptsARecordWithoutFields) {
    static const EndianEntry entries[] = {end};
    static const EndianTable table{0, entries};
    host::Bytes out;
    host::marshal(host::planOf(table), "", out, 0);
    EXPECT_EQ(out.size(), 0U);
    Arrived nothing("");
    EXPECT_EQ(nothing.unmarshal(table), "");
}

} // namespace
