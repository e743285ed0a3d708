// The records of status and negotiation: layouts, tables and special cases.
#include "support/layouts.h"
#include "support/wire.h"

#include <host/marshaller.h>

#include <cstring>
#include <gtest/gtest.h>
#include <schema/samples.h>
#include <string>
#include <vector>

using namespace tvservice;
using support::hasLayout;
using support::textOf;

namespace {

// ---- layouts ----

static_assert(hasLayout<TvServiceSwapWinReq_t>(4, {{"intParam1", 0}}));
static_assert(hasLayout<TvServiceAskReleaseReq_t>(4, {{"intParam1", 0}}));
static_assert(hasLayout<TvServiceSListChangedInd_t>(4, {{"intParam1", 0}}));
static_assert(hasLayout<TvServiceTryRunRequestParams_t>(4, {{"intParam1", 0}}));
static_assert(hasLayout<TvServiceParentalLockInfo_t>(16, {{"terminal", 0}, {"intParam1", 8}, {"intParam2", 12}}));
static_assert(hasLayout<TvServiceSwapWinInfo_t>(4, {{"intParam1", 0}}));
static_assert(hasLayout<TvServiceAskReleaseInfo_t>(5, {{"intParam1", 0}, {"byteParam1", 4}}));
static_assert(hasLayout<TvServiceAskReleaseConf_t>(5, {{"intParam1", 0}, {"byteParam1", 4}}));
static_assert(hasLayout<ServiceStatusInfo_t>(36, {{"intParam1", 0},
                                                  {"byteParam1", 4},
                                                  {"intParam2", 5},
                                                  {"intParam3", 9},
                                                  {"intParam4", 13},
                                                  {"intParam5", 17},
                                                  {"intParam6", 21},
                                                  {"shortParam1", 25},
                                                  {"strParam1", 27},
                                                  {"byteParam2", 35}}));
static_assert(hasLayout<TvServiceStatusInfo_t>(12, {{"intParam1", 0}, {"services", 4}}));
static_assert(hasLayout<TvServiceNetworkChangeMessage_t>(9, {{"byteParam1", 0}, {"strParam1", 1}}));
static_assert(hasLayout<TvServiceTunerResult_t>(
    21, {{"byteParam1", 0}, {"intParam1", 1}, {"terminal", 5}, {"intParam2", 13}, {"intParam3", 17}}));
static_assert(hasLayout<TvServiceTunerStatusMessage_t>(
    25,
    {{"byteParam1", 0}, {"intParam1", 1}, {"terminal", 5}, {"intParam2", 13}, {"intParam3", 17}, {"intParam4", 21}}));
static_assert(hasLayout<TvServiceUriLinkageInfo_t>(17, {{"byteParam1", 0}, {"strParam1", 1}, {"strParam2", 9}}));
static_assert(hasLayout<TvServiceCiAncillaryDataInfo_t>(16, {{"strParamList", 0}, {"strParam1", 8}}));
static_assert(hasLayout<TvServiceInstalledInfo_t>(1, {{"byteParam1", 0}}));
static_assert(hasLayout<TvServicePlayInfo_t>(8, {{"strParam1", 0}}));
static_assert(hasLayout<TvServiceCiCasMessageInfo_t>(5, {{"intParam1", 0}, {"byteParam1", 4}}));
static_assert(hasLayout<TvServiceCcInfo_t>(4, {{"intParam1", 0}}));
static_assert(hasLayout<TvServiceTryRunReply_t>(4, {{"intParam1", 0}}));
static_assert(hasLayout<TvServiceOpappInfo_t>(4, {{"intParam1", 0}}));

static_assert(sizeof(TvServiceCasServiceType_t) == 4 && sizeof(reqeustOadType_t) == 4 &&
              sizeof(NotifyOadStatus_t) == 4);

TEST(StatusRecords, HaveTablesThatListEveryField) {
    const auto tableOf = []<class Record>(Record) { return textOf(*Record::Flat::table()); };
    EXPECT_EQ(tableOf(TvServiceSwapWinReq_t{}), "4: 0=4");
    EXPECT_EQ(tableOf(TvServiceAskReleaseReq_t{}), "4: 0=4");
    EXPECT_EQ(tableOf(TvServiceSListChangedInd_t{}), "4: 0=4");
    EXPECT_EQ(tableOf(TvServiceTryRunRequestParams_t{}), "4: 0=4");
    EXPECT_EQ(tableOf(TvServiceParentalLockInfo_t{}), "16: 0=TvServiceTerminal_t 8=4 12=4");
    EXPECT_EQ(tableOf(TvServiceSwapWinInfo_t{}), "4: 0=4");
    EXPECT_EQ(tableOf(TvServiceAskReleaseInfo_t{}), "5: 0=4 4=1");
    EXPECT_EQ(tableOf(TvServiceAskReleaseConf_t{}), "5: 0=4 4=1");
    EXPECT_EQ(tableOf(ServiceStatusInfo_t{}), "36: 0=4 4=1 5=4 9=4 13=4 17=4 21=4 25=2 27=string 35=1");
    EXPECT_EQ(tableOf(TvServiceStatusInfo_t{}), "12: 0=4 4=[ServiceStatusInfo_t]");
    EXPECT_EQ(tableOf(TvServiceNetworkChangeMessage_t{}), "9: 0=1 1=string");
    EXPECT_EQ(tableOf(TvServiceTunerResult_t{}), "21: 0=1 1=4 5=TvServiceTerminal_t 13=4 17=4");
    EXPECT_EQ(tableOf(TvServiceTunerStatusMessage_t{}), "25: 0=1 1=4 5=TvServiceTerminal_t 13=4 17=4 21=4");
    EXPECT_EQ(tableOf(TvServiceUriLinkageInfo_t{}), "17: 0=1 1=string 9=string");
    EXPECT_EQ(tableOf(TvServiceCiAncillaryDataInfo_t{}), "16: 0=strings 8=string");
    EXPECT_EQ(tableOf(TvServiceInstalledInfo_t{}), "1: 0=1");
    EXPECT_EQ(tableOf(TvServicePlayInfo_t{}), "8: 0=string");
    EXPECT_EQ(tableOf(TvServiceCiCasMessageInfo_t{}), "5: 0=4 4=1");
    EXPECT_EQ(tableOf(TvServiceCcInfo_t{}), "4: 0=4");
    EXPECT_EQ(tableOf(TvServiceTryRunReply_t{}), "4: 0=4");
    EXPECT_EQ(tableOf(TvServiceOpappInfo_t{}), "4: 0=4");
}

// ---- conversions ----

TEST(StatusForm, IsZeroWhereverItIsConstructed) {
    support::forEach(support::TypeList<ServiceStatusInfo_t, TvServiceStatusInfo_t>{}, []<class Record>() {
        using Form = typename Record::Flat;
        unsigned char memory[sizeof(Form)];
        std::memset(memory, 0xAA, sizeof memory);
        asm volatile("" : : "r"(memory) : "memory"); // the previous content of the memory is read on purpose
        new (memory) Form;
        asm volatile("" : : "r"(memory) : "memory");
        EXPECT_EQ(std::string(reinterpret_cast<char*>(memory), sizeof memory), std::string(sizeof memory, '\0'));
    });
}

template <class T> T at(const void* form, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const char*>(form) + offset, sizeof value);
    return value;
}

TEST(StatusRecords, SurviveEncodingAndDecodingInEitherByteOrder) {
    support::forEach(support::StatusRecords{}, []<class Record>() {
        const auto sample = schema::Samples().next<Record>();
        for (const bool otherOrder : {false, true}) {
            EXPECT_EQ(support::roundTripped(sample, otherOrder), sample);
            EXPECT_EQ(support::roundTripped(Record{}, otherOrder), Record{});
        }
    });
}

TEST(StatusByte, IsSentUnchanged) {
    for (const int value : {0, 1, 2, 0x80, 0xFF}) {
        const auto byte = static_cast<std::uint8_t>(value);
        EXPECT_EQ(support::roundTripped(TvServiceInstalledInfo_t{byte}, true).byteParam1, byte);
        EXPECT_EQ(support::roundTripped(TvServiceAskReleaseInfo_t{-1, byte}, true).byteParam1, byte);
        EXPECT_EQ(support::roundTripped(TvServiceNetworkChangeMessage_t{byte, "net"}, false).byteParam1, byte);
        ServiceStatusInfo_t status;
        status.byteParam2 = byte;
        EXPECT_EQ(support::roundTripped(status, false), status);
    }
}

TEST(TunerResult, HasItsTerminalAndItsNumbersAtOddOffsets) {
    const _TvServiceTunerResult_t_struct form(
        TvServiceTunerResult_t{0xFF, 0x11121314, {0x21222324, 0x31323334}, -2, -3});
    EXPECT_EQ(sizeof form, 21U);
    EXPECT_EQ(at<std::uint8_t>(&form, 0), 0xFF);
    EXPECT_EQ(at<std::int32_t>(&form, 1), 0x11121314);
    EXPECT_EQ(at<std::int32_t>(&form, 5), 0x21222324);
    EXPECT_EQ(at<std::int32_t>(&form, 9), 0x31323334);
    EXPECT_EQ(at<std::int32_t>(&form, 13), -2);
    EXPECT_EQ(at<std::int32_t>(&form, 17), -3);
}

TEST(ServiceStatus, HasItsFieldsWithoutGaps) {
    _ServiceStatusInfo_t_struct form(ServiceStatusInfo_t{1, 2, 3, 4, 5, 6, 7, 0xABCD, "name", 9});
    EXPECT_EQ(at<std::uint8_t>(&form, 4), 2);
    EXPECT_EQ(at<std::int32_t>(&form, 5), 3);
    EXPECT_EQ(at<std::int32_t>(&form, 21), 7);
    EXPECT_EQ(at<std::uint16_t>(&form, 25), 0xABCD);
    EXPECT_EQ(at<std::uint32_t>(&form, 27), 4U);
    EXPECT_EQ(at<std::uint8_t>(&form, 35), 9);
    genrpc::release(form);
}

TEST(StatusList, IsSentAsCountZeroWithoutAnArrayWhenEmpty) {
    _TvServiceStatusInfo_t_struct form(TvServiceStatusInfo_t{5, {}});
    EXPECT_EQ(form.services.count, 0U);
    EXPECT_EQ(form.services.data.get(), nullptr);
    EXPECT_EQ(support::marshalled(*form.table(), &form).size(), 12U);
    EXPECT_TRUE(static_cast<TvServiceStatusInfo_t>(form).services.empty());
}

TEST(StatusList, HasSeventyTwoBytesOfElementsForTwoServices) {
    TvServiceStatusInfo_t info;
    info.services.resize(2);
    _TvServiceStatusInfo_t_struct form(info);
    EXPECT_EQ(reinterpret_cast<char*>(&form.services.data[2]) - reinterpret_cast<char*>(&form.services.data[0]), 72);
    EXPECT_EQ(support::marshalled(*form.table(), &form).size(), 12U + 72U + 2U) << "and a terminator for each name";
    genrpc::release(form);
}

TEST(InstalledInfo, IsOneByteOnTheWire) {
    const _TvServiceInstalledInfo_t_struct form(TvServiceInstalledInfo_t{0xFF});
    EXPECT_EQ(support::marshalled(*form.table(), &form), "\xFF");
}

TEST(CiAncillaryData, IsSentWithCountZeroWithoutStrings) {
    _TvServiceCiAncillaryDataInfo_t_struct form(TvServiceCiAncillaryDataInfo_t{{}, "text"});
    EXPECT_EQ(form.strParamList.count, 0U);
    EXPECT_EQ(form.strParamList.data.get(), nullptr);
    EXPECT_TRUE(static_cast<TvServiceCiAncillaryDataInfo_t>(form).strParamList.empty());
    genrpc::release(form);
}

TEST(StatusString, IsSentAsLengthZeroAndATerminatorWhenEmpty) {
    _TvServicePlayInfo_t_struct form(TvServicePlayInfo_t{});
    EXPECT_EQ(form.strParam1.length, 0U);
    EXPECT_STREQ(form.strParam1.data, "");
    EXPECT_EQ(support::marshalled(*form.table(), &form).size(), 8U + 1U);
    genrpc::release(form);
}

// The number of additional blocks that a form holds after a second assignment.
template <class Record> std::uint64_t keptByAssignment() {
    const auto sample = schema::Samples().next<Record>();
    typename Record::Flat form(sample);
    const auto before = host::flatHeapUsage().blocks;
    form = sample;
    const auto kept = host::flatHeapUsage().blocks - before;
    EXPECT_EQ(static_cast<Record>(form), sample);
    genrpc::release(form);
    return kept;
}

TEST(StatusRecords, ReleaseTheirStringListsButNothingElseWhenAssignedAgain) {
    EXPECT_EQ(keptByAssignment<TvServiceCiAncillaryDataInfo_t>(), 1U) << "the string, not the list";
    EXPECT_EQ(keptByAssignment<TvServiceUriLinkageInfo_t>(), 2U);
    EXPECT_EQ(keptByAssignment<TvServiceNetworkChangeMessage_t>(), 1U);
    EXPECT_EQ(keptByAssignment<TvServiceTunerResult_t>(), 0U);
}

TEST(StatusRecords, FreeEveryBlockWhenReleased) {
    support::forEach(support::StatusRecords{}, []<class Record>() {
        const auto before = host::flatHeapUsage().blocks;
        typename Record::Flat form(schema::Samples().next<Record>());
        genrpc::release(form);
        EXPECT_EQ(host::flatHeapUsage().blocks, before);
    });
}

} // namespace
