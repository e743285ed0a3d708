#include "tvservice/emit.h"

#include <utility>

namespace services {

namespace {

constexpr std::pair<const char*, const char*> samples[] = {
    {"TvServiceInfo",
     R"({"infos":[{"terminal":{"type":0,"id":0},"result":0,"uri":"dvb://1.1.1","uuid":"sample","uuidAncestor":""}]})"},
    {"TvServiceConflictInfo", R"({"info":{"uintList1":[0],"uintList2":[1,2],"intParam1":30}})"},
    {"TvServiceSwapWinInfo", R"({"info":{"intParam1":1}})"},
    {"TvServiceStreamInfo", R"({"info":{"intParam1":1,"strParam1":"dvb://1.1.1 One, 1 video, 1 audio"}})"},
    {"TvServiceAudioInfo", R"({"info":{"terminal":{"type":0,"id":0},"intParam1":1,"streams":[
        {"intParam1":1,"strParam1":"eng","strParam2":"English","intParam2":1,"intParam3":2,"intParam4":48000,
         "shortParam1":272,"shortParam2":16,"flagParam1":true,"strParam3":"main","shortParam3":192,
         "strParam4":"dvb://1.1.1"}]}})"},
    {"TvServiceSubtitleInfo", R"({"info":{"terminal":{"type":0,"id":0},"intParam1":1,"streams":[
        {"intParam1":1,"strParam1":"eng","strParam2":"English","intParam2":1,"intParam3":16,"shortParam1":288,
         "shortParam2":1,"shortParam3":1,"flagParam1":true,"strParam3":"dvb://1.1.1"}]}})"},
    {"TvServiceVideoInfo", R"({"info":{"terminal":{"type":0,"id":0},"intParam1":1,"streams":[
        {"intParam1":1,"strParam1":"Main picture","intParam2":2,"shortParam1":256,"shortParam2":50,"flagParam1":true,
         "shortParam3":1920,"shortParam4":1080}],"intParam4":1920,"intParam5":1080}})"},
    {"TvServiceTeletextInfo", R"({"info":{"terminal":{"type":0,"id":0},"intParam1":1,"streams":[
        {"intParam1":1,"strParam1":"eng","shortParam1":304}]}})"},
    {"TvServiceAskReleaseInfo", R"({"info":{"intParam1":1,"byteParam1":1}})"},
    {"TvServiceAskReleaseConf", R"({"confirmation":{"intParam1":1,"byteParam1":1}})"},
    {"TvServiceStatusInfo", R"({"info":{"intParam1":1,"services":[
        {"byteParam1":1,"intParam3":1,"intParam4":1,"intParam5":1,"intParam6":1,"strParam1":"dvb://1.1.1"},
        {"intParam1":1,"shortParam1":16,"byteParam2":1}]}})"},
    {"TvServiceNetworkChangeMsg", R"({"message":{"byteParam1":1,"strParam1":"cable"}})"},
    {"TvServiceTunerResult",
     R"({"result":{"byteParam1":1,"terminal":{"type":0,"id":0},"intParam2":78,"intParam3":96}})"},
    {"TvServiceTunerStatusMessage", R"({"message":{"byteParam1":1,"terminal":{"type":0,"id":0},"intParam2":482000,
        "intParam3":6875,"intParam4":1}})"},
    {"TvServiceBroadcastApplictionInfo", R"({"application":1})"},
    {"TvServiceUriLinkageInfo", R"({"infos":[{"byteParam1":1,"strParam1":"dvb://1.1.1","strParam2":"dvb://1.1.2"}]})"},
    {"TvServiceCiAncillaryDataInfo", R"({"info":{"strParamList":["Subscription","valid"],"strParam1":"Module 1"}})"},
    {"TvServiceInstalledInfo", R"({"info":{"byteParam1":100}})"},
    {"TvServicePlayInfo", R"({"info":{"strParam1":"dvb://1.1.1"}})"},
    {"TvServiceFoundNewOadPacket", R"({"packet":1})"},
    {"TvServiceCiSasMessageInfo", R"({"info":{"intParam1":1,"byteParam1":1}})"},
    {"TvServiceCcInfoNotify", R"({"info":{"intParam1":1}})"},
    {"TvServiceMtsAudioTrackInfoNotify", R"({"track":1})"},
    {"TvserviceOadStatusNotify", R"({"status":1,"text":"type 1: firmware"})"},
    {"TvserviceOadProgressNotify", R"({"progress":50})"},
};

} // namespace

const char* sampleOf(const std::string& notification) {
    for (const auto& [name, json] : samples)
        if (notification == name) return json;
    return nullptr;
}

} // namespace services
