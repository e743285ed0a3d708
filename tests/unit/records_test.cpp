// The core records: their exact layouts, tables and the four operations of their flat forms.
#include <genrpc/flatten.h>
#include <genrpc/json.h>
#include <host/marshaller.h>
#include <mmservice/messages.h>
#include <tvservice/messages.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace tvservice;
using namespace mmservice;
using testing::ElementsAre;

namespace {

static_assert(sizeof(_TvServiceTerminal_t_struct) == 8 && sizeof(_MMServiceTerminal_t_struct) == 8);
static_assert(sizeof(_TvServiceReq_t_struct) == 88);
static_assert(offsetof(_TvServiceReq_t_struct, terminal) == 0 && offsetof(_TvServiceReq_t_struct, intParam1) == 8);
static_assert(offsetof(_TvServiceReq_t_struct, intParam2) == 12 && offsetof(_TvServiceReq_t_struct, intParam3) == 16);
static_assert(offsetof(_TvServiceReq_t_struct, uri) == 20 && offsetof(_TvServiceReq_t_struct, strParam1) == 28);
static_assert(offsetof(_TvServiceReq_t_struct, uuid) == 36 && offsetof(_TvServiceReq_t_struct, strParam2) == 44);
static_assert(offsetof(_TvServiceReq_t_struct, strParamList) == 52 && offsetof(_TvServiceReq_t_struct, reqId) == 60);
static_assert(offsetof(_TvServiceReq_t_struct, strParam3) == 68 && offsetof(_TvServiceReq_t_struct, strParam4) == 76);
static_assert(offsetof(_TvServiceReq_t_struct, intParam4) == 84);
static_assert(sizeof(_MMServiceReq_t_struct) == 68);
static_assert(offsetof(_MMServiceReq_t_struct, intParam1) == 8 && offsetof(_MMServiceReq_t_struct, intParam3) == 16);
static_assert(offsetof(_MMServiceReq_t_struct, uri) == 20 && offsetof(_MMServiceReq_t_struct, uuid) == 28);
static_assert(offsetof(_MMServiceReq_t_struct, strParam2) == 36 &&
              offsetof(_MMServiceReq_t_struct, strParamList) == 44);
static_assert(offsetof(_MMServiceReq_t_struct, reqId) == 52 && offsetof(_MMServiceReq_t_struct, strParam3) == 60);
static_assert(sizeof(_TvServiceInfo_t_struct) == 44 && sizeof(_MMServiceInfo_t_struct) == 44);
static_assert(offsetof(_TvServiceInfo_t_struct, result) == 8 && offsetof(_TvServiceInfo_t_struct, uri) == 12);
static_assert(offsetof(_TvServiceInfo_t_struct, uuid) == 20 && offsetof(_TvServiceInfo_t_struct, uuidAncestor) == 28);
static_assert(offsetof(_TvServiceInfo_t_struct, reqId) == 36);

TvServiceReq_t fullRequest() {
    TvServiceReq_t request;
    request.terminal = {2, 7};
    request.intParam1 = 11;
    request.intParam2 = -12;
    request.intParam3 = 13;
    request.uri = "dvb://1.2.3";
    request.strParam1 = "one";
    request.uuid = "uuid-of-the-source";
    request.strParam2 = "two";
    request.strParamList = {"first", "", std::string("a\0b", 3)};
    request.reqId = "42";
    request.strParam3 = "three";
    request.strParam4 = "four";
    request.intParam4 = 0x7FFFFFFF;
    return request;
}

// A table as text: "size: offset:kind[:nested] ..."
std::string textOf(const vdl::EndianTable& table) {
    std::string text = std::to_string(table.size) + ":";
    const vdl::EndianEntry* entry = table.entries;
    for (; entry->arg.word != vdl::EndianEntry::terminator; ++entry) {
        text += " " + std::to_string(entry->offset) + "=";
        const auto* nested = entry->arg.table;
        if (entry->kind == vdl::EndianSequence) text += "seq";
        if (nested == &__vdl_EndianTable_vdlDeserString_t)
            text += "string";
        else if (nested == &__vdl_EndianTable_vdlDeserBlobString_t)
            text += "strings";
        else if (nested == &__vdl_EndianTable_serializable_TvServiceTerminal_t)
            text += "tvTerminal";
        else if (nested == &__vdl_EndianTable_serializable_MMServiceTerminal_t)
            text += "mmTerminal";
        else if (nested != nullptr)
            text += "(" + textOf(*nested) + ")";
        else
            text += std::to_string(entry->kind);
        if (nested != nullptr) {
            EXPECT_TRUE(entry->kind == vdl::EndianNested || entry->kind == vdl::EndianSequence);
        }
    }
    EXPECT_EQ(entry->offset, 0);
    EXPECT_EQ(entry->kind, 0);
    return text;
}

TEST(CoreRecords, HaveTablesThatListEveryField) {
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_TvServiceTerminal_t), "8: 0=4 4=4");
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_MMServiceTerminal_t), "8: 0=4 4=4");
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_TvServiceReq_t),
              "88: 0=tvTerminal 8=4 12=4 16=4 20=string 28=string 36=string 44=string 52=strings 60=string 68=string "
              "76=string 84=4");
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_MMServiceReq_t),
              "68: 0=mmTerminal 8=4 12=4 16=4 20=string 28=string 36=string 44=strings 52=string 60=string");
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_TvServiceInfo_t),
              "44: 0=tvTerminal 8=4 12=string 20=string 28=string 36=string");
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_MMServiceInfo_t),
              "44: 0=mmTerminal 8=4 12=string 20=string 28=string 36=string");
}

TEST(CoreMessages, CarryOneListBehindATableOfItsOwn) {
    const auto listOf = [](const vdl::EndianTable& record) { return "8: 0=(8: 0=seq(" + textOf(record) + "))"; };
    EXPECT_EQ(textOf(__vdl_EndianTable_tvserviceMsgTvServiceReq_t),
              listOf(__vdl_EndianTable_serializable_TvServiceReq_t));
    EXPECT_EQ(textOf(__vdl_EndianTable_tvserviceMsgTvServiceInfo_t),
              listOf(__vdl_EndianTable_serializable_TvServiceInfo_t));
    EXPECT_EQ(textOf(__vdl_EndianTable_mmserviceMsgMmServiceReq_t),
              listOf(__vdl_EndianTable_serializable_MMServiceReq_t));
    EXPECT_EQ(textOf(__vdl_EndianTable_mmserviceMsgMmServiceInfo_t),
              listOf(__vdl_EndianTable_serializable_MMServiceInfo_t));
}

TEST(CoreMessages, KeepTheirNumbers) {
    EXPECT_EQ(tvservice::messages::TvServiceReq::meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7773, 0x28671236, 0}));
    EXPECT_EQ(tvservice::messages::TvServiceInfo::meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7774, 0x28671247, 1}));
    EXPECT_EQ(mmservice::messages::MmServiceReq::meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7773, 0x28671236, 0}));
    EXPECT_EQ(mmservice::messages::MmServiceInfo::meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7774, 0x28671237, 1}));
}

TEST(CoreRecords, ShowEveryFieldByItsNameInOrder) {
    EXPECT_EQ(genrpc::toText(fullRequest()),
              R"(TvServiceReq_t {"terminal":{"type":2,"id":7},"intParam1":11,"intParam2":-12,"intParam3":13,)"
              R"("uri":"dvb://1.2.3","strParam1":"one","uuid":"uuid-of-the-source","strParam2":"two",)"
              R"("strParamList":["first","","a\u0000b"],"reqId":"42","strParam3":"three","strParam4":"four",)"
              R"("intParam4":2147483647})");
    EXPECT_EQ(genrpc::toText(TvServiceTerminal_t{1, 2}), R"(TvServiceTerminal_t {"type":1,"id":2})");
}

TEST(CoreRecords, AreEqualOnlyWhenEveryFieldIs) {
    const TvServiceReq_t request = fullRequest();
    EXPECT_EQ(request, fullRequest());
    TvServiceReq_t other = fullRequest();
    other.strParamList[1] = "x";
    EXPECT_NE(request, other);
    other = fullRequest();
    other.intParam4 = 0;
    EXPECT_NE(request, other);
}

TEST(FlatForm, GivesBackThePlainRecordThatItWasMadeOf) {
    const TvServiceReq_t request = fullRequest();
    _TvServiceReq_t_struct form(request);
    EXPECT_EQ(static_cast<TvServiceReq_t>(form), request);
    genrpc::release(form);
}

TEST(FlatForm, HoldsATerminatedCopyOfEachString) {
    const TvServiceReq_t request = fullRequest();
    _TvServiceReq_t_struct form(request);
    EXPECT_EQ(form.uri.length, request.uri.size());
    EXPECT_STREQ(form.uri.data, request.uri.c_str());
    EXPECT_EQ(form.strParamList.count, 3U);
    EXPECT_EQ(form.strParamList.data[1].length, 0U);
    EXPECT_STREQ(form.strParamList.data[1].data, "");
    EXPECT_EQ(std::string(form.strParamList.data[2].data, 4), std::string("a\0b\0", 4));
    genrpc::release(form);
}

TEST(FlatForm, OfAnEmptyListHasCountZeroAndNoArray) {
    TvServiceReq_t request;
    _TvServiceReq_t_struct form(request);
    EXPECT_EQ(form.strParamList.count, 0U);
    EXPECT_EQ(form.strParamList.data.get(), nullptr);
    EXPECT_TRUE(static_cast<TvServiceReq_t>(form).strParamList.empty());
    EXPECT_EQ(form.uri.length, 0U);
    EXPECT_STREQ(form.uri.data, "");
    genrpc::release(form);
}

TEST(FlatForm, ReadsAStringByItsLengthAndNotByItsTerminator) {
    char text[] = "eightchr";
    char* block = static_cast<char*>(vdlFlatAlloc(sizeof text));
    std::memcpy(block, text, sizeof text);
    _TvServiceInfo_t_struct form;
    form.terminal = TvServiceTerminal_t{};
    form.uri = {5, block};
    EXPECT_EQ(static_cast<TvServiceInfo_t>(form).uri, "eight");
    vdlFlatFree(block);
}

TEST(FlatForm, ReadsAStringWithoutABlockAsEmpty) {
    _TvServiceInfo_t_struct form;
    form.terminal = TvServiceTerminal_t{};
    form.uri = {9, nullptr};
    EXPECT_EQ(static_cast<TvServiceInfo_t>(form).uri, "");
}

TEST(FlatForm, IsZeroWhenDefaultConstructed) {
    _TvServiceInfo_t_struct form;
    EXPECT_EQ(form.result, 0);
    for (const vdlDeserString_t* string : {&form.uri, &form.uuid, &form.uuidAncestor, &form.reqId}) {
        EXPECT_EQ(string->length, 0U);
        EXPECT_EQ(string->data.get(), nullptr);
    }
}

TEST(FlatForm, LeavesItsTerminalUnsetUntilItIsAssigned) {
    unsigned char memory[sizeof(_TvServiceInfo_t_struct)];
    std::memset(memory, 0xAA, sizeof memory);
    asm volatile("" : : "r"(memory) : "memory"); // what the memory held before is looked at on purpose
    new (memory) _TvServiceInfo_t_struct;
    asm volatile("" : : "r"(memory) : "memory");
    EXPECT_EQ(std::string(reinterpret_cast<char*>(memory), 8), std::string(8, '\xAA'));
}

TEST(FlatForm, LetsGoOfItsStringListButNotOfItsStringsWhenAssignedAgain) {
    const TvServiceReq_t request = fullRequest();
    _TvServiceReq_t_struct form(request);
    const auto before = host::flatHeapUsage().blocks;
    char* const firstUri = form.uri.data;
    form = request;
    // Seven single strings twice over; the list's array and its three strings once.
    EXPECT_EQ(host::flatHeapUsage().blocks, before + 7);
    EXPECT_NE(form.uri.data.get(), firstUri);
    EXPECT_STREQ(firstUri, request.uri.c_str());
}

TEST(FlatForm, GivesEveryBlockBackWhenReleased) {
    const auto before = host::flatHeapUsage().blocks;
    _TvServiceReq_t_struct form(fullRequest());
    EXPECT_EQ(host::flatHeapUsage().blocks, before + 11);
    genrpc::release(form);
    EXPECT_EQ(host::flatHeapUsage().blocks, before);
}

template <class Message, class Record> void expectRoundTrip(const std::vector<Record>& records) {
    genrpc::FlatRegion* region = genrpc::FlatRegion::create(64);
    const host::Plan& plan = host::planOf(*Message::table());
    host::Bytes wire;
    host::marshal(plan, Message::Body::build(*region, records), wire, 1U << 20);
    genrpc::FlatRegion::release(region);
    char* received = static_cast<char*>(vdlFlatAlloc(wire.size()));
    std::memcpy(received, wire.data(), wire.size());
    ASSERT_STREQ(host::unmarshal(plan, received, wire.size(), false), nullptr);
    EXPECT_EQ(std::get<0>(Message::Body::read(received)), records);
    vdlFlatFree(received);
}

TEST(CoreMessages, ComeBackFromTheWireAsTheyWere) {
    expectRoundTrip<tvservice::messages::TvServiceReq>(std::vector{fullRequest(), TvServiceReq_t{}, fullRequest()});
    expectRoundTrip<tvservice::messages::TvServiceReq>(std::vector<TvServiceReq_t>{});
    expectRoundTrip<tvservice::messages::TvServiceInfo>(
        std::vector{TvServiceInfo_t{{1, 2}, -3, "uri", "uuid", "ancestor", "id"}});
    expectRoundTrip<mmservice::messages::MmServiceReq>(
        std::vector{MMServiceReq_t{{1, 2}, 3, 4, 5, "uri", "uuid", "two", {"a", "b"}, "id", "three"}});
    expectRoundTrip<mmservice::messages::MmServiceInfo>(
        std::vector{MMServiceInfo_t{{1, 2}, -3, "uri", "uuid", "ancestor", "id"}});
}

TEST(CoreMessages, HaveTheseBytesOnTheWire) {
    genrpc::FlatRegion* region = genrpc::FlatRegion::create(64);
    const std::vector infos{TvServiceInfo_t{{1, 2}, 3, "u", "", "an", "7"}};
    host::Bytes wire;
    host::marshal(host::planOf(*tvservice::messages::TvServiceInfo::table()),
                  tvservice::messages::TvServiceInfo::Body::build(*region, infos), wire, 4096);
    genrpc::FlatRegion::release(region);
    if constexpr (std::endian::native == std::endian::little) {
        const std::string expected(
            "\1\0\0\0\10\0\0\0"                  // one record at 8
            "\1\0\0\0\2\0\0\0\3\0\0\0"           // terminal, result
            "\1\0\0\0\64\0\0\0\0\0\0\0\66\0\0\0" // uri at 52, uuid at 54
            "\2\0\0\0\67\0\0\0\1\0\0\0\72\0\0\0" // uuidAncestor at 55, reqId at 58
            "u\0\0an\0"
            "7\0",
            60);
        EXPECT_EQ(std::string(wire.data(), wire.size()), expected);
    }
}

} // namespace
