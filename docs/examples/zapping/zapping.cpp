// An application that zaps through twenty channels faster than a receiver can tune, then stops.
#include <frame/abstract-application.h>
#include <frame/process.h>
#include <tvservice-adapter/zapper.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

class Zapping : public frame::AbstractApplication {
    int performStarting() override {
        boost::shared_ptr<frame::Interface> reference;
        const int result = frame::Process::getInstance()->getInterfaceReference(
            reference, tvservice::ModelTvServiceAdapter::interfaceKey);
        if (result < 0) return result; // the adapter's library must be loaded first
        zapper_ = std::make_unique<tvservice::Zapper>(*reference->get<tvservice::ModelTvServiceAdapter>(), report);

        tvservice::TvServiceReq_t request; // terminal 0:0
        for (int channel = 1; channel <= 20; ++channel) {
            request.uri = "dvb://1.1." + std::to_string(channel);
            zapper_->want(request);
        }
        return zapper_->stop({1, 0}); // the newest request of another terminal
    }
    int performStopping() override {
        zapper_.reset();
        return frame::AbstractApplication::performStopping();
    }

    static void report(const tvservice::ZapOutcome& outcome) {
        using Kind = tvservice::ZapOutcome::Kind;
        if (outcome.kind == Kind::answered)
            std::fprintf(stderr, "%s: result %d\n", outcome.request.uri.c_str(), outcome.result);
        else if (outcome.kind != Kind::replaced)
            std::fprintf(stderr, "%s: no answer\n", outcome.request.uri.c_str());
    }

    std::unique_ptr<tvservice::Zapper> zapper_;
};

extern "C" __attribute__((visibility("default"))) void** frameCreateApplicationArray() {
    void** members = static_cast<void**>(std::calloc(2, sizeof(void*)));
    members[0] = static_cast<frame::AbstractProcessMember*>(new Zapping);
    return members;
}
