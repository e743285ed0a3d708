// The core records: their exact layouts, tables and the four operations of their flat forms. Also the composition of
// all messages.
#include "support/layouts.h"
#include "support/wire.h"

#include <genrpc/json.h>
#include <host/marshaller.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <schema/samples.h>
#include <string>
#include <vector>

using namespace tvservice;
using namespace mmservice;
using support::hasLayout;
using support::textOf;

namespace {

static_assert(hasLayout<TvServiceTerminal_t>(8, {{"type", 0}, {"id", 4}}));
static_assert(hasLayout<MMServiceTerminal_t>(8, {{"type", 0}, {"id", 4}}));
static_assert(hasLayout<TvServiceReq_t>(88, {{"terminal", 0},
                                             {"intParam1", 8},
                                             {"intParam2", 12},
                                             {"intParam3", 16},
                                             {"uri", 20},
                                             {"strParam1", 28},
                                             {"uuid", 36},
                                             {"strParam2", 44},
                                             {"strParamList", 52},
                                             {"reqId", 60},
                                             {"strParam3", 68},
                                             {"strParam4", 76},
                                             {"intParam4", 84}}));
static_assert(hasLayout<MMServiceReq_t>(68, {{"terminal", 0},
                                             {"intParam1", 8},
                                             {"intParam2", 12},
                                             {"intParam3", 16},
                                             {"uri", 20},
                                             {"uuid", 28},
                                             {"strParam2", 36},
                                             {"strParamList", 44},
                                             {"reqId", 52},
                                             {"strParam3", 60}}));
static_assert(hasLayout<TvServiceInfo_t>(
    44, {{"terminal", 0}, {"result", 8}, {"uri", 12}, {"uuid", 20}, {"uuidAncestor", 28}, {"reqId", 36}}));
static_assert(hasLayout<MMServiceInfo_t>(
    44, {{"terminal", 0}, {"result", 8}, {"uri", 12}, {"uuid", 20}, {"uuidAncestor", 28}, {"reqId", 36}}));

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

TEST(CoreRecords, HaveTablesThatListEveryField) {
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_TvServiceTerminal_t), "8: 0=4 4=4");
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_MMServiceTerminal_t), "8: 0=4 4=4");
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_TvServiceReq_t),
              "88: 0=TvServiceTerminal_t 8=4 12=4 16=4 20=string 28=string 36=string 44=string 52=strings 60=string "
              "68=string "
              "76=string 84=4");
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_MMServiceReq_t),
              "68: 0=MMServiceTerminal_t 8=4 12=4 16=4 20=string 28=string 36=string 44=strings 52=string 60=string");
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_TvServiceInfo_t),
              "44: 0=TvServiceTerminal_t 8=4 12=string 20=string 28=string 36=string");
    EXPECT_EQ(textOf(__vdl_EndianTable_serializable_MMServiceInfo_t),
              "44: 0=MMServiceTerminal_t 8=4 12=string 20=string 28=string 36=string");
}

TEST(CoreRecords, ShowEveryFieldByItsNameInOrder) {
    EXPECT_EQ(genrpc::toText(fullRequest()),
              R"(TvServiceReq_t {"terminal":{"type":2,"id":7},"intParam1":11,"intParam2":-12,"intParam3":13,)"
              R"("uri":"dvb://1.2.3","strParam1":"one","uuid":"uuid-of-the-source","strParam2":"two",)"
              R"("strParamList":["first","","a\u0000b"],"reqId":"42","strParam3":"three","strParam4":"four",)"
              R"("intParam4":2147483647})");
    EXPECT_EQ(genrpc::toText(TvServiceTerminal_t{1, 2}), R"(TvServiceTerminal_t {"type":1,"id":2})");
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
    asm volatile("" : : "r"(memory) : "memory"); // the previous content of the memory is read on purpose
    new (memory) _TvServiceInfo_t_struct;
    asm volatile("" : : "r"(memory) : "memory");
    EXPECT_EQ(std::string(reinterpret_cast<char*>(memory), 8), std::string(8, '\xAA'));
}

TEST(FlatForm, ReleasesItsStringListButNotItsStringsWhenAssignedAgain) {
    const TvServiceReq_t request = fullRequest();
    _TvServiceReq_t_struct form(request);
    const auto before = host::flatHeapUsage().blocks;
    char* const firstUri = form.uri.data;
    form = request;
    // The seven single strings are allocated twice; the list's array and its three strings once.
    EXPECT_EQ(host::flatHeapUsage().blocks, before + 7);
    EXPECT_NE(form.uri.data.get(), firstUri);
    EXPECT_STREQ(firstUri, request.uri.c_str());
}

TEST(FlatForm, FreesEveryBlockWhenReleased) {
    const auto before = host::flatHeapUsage().blocks;
    _TvServiceReq_t_struct form(fullRequest());
    EXPECT_EQ(host::flatHeapUsage().blocks, before + 11);
    genrpc::release(form);
    EXPECT_EQ(host::flatHeapUsage().blocks, before);
}

TEST(FlatForm, ReadsListsWithoutAnArrayAsEmpty) {
    _TvServiceReq_t_struct form(TvServiceReq_t{});
    form.strParamList = {3, nullptr};
    EXPECT_TRUE(static_cast<TvServiceReq_t>(form).strParamList.empty());
    genrpc::release(form);
}

TEST(CoreRecords, SurviveEncodingAndDecodingInEitherByteOrder) {
    support::forEach(support::CoreRecords{}, []<class Record>() {
        const auto sample = schema::Samples().next<Record>();
        for (const bool otherOrder : {false, true}) {
            EXPECT_EQ(support::roundTripped(sample, otherOrder), sample);
            EXPECT_EQ(support::roundTripped(Record{}, otherOrder), Record{});
        }
    });
}

// ---- all messages of both services ----

template <class Message> std::string describe() {
    char id[16];
    std::snprintf(id, sizeof id, "%08X", Message::meta.messageId);
    return std::string(id) + " " + Message::name + " " + textOf(*Message::table());
}

TEST(Messages, HaveTheseIdsAndBodies) {
    std::vector<std::string> messages;
    support::forEach(support::AllMessages{}, [&]<class Message>() { messages.push_back(describe<Message>()); });
    const std::vector<std::string> expected{
        // begin generated: messages
        "28671236 TvServiceReq 8: 0=(8: 0=[TvServiceReq_t])",
        "28671237 TvServiceSwapWinReq 4: 0=TvServiceSwapWinReq_t",
        "28671238 TvServiceStreamInfoReq 4: 0=TvServiceStreamInfoReq_t",
        "28671239 TvServiceAudioReq 16: 0=TvServiceAudioReq_t",
        "2867123A TvServiceSubtitleReq 16: 0=TvServiceSubtitleReq_t",
        "2867123B TvServiceVideoReq 16: 0=TvServiceVideoReq_t",
        "2867123C TvServiceTeletextReq 16: 0=TvServiceTeletextReq_t",
        "2867123D TvServiceInfoReq 1:",
        "2867123E TvServiceAskReleaseReq 4: 0=TvServiceAskReleaseReq_t",
        "2867123F TvServiceSendKeyReq 8: 0=string",
        "28671240 TvServiceSListChangedInd 4: 0=TvServiceSListChangedInd_t",
        "28671241 TvServiceTryRunReq 4: 0=TvServiceTryRunRequestParams_t",
        "28671242 SetParentalLockInfo 16: 0=TvServiceParentalLockInfo_t",
        "28671243 MtsAudioChangeReq 4: 0=4",
        "28671244 SetCasService 4: 0=4",
        "28671245 RequestPackagesReq 12: 0=4 4=string",
        "28671246 TvServiceSourceChanged 8: 0=string",
        "28671247 TvServiceInfo 8: 0=(8: 0=[TvServiceInfo_t])",
        "28671248 TvServiceConflictInfo 20: 0=TvServiceConflictInfo_t",
        "28671249 TvServiceSwapWinInfo 4: 0=TvServiceSwapWinInfo_t",
        "2867124A TvServiceStreamInfo 12: 0=TvServiceStreamInfo_t",
        "2867124B TvServiceAudioInfo 28: 0=TvServiceAudioInfo_t",
        "2867124C TvServiceSubtitleInfo 28: 0=TvServiceSubtitleInfo_t",
        "2867124D TvServiceVideoInfo 36: 0=TvServiceVideoInfo_t",
        "2867124E TvServiceTeletextInfo 24: 0=TvServiceTeletextInfo_t",
        "2867124F TvServiceAskReleaseInfo 5: 0=TvServiceAskReleaseInfo_t",
        "28671250 TvServiceAskReleaseConf 5: 0=TvServiceAskReleaseConf_t",
        "28671251 TvServiceStatusInfo 12: 0=TvServiceStatusInfo_t",
        "28671252 TvServiceNetworkChangeMsg 9: 0=TvServiceNetworkChangeMessage_t",
        "28671253 TvServiceTunerResult 21: 0=TvServiceTunerResult_t",
        "28671254 TvServiceTunerStatusMessage 25: 0=TvServiceTunerStatusMessage_t",
        "28671255 TvServiceBroadcastApplictionInfo 4: 0=4",
        "28671256 TvServiceUriLinkageInfo 8: 0=(8: 0=[TvServiceUriLinkageInfo_t])",
        "28671257 TvServiceCiAncillaryDataInfo 16: 0=TvServiceCiAncillaryDataInfo_t",
        "28671258 TvServiceInstalledInfo 1: 0=TvServiceInstalledInfo_t",
        "28671259 TvServicePlayInfo 8: 0=TvServicePlayInfo_t",
        "2867125A TvServiceFoundNewOadPacket 4: 0=4",
        "2867125B TvServiceCiSasMessageInfo 5: 0=TvServiceCiCasMessageInfo_t",
        "2867125C TvServiceCcInfoNotify 4: 0=TvServiceCcInfo_t",
        "2867125D TvServiceMtsAudioTrackInfoNotify 4: 0=4",
        "2867125E TvserviceOadStatusNotify 12: 0=4 4=string",
        "2867125F TvserviceOadProgressNotify 4: 0=4",
        "28671236 MmServiceReq 8: 0=(8: 0=[MMServiceReq_t])",
        "28671237 MmServiceInfo 8: 0=(8: 0=[MMServiceInfo_t])",
        // end generated
    };
    EXPECT_EQ(messages, expected);
}

TEST(Messages, AreListedUnderTheirDirection) {
    const auto expectRequest = []<class Message>() {
        EXPECT_EQ(Message::meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7773, Message::meta.messageId, 0}));
    };
    const auto expectNotification = []<class Message>() {
        EXPECT_EQ(Message::meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7774, Message::meta.messageId, 1}));
    };
    support::forEach(support::TvRequests{}, expectRequest);
    support::forEach(support::TvNotifications{}, expectNotification);
    expectRequest.operator()<mmservice::messages::MmServiceReq>();
    expectNotification.operator()<mmservice::messages::MmServiceInfo>();
}

TEST(Messages, SurviveEncodingAndDecodingInEitherByteOrder) {
    support::forEach(support::AllMessages{}, []<class Message>() {
        using Arguments = typename Message::Body::Arguments;
        const auto sample = schema::Samples().next<Arguments>();
        for (const bool otherOrder : {false, true}) {
            EXPECT_EQ(support::roundTripped<Message>(sample, otherOrder), sample);
            EXPECT_EQ(support::roundTripped<Message>(Arguments{}, otherOrder), Arguments{});
        }
    });
}

template <class Message, class Enum> void expectEveryValueSurvives() {
    for (const int value : {-1, INT_MIN, INT_MAX, 0, 99}) {
        typename Message::Body::Arguments arguments;
        std::get<Enum>(arguments) = static_cast<Enum>(value);
        EXPECT_EQ(support::roundTripped<Message>(arguments, false), arguments) << value;
        EXPECT_EQ(support::roundTripped<Message>(arguments, true), arguments) << value;
    }
}

TEST(Messages, PreserveUnknownEnumerators) {
    expectEveryValueSurvives<tvservice::messages::MtsAudioChangeReq, MtsAudioTrack_t>();
    expectEveryValueSurvives<tvservice::messages::TvServiceMtsAudioTrackInfoNotify, MtsAudioTrack_t>();
    expectEveryValueSurvives<tvservice::messages::SetCasService, TvServiceCasServiceType_t>();
    expectEveryValueSurvives<tvservice::messages::RequestPackagesReq, reqeustOadType_t>();
    expectEveryValueSurvives<tvservice::messages::TvserviceOadStatusNotify, NotifyOadStatus_t>();
}

} // namespace
