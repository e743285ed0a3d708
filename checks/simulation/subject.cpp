#include "subject.h"

#include "resource-manager.h"
#include "support/tv-doubles.h"

#include <frame/abstract-process-member.h>
#include <frame/process.h>
#include <genrpc/log.h>
#include <mmservice/interfaces.h>

namespace simulation {
namespace {

Subject* subject = nullptr;

class MmService final : public mmservice::ServiceInterface {
    int mmServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport, const MmRequests& requests) override {
        subject->send("MM", ids, transport, requests, Place::MmSending);
        return -7; // of no consequence
    }
    int addClient(boost::shared_ptr<mmservice::ClientInterface>) override { return 0; }
    int removeClient(boost::shared_ptr<mmservice::ClientInterface>) override { return 0; }
};

class TvService final : public support::RecordingTvService {
    int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport, const Requests& requests) override {
        subject->send("TV", ids, transport, requests, Place::TvSending);
        return -7;
    }
};

// Offers both in the framework, for as long as it lives.
class Services final : public frame::AbstractProcessMember {
public:
    Services() {
        attachProcess(*frame::Process::getInstance());
        registerInterface(static_cast<mmservice::ServiceInterface*>(&mm_), mmservice::ServiceInterface::interfaceKey);
        registerInterface(static_cast<tvservice::ServiceInterface*>(&tv_), tvservice::ServiceInterface::interfaceKey);
    }
    ~Services() override { detachProcess(); }

private:
    MmService mm_;
    TvService tv_;
};

} // namespace

class Subject::Manager final : public tvservice::ResManager {
public:
    explicit Manager(Subject& stage) : ResManager(WithoutWorker{}), stage_(stage) {
        for (int client = 0; client < clients; ++client)
            registerInfocb(
                [this, client](frame::MsgIds& ids, const frame::TransportInfo& transport, const Infos& infos) {
                    noteHeldMutex();
                    stage_.noteReport(client, ids, transport, infos);
                    if (client == 0) stage_.reach(Place::Reporting);
                    return -1 - client; // of no consequence
                });
    }

    void number(std::uint32_t first) { reqIdSeq = first; }
    void doCycle() {
        cycle({"resource-manager.cpp", 1, "ResMTask"});
        noteHeldMutex();
    }
    // A wait of the worker, which holds the mutex but while it waits.
    std::cv_status wait(std::unique_lock<std::mutex>& lock) {
        if (!lock.owns_lock()) stage_.trace += "waiting without the mutex\n";
        lock.unlock();
        const bool whole = stage_.waitASecond();
        lock.lock();
        return whole ? std::cv_status::timeout : std::cv_status::no_timeout;
    }

private:
    int ReqMM(frame::MsgIds& ids, const frame::TransportInfo& transport, const Requests& requests) override {
        noteHeldMutex();
        return ResManager::ReqMM(ids, transport, requests);
    }
    int ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport, const Requests& requests) override {
        noteHeldMutex();
        return ResManager::ReqTV(ids, transport, requests);
    }

    // Whoever is called may call the manager in turn. A mutex that is held would stop the simulation here for good.
    void noteHeldMutex() {
        if (resMutex.try_lock())
            resMutex.unlock();
        else
            stage_.trace += "with the mutex held\n";
    }

    Subject& stage_;
};

void Subject::offerServices() {
    static const Services services;
    Event request;
    request.kind = Event::Kind::Request;
    request.requests.resize(1);
    request.requests.front().uri = "http://stops.both"; // both are sent something
    Subject first{Schedule{}};
    first.play(request);
    first.play(Event{});
    forget({{0, 0}});
}

Subject::Subject(const Schedule& schedule) {
    tvservice::resClock = [] { return std::chrono::steady_clock::time_point(subject->now); };
    tvservice::resWait = [](std::condition_variable&, std::unique_lock<std::mutex>& lock) {
        return subject->manager_->wait(lock);
    };
    vdlDebugLevels[genrpc::ManagerLog] = schedule.level;
    manager_ = std::make_unique<Manager>(*this);
    manager_->number(schedule.firstId);
    subject = this;
}

Subject::~Subject() { subject = nullptr; }

Subject* Subject::current() { return subject; }

void Subject::forget(const std::vector<tvservice::TvServiceTerminal_t>& terminals) {
    if (terminals.empty()) return;
    Event stops;
    stops.kind = Event::Kind::Request;
    for (const auto& terminal : terminals) {
        auto& request = stops.requests.emplace_back();
        request.terminal = terminal;
        request.uri = "file:///PVR+/"; // a recording stops the MM service on terminals of any type
    }
    Subject(Schedule{}).play(stops);
}

int Subject::request(const Event& event) {
    // As a client with ids and a connection of its own, which are not to go on to the services.
    frame::MsgIds ids{77, 88};
    return manager_->tvServiceReq(ids, frame::TransportInfo{5, {1, 2}}, event.requests);
}

int Subject::answer(const Event& event) {
    frame::MsgIds ids = event.ids;
    if (event.from == tvservice::ResponseMM) return manager_->MMServiceInfo(ids, event.transport, event.infos);
    if (event.from == tvservice::ResponseTV) return manager_->TVServiceInfo(ids, event.transport, event.infos);
    return manager_->tvServiceInfo(static_cast<tvservice::ResResponse>(event.from), ids, event.transport, event.infos);
}

void Subject::work() { manager_->doCycle(); }

std::string Subject::queueText() {
    std::string text;
    for (const auto& bundle : manager_->bundles()) {
        text += bundle.reqId + ":";
        for (const auto& step : bundle.steps) text += " " + std::string(step.operation) + "/" + step.awaited;
        text += "\n";
    }
    return text;
}

} // namespace simulation
