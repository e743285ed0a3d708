// The records of track handling: layouts, tables and special cases.
#include "support/layouts.h"
#include "support/wire.h"

#include <host/marshaller.h>

#include <cstring>
#include <gtest/gtest.h>
#include <schema/samples.h>
#include <string>
#include <type_traits>
#include <vector>

using namespace tvservice;
using support::hasLayout;
using support::textOf;

namespace {

// ---- layouts ----

static_assert(hasLayout<AudioStreamInfo_t>(64, {{"intParam1", 0},
                                                {"strParam1", 4},
                                                {"strParam2", 12},
                                                {"intParam2", 20},
                                                {"intParam3", 24},
                                                {"intParam4", 28},
                                                {"shortParam1", 32},
                                                {"shortParam2", 34},
                                                {"flagParam1", 36},
                                                {"flagParam2", 40},
                                                {"strParam3", 44},
                                                {"shortParam3", 52},
                                                {"shortParam4", 54},
                                                {"strParam4", 56}}));
static_assert(hasLayout<SubtitleStreamInfo_t>(50, {{"intParam1", 0},
                                                   {"strParam1", 4},
                                                   {"strParam2", 12},
                                                   {"intParam2", 20},
                                                   {"intParam3", 24},
                                                   {"shortParam1", 28},
                                                   {"shortParam2", 30},
                                                   {"shortParam3", 32},
                                                   {"flagParam1", 34},
                                                   {"flagParam2", 38},
                                                   {"strParam3", 42}}));
static_assert(hasLayout<VideoStreamInfo_t>(28, {{"intParam1", 0},
                                                {"strParam1", 4},
                                                {"intParam2", 12},
                                                {"shortParam1", 16},
                                                {"shortParam2", 18},
                                                {"flagParam1", 20},
                                                {"shortParam3", 24},
                                                {"shortParam4", 26}}));
static_assert(hasLayout<TeletextStreamInfo_t>(14, {{"intParam1", 0}, {"strParam1", 4}, {"shortParam1", 12}}));
static_assert(hasLayout<TvServiceAudioReq_t>(16, {{"terminal", 0}, {"intParam1", 8}, {"intParam2", 12}}));
static_assert(hasLayout<TvServiceSubtitleReq_t>(16, {{"terminal", 0}, {"intParam1", 8}, {"intParam2", 12}}));
static_assert(hasLayout<TvServiceVideoReq_t>(16, {{"terminal", 0}, {"intParam1", 8}, {"intParam2", 12}}));
static_assert(hasLayout<TvServiceTeletextReq_t>(16, {{"terminal", 0}, {"intParam1", 8}, {"intParam2", 12}}));
static_assert(hasLayout<TvServiceStreamInfoReq_t>(4, {{"intParam1", 0}}));
static_assert(hasLayout<TvServiceAudioInfo_t>(
    28, {{"terminal", 0}, {"intParam1", 8}, {"intParam2", 12}, {"intParam3", 16}, {"streams", 20}}));
static_assert(hasLayout<TvServiceSubtitleInfo_t>(
    28, {{"terminal", 0}, {"intParam1", 8}, {"intParam2", 12}, {"intParam3", 16}, {"streams", 20}}));
static_assert(hasLayout<TvServiceVideoInfo_t>(36, {{"terminal", 0},
                                                   {"intParam1", 8},
                                                   {"intParam2", 12},
                                                   {"intParam3", 16},
                                                   {"streams", 20},
                                                   {"intParam4", 28},
                                                   {"intParam5", 32}}));
static_assert(
    hasLayout<TvServiceTeletextInfo_t>(24, {{"terminal", 0}, {"intParam1", 8}, {"intParam2", 12}, {"streams", 16}}));
static_assert(hasLayout<TvServiceStreamInfo_t>(12, {{"intParam1", 0}, {"strParam1", 4}}));
static_assert(hasLayout<TvServiceConflictInfo_t>(20, {{"uintList1", 0}, {"uintList2", 8}, {"intParam1", 16}}));

static_assert(sizeof(MtsAudioTrack_t) == 4);

TEST(StreamRecords, HaveTablesThatListEveryField) {
    const auto tableOf = []<class Record>(Record) { return textOf(*Record::Flat::table()); };
    EXPECT_EQ(tableOf(AudioStreamInfo_t{}),
              "64: 0=4 4=string 12=string 20=4 24=4 28=4 32=2 34=2 36=4 40=4 44=string 52=2 54=2 56=string");
    EXPECT_EQ(tableOf(SubtitleStreamInfo_t{}),
              "50: 0=4 4=string 12=string 20=4 24=4 28=2 30=2 32=2 34=4 38=4 42=string");
    EXPECT_EQ(tableOf(VideoStreamInfo_t{}), "28: 0=4 4=string 12=4 16=2 18=2 20=4 24=2 26=2");
    EXPECT_EQ(tableOf(TeletextStreamInfo_t{}), "14: 0=4 4=string 12=2");
    EXPECT_EQ(tableOf(TvServiceAudioReq_t{}), "16: 0=TvServiceTerminal_t 8=4 12=4");
    EXPECT_EQ(tableOf(TvServiceSubtitleReq_t{}), "16: 0=TvServiceTerminal_t 8=4 12=4");
    EXPECT_EQ(tableOf(TvServiceVideoReq_t{}), "16: 0=TvServiceTerminal_t 8=4 12=4");
    EXPECT_EQ(tableOf(TvServiceTeletextReq_t{}), "16: 0=TvServiceTerminal_t 8=4 12=4");
    EXPECT_EQ(tableOf(TvServiceStreamInfoReq_t{}), "4: 0=4");
    EXPECT_EQ(tableOf(TvServiceAudioInfo_t{}), "28: 0=TvServiceTerminal_t 8=4 12=4 16=4 20=[AudioStreamInfo_t]");
    EXPECT_EQ(tableOf(TvServiceSubtitleInfo_t{}), "28: 0=TvServiceTerminal_t 8=4 12=4 16=4 20=[SubtitleStreamInfo_t]");
    EXPECT_EQ(tableOf(TvServiceVideoInfo_t{}),
              "36: 0=TvServiceTerminal_t 8=4 12=4 16=4 20=[VideoStreamInfo_t] 28=4 32=4");
    EXPECT_EQ(tableOf(TvServiceTeletextInfo_t{}), "24: 0=TvServiceTerminal_t 8=4 12=4 16=[TeletextStreamInfo_t]");
    EXPECT_EQ(tableOf(TvServiceStreamInfo_t{}), "12: 0=4 4=string");
    EXPECT_EQ(tableOf(TvServiceConflictInfo_t{}), "20: 0=words 8=words 16=4");
}

// ---- conversions ----

template <class T> T at(const void* form, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const char*>(form) + offset, sizeof value);
    return value;
}

TEST(StreamRecords, SurviveEncodingAndDecodingInEitherByteOrder) {
    support::forEach(support::StreamRecords{}, []<class Record>() {
        const auto sample = schema::Samples().next<Record>();
        for (const bool otherOrder : {false, true}) {
            EXPECT_EQ(support::roundTripped(sample, otherOrder), sample);
            EXPECT_EQ(support::roundTripped(Record{}, otherOrder), Record{});
        }
    });
}

TEST(StreamRecords, AreZeroWhenDefaultConstructedExceptTheirTerminals) {
    support::forEach(support::StreamRecords{}, []<class Record>() {
        typename Record::Flat form;
        genrpc::eachFlatField(form, []<class Flat>(const auto& field, const Flat& flat) {
            if constexpr (!std::is_same_v<Flat, _TvServiceTerminal_t_struct>) {
                const std::string bytes(reinterpret_cast<const char*>(&flat), sizeof flat);
                EXPECT_EQ(bytes, std::string(sizeof flat, '\0')) << field.name;
            }
        });
    });
}

TEST(StreamRecords, FreeEverythingTheyHoldWhenAssignedAgain) {
    support::forEach(support::StreamRecords{}, []<class Record>() {
        const auto sample = schema::Samples().next<Record>();
        const auto empty = host::flatHeapUsage().blocks;
        typename Record::Flat form(sample);
        const auto full = host::flatHeapUsage().blocks;
        form = schema::Samples(100).next<Record>();
        EXPECT_EQ(host::flatHeapUsage().blocks, full);
        form = sample;
        EXPECT_EQ(host::flatHeapUsage().blocks, full);
        EXPECT_EQ(static_cast<Record>(form), sample);
        genrpc::release(form);
        EXPECT_EQ(host::flatHeapUsage().blocks, empty);
    });
}

TEST(StreamRecords, ShrinkToTheTerminatorsOfTheirStringsWhenAssignedAnEmptyRecord) {
    const auto empty = host::flatHeapUsage().blocks;
    _TvServiceAudioInfo_t_struct form(schema::Samples().next<TvServiceAudioInfo_t>());
    EXPECT_EQ(host::flatHeapUsage().blocks, empty + 1 + 3 * 4); // the array and each stream's four strings
    form = TvServiceAudioInfo_t{};
    EXPECT_EQ(host::flatHeapUsage().blocks, empty);
    EXPECT_EQ(form.streams.count, 0U);
    EXPECT_EQ(form.streams.data.get(), nullptr);
}

TEST(StreamFlag, IsSentAsAWholeWord) {
    AudioStreamInfo_t stream;
    stream.flagParam1 = true;
    _AudioStreamInfo_t_struct form(stream);
    EXPECT_EQ(at<std::uint32_t>(&form, 36), 1U);
    EXPECT_EQ(at<std::uint32_t>(&form, 40), 0U);
    genrpc::release(form);
}

TEST(StreamFlag, IsTrueForEveryWordButZero) {
    for (const std::uint32_t word : {1U, 2U, 0x100U, 0x80000000U, 0xFF000000U, 0xFFFFFFFFU}) {
        for (const bool otherOrder : {false, true}) {
            _SubtitleStreamInfo_t_struct form{SubtitleStreamInfo_t{}};
            std::memcpy(reinterpret_cast<char*>(&form) + 38, &word, sizeof word);
            const auto& table = __vdl_EndianTable_serializable_SubtitleStreamInfo_t;
            const std::string wire = support::marshalled(table, &form);
            genrpc::release(form);
            const auto arrived =
                support::received(table, otherOrder ? support::reversed(table, wire) : wire, otherOrder);
            const SubtitleStreamInfo_t stream = *reinterpret_cast<_SubtitleStreamInfo_t_struct*>(arrived.get());
            EXPECT_FALSE(stream.flagParam1);
            EXPECT_TRUE(stream.flagParam2) << word;
        }
    }
}

TEST(SubtitleStream, HasItsFlagWordsAtUnalignedOffsets) {
    SubtitleStreamInfo_t stream;
    stream.shortParam3 = 0xABCD;
    stream.flagParam1 = true;
    stream.strParam3 = "end";
    _SubtitleStreamInfo_t_struct form(stream);
    EXPECT_EQ(at<std::uint16_t>(&form, 32), 0xABCD);
    EXPECT_EQ(at<std::uint32_t>(&form, 34), 1U);
    EXPECT_EQ(at<std::uint32_t>(&form, 38), 0U);
    EXPECT_EQ(at<std::uint32_t>(&form, 42), 3U);
    genrpc::release(form);
}

TEST(StreamShort, KeepsAllItsBits) {
    TeletextStreamInfo_t stream;
    stream.shortParam1 = 0xFFFF;
    EXPECT_EQ(support::roundTripped(stream, false).shortParam1, 0xFFFF);
    stream.shortParam1 = 0x8001;
    EXPECT_EQ(support::roundTripped(stream, true).shortParam1, 0x8001);
}

TEST(StreamString, IsSentAsLengthZeroAndATerminatorWhenEmpty) {
    _TvServiceStreamInfo_t_struct form(TvServiceStreamInfo_t{7, ""});
    EXPECT_EQ(form.strParam1.length, 0U);
    EXPECT_STREQ(form.strParam1.data, "");
    EXPECT_EQ(support::marshalled(*form.table(), &form).size(), 12U + 1U);
    genrpc::release(form);
}

TEST(StreamString, IsReadByItsLengthAndNotByItsTerminator) {
    _TvServiceStreamInfo_t_struct form(TvServiceStreamInfo_t{7, "eightchr"});
    form.strParam1.length = 5;
    EXPECT_EQ(static_cast<TvServiceStreamInfo_t>(form).strParam1, "eight");
    form.strParam1.length = 0;
    EXPECT_EQ(static_cast<TvServiceStreamInfo_t>(form).strParam1, "");
    genrpc::release(form);
    form.strParam1.length = 9;
    EXPECT_EQ(static_cast<TvServiceStreamInfo_t>(form).strParam1, "");
}

template <class Info> void expectNoStreams() {
    Info info;
    info.intParam1 = 1;
    typename Info::Flat form(info);
    EXPECT_EQ(form.streams.count, 0U);
    EXPECT_EQ(form.streams.data.get(), nullptr);
    EXPECT_EQ(support::marshalled(*form.table(), &form).size(), sizeof form);
    EXPECT_EQ(support::roundTripped(info, false), info);
    form.streams.count = 2;
    EXPECT_TRUE(static_cast<Info>(form).streams.empty()) << "a count without an array";
}

TEST(StreamList, IsSentAsCountZeroWithoutAnArrayWhenEmpty) {
    expectNoStreams<TvServiceAudioInfo_t>();
    expectNoStreams<TvServiceSubtitleInfo_t>();
    expectNoStreams<TvServiceVideoInfo_t>();
    expectNoStreams<TvServiceTeletextInfo_t>();
}

template <class Info> std::size_t elementBytes() {
    Info info;
    info.streams.resize(2);
    typename Info::Flat form(info);
    const auto first = reinterpret_cast<std::uintptr_t>(&form.streams.data[0]);
    const auto second = reinterpret_cast<std::uintptr_t>(&form.streams.data[1]);
    genrpc::release(form);
    return second - first;
}

TEST(StreamList, HasItsElementsWithoutGaps) {
    EXPECT_EQ(elementBytes<TvServiceAudioInfo_t>(), 64U);
    EXPECT_EQ(elementBytes<TvServiceSubtitleInfo_t>(), 50U);
    EXPECT_EQ(elementBytes<TvServiceVideoInfo_t>(), 28U);
    EXPECT_EQ(elementBytes<TvServiceTeletextInfo_t>(), 14U);
}

TEST(ConflictInfo, KeepsItsTwoListsSeparate) {
    const TvServiceConflictInfo_t info{{0xFFFFFFFF, 1}, {}, -1};
    _TvServiceConflictInfo_t_struct form(info);
    EXPECT_EQ(form.uintList1.count, 2U);
    EXPECT_EQ(form.uintList2.count, 0U);
    EXPECT_EQ(form.uintList2.data.get(), nullptr);
    EXPECT_EQ(support::marshalled(*form.table(), &form).size(), 20U + 8U);
    genrpc::release(form);
    EXPECT_EQ(support::roundTripped(info, true), info);
}

} // namespace
