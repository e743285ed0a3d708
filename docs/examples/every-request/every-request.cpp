// An application that makes each of the adapter's requests once and prints the notifications that it receives.
#include <frame/abstract-application.h>
#include <frame/process.h>
#include <tvservice-adapter/model-tvservice-adapter.h>
#include <tvservice/client-base.h>

#include <boost/make_shared.hpp>
#include <cstdio>
#include <cstdlib>

namespace {

class Listener : public tvservice::ClientBase {
    int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override {
        for (const auto& info : infos)
            std::fprintf(stderr, "terminal %d:%d: %s, result %d\n", info.terminal.type, info.terminal.id,
                         info.uri.c_str(), info.result);
        return 0;
    }
    int tvServiceAudioInfo(frame::MsgIds&, const frame::TransportInfo&,
                           const tvservice::TvServiceAudioInfo_t& info) override {
        std::fprintf(stderr, "terminal %d:%d has %zu audio streams\n", info.terminal.type, info.terminal.id,
                     info.streams.size());
        return 0;
    }
    int tvserviceOadProgressNotify(frame::MsgIds&, const frame::TransportInfo&, std::int32_t progress) override {
        std::fprintf(stderr, "download: %d %%\n", progress);
        return 0;
    }
};

class EveryRequest : public frame::AbstractApplication {
    int performStarting() override {
        boost::shared_ptr<frame::Interface> reference;
        const int result = frame::Process::getInstance()->getInterfaceReference(
            reference, tvservice::ModelTvServiceAdapter::interfaceKey);
        if (result < 0) return result; // the adapter's library must be loaded first
        auto& adapter = *reference->get<tvservice::ModelTvServiceAdapter>();
        adapter.addClient(boost::make_shared<Listener>());

        using namespace tvservice;
        const TvServiceTerminal_t main{0, 0};
        frame::MsgIds ids;
        const frame::TransportInfo here;

        TvServiceReq_t play;
        play.terminal = main;
        play.uri = "dvb://1.1.1";
        const int results[] = {
            // begin generated: requests
            adapter.tvServiceReq(ids, here, {play}),
            adapter.tvServiceSwapWinReq(ids, here, {.intParam1 = 1}),
            adapter.tvServiceStreamInfoReq(ids, here, {.intParam1 = 1}),
            adapter.tvServiceAudioReq(ids, here, {.terminal = main, .intParam1 = 1}),
            adapter.tvServiceSubtitleReq(ids, here, {.terminal = main, .intParam1 = 1}),
            adapter.tvServiceVideoReq(ids, here, {.terminal = main, .intParam1 = 0}),
            adapter.tvServiceTeletextReq(ids, here, {.terminal = main, .intParam1 = 0}),
            adapter.tvServiceInfoReq(ids, here),
            adapter.tvServiceAskReleaseReq(ids, here, {.intParam1 = 1}),
            adapter.tvServiceSendKeyReq(ids, here, "red"),
            adapter.tvServiceSListChangedInd(ids, here, {.intParam1 = 1}),
            adapter.tvServiceTryRunReq(ids, here, {.intParam1 = 1}),
            adapter.setParentalLockInfo(ids, here, {.terminal = main, .intParam1 = 0}),
            adapter.mtsAudioChangeReq(ids, here, MtsAudioTrack_t{1}),
            adapter.setCasService(ids, here, TvServiceCasServiceType_t{1}),
            adapter.requestPackagesReq(ids, here, reqeustOadType_t{0}, "firmware"),
            adapter.tvServiceSourceChanged(ids, here, "antenna"),
            // end generated
        };
        for (const int each : results)
            if (each < 0) return each;
        std::fprintf(stderr, "%zu requests are queued\n", std::size(results));
        return 0;
    }
};

} // namespace

extern "C" __attribute__((visibility("default"))) void** frameCreateApplicationArray() {
    void** members = static_cast<void**>(std::calloc(2, sizeof(void*)));
    members[0] = static_cast<frame::AbstractProcessMember*>(new EveryRequest);
    return members;
}
