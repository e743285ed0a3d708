// An application that shows a channel on the main terminal and prints the result.
#include <frame/abstract-application.h>
#include <frame/process.h>
#include <tvservice-adapter/model-tvservice-adapter.h>
#include <tvservice/client-base.h>

#include <boost/make_shared.hpp>
#include <cstdio>
#include <cstdlib>

class Viewer : public tvservice::ClientBase {
    int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override {
        for (const auto& info : infos) std::fprintf(stderr, "%s: result %d\n", info.uri.c_str(), info.result);
        return 0;
    }
};

class MinimalApplication : public frame::AbstractApplication {
    int performStarting() override {
        boost::shared_ptr<frame::Interface> reference;
        const int result = frame::Process::getInstance()->getInterfaceReference(
            reference, tvservice::ModelTvServiceAdapter::interfaceKey);
        if (result < 0) return result; // the adapter's library must be loaded first
        auto* adapter = reference->get<tvservice::ModelTvServiceAdapter>();
        adapter->addClient(boost::make_shared<Viewer>());
        tvservice::TvServiceReq_t request; // terminal 0:0
        request.uri = "dvb://1.1.1";
        frame::MsgIds ids;
        return adapter->tvServiceReq(ids, frame::TransportInfo{}, {request});
    }
};

extern "C" __attribute__((visibility("default"))) void** frameCreateApplicationArray() {
    void** members = static_cast<void**>(std::calloc(2, sizeof(void*)));
    members[0] = static_cast<frame::AbstractProcessMember*>(new MinimalApplication);
    return members;
}
