#include "framework.h"

#include "common/interleaved.h"
#include "proxy-client.h"
#include "timed-event.h"

#include <frame/io-statistics.h>
#include <frame/process.h>
#include <host/receiver.h>
#include <tvservice-adapter/model-tvservice-adapter.h>
#include <tvservice/client-base.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <exception>
#include <stdexcept>
#include <thread>

extern "C" void** frameCreateApplicationArray(); // the library's entry point

namespace bench {
namespace {

class Application : public tvservice::ClientBase {
public:
    Application() {
        boost::shared_ptr<frame::Interface> reference;
        if (frame::Process::getInstance()->getInterfaceReference(reference,
                                                                 tvservice::ModelTvServiceAdapter::interfaceKey) != 0)
            throw std::runtime_error("there is no adapter");
        adapter_ = reference->get<tvservice::ModelTvServiceAdapter>();
        adapter_->addClient(boost::shared_ptr<tvservice::ClientInterface>(boost::shared_ptr<void>(), this));
    }
    ~Application() override {
        adapter_->removeClient(boost::shared_ptr<tvservice::ClientInterface>(boost::shared_ptr<void>(), this));
    }
    double play() {
        frame::MsgIds ids;
        const auto start = Clock::now();
        adapter_->tvServiceReq(ids, {}, request_);
        return nanoseconds(answered_.wait() - start);
    }

private:
    int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                      const std::vector<tvservice::TvServiceInfo_t>&) override {
        answered_.post();
        return 0;
    }

    TimedEvent answered_;
    const std::vector<tvservice::TvServiceReq_t> request_ = playRequest();
    tvservice::ModelTvServiceAdapter* adapter_;
};

bool servicesConnected() {
    const auto services = frame::ioStatistics();
    return services.size() == 2 &&
           std::all_of(services.begin(), services.end(), [](const auto& service) { return service.connected; });
}

struct Run {
    const std::function<void(const std::function<double()>&)>& work;
    std::exception_ptr failure;
    std::thread thread;

    void operator()() {
        try {
            while (!servicesConnected()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            Application application;
            work([&] { return application.play(); });
        } catch (...) {
            failure = std::current_exception();
        }
        host::stopProcess();
    }
};

int startRun(void* context) {
    auto& run = *static_cast<Run*>(context);
    if (const int result = frame::Process::getInstance()->startAppMembersSync(frameCreateApplicationArray))
        return result;
    run.thread = std::thread([&run] { run(); });
    return 0;
}

} // namespace

void withFramework(const std::function<void(const std::function<double()>& play)>& work) {
    Run run{work, {}, {}};
    const int result = host::runProcess(startRun, &run);
    if (run.thread.joinable()) run.thread.join();
    if (run.failure) std::rethrow_exception(run.failure);
    if (result != 0) throw std::runtime_error("the framework did not start: " + std::to_string(result));
}

} // namespace bench
