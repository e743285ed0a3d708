#include "core.h"

#include "clients.h"
#include "private-folder.h"
#include "resource-manager.h"

#include <frame/abstract-marshalling-impl.h>
#include <frame/process.h>
#include <mmservice/messages.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <stdexcept>

extern "C" void** CreateTvMmService(); // of the adapter's library

namespace tvtest {
namespace {

Core* theCore = nullptr;

// Sets a value for a scope.
struct During {
    explicit During(bool& flag) : flag_(flag) { flag_ = true; }
    ~During() { flag_ = false; }
    bool& flag_;
};

// A request to either service as that to the TV service.
const tvservice::TvServiceReq_t& recordOf(const tvservice::TvServiceReq_t& request) { return request; }
tvservice::TvServiceReq_t recordOf(const mmservice::MMServiceReq_t& request) {
    tvservice::TvServiceReq_t record;
    record.terminal = {request.terminal.type, request.terminal.id};
    record.intParam1 = request.intParam1;
    record.intParam2 = request.intParam2;
    record.intParam3 = request.intParam3;
    record.uri = request.uri;
    record.uuid = request.uuid;
    record.strParam2 = request.strParam2;
    record.strParamList = request.strParamList;
    record.reqId = request.reqId;
    record.strParam3 = request.strParam3;
    return record;
}

} // namespace

// ---- creation ----

Core& Core::create() {
    if (theCore != nullptr)
        throw std::logic_error(
            "this process has had a tvtest::Receiver, and its resource manager is not new any more: "
            "run each test in a process of its own, with ctest and gtest_discover_tests or with "
            "the main of <tvservice-adapter/testing/main.h>");
    if (dlsym(RTLD_DEFAULT, "CreateTvMmService") != nullptr) // the kit does not export its own
        throw std::logic_error(
            "this process has the adapter's library, too, so applications would use that one's "
            "manager: link tvservice-adapter::testing instead of tvservice-adapter::client");
    setPrivateStateFolder();
    theCore = new Core;
    theCore->startProduct();
    return *theCore;
}

Core::Core()
    : tvState("TV", [this](const auto& meta, const void* payload) { return tvReceives(meta, payload); }),
      mmState("MM", [this](const auto& meta, const void* payload) { return mmReceives(meta, payload); }),
      sender(std::make_shared<Sender>(*this)) {}

void Core::startProduct() {
    tvservice::resClock = [] { return theCore->time.point(); };
    tvservice::resWait = [](std::condition_variable&, std::unique_lock<std::mutex>& lock) {
        return theCore->worker.wait(lock);
    };
    shell.attachProcess(*frame::Process::getInstance());
    shell.setupDone();

    const std::unique_ptr<void*, decltype(&std::free)> array(CreateTvMmService(), std::free);
    for (void** member = array.get(); *member != nullptr; ++member)
        product_.emplace_back(static_cast<frame::AbstractProcessMember*>(*member));
    if (const int result = bringUp(product_); result < 0)
        throw std::runtime_error("the adapter does not start: " + std::to_string(result));
    // Created after the manager, so destroyed before it, when it waits for its worker's end.
    static const struct AtExit {
        ~AtExit() {
            theCore->die(theCore->tvState);
            theCore->die(theCore->mmState);
            theCore->worker.release();
        }
    } atExit;
    worker.awaitWaiting();

    boost::shared_ptr<frame::Interface> reference;
    const auto key = tvservice::ModelTvServiceAdapter::interfaceKey;
    if (const int result = frame::Process::getInstance()->getInterfaceReference(reference, key); result < 0)
        throw std::runtime_error("the adapter is not registered: " + std::to_string(result));
    adapter = reference->get<tvservice::ModelTvServiceAdapter>();
    adapter->addClient(boost::make_shared<NotingClient>(*this));
}

// ---- members ----

int Core::bringUp(Members& members) {
    int result = 0;
    std::size_t started = 0;
    for (auto& member : members) {
        member->attachProcess(*frame::Process::getInstance());
        result = member->setupDone();
        if (result < 0) break;
        auto* const proxy = dynamic_cast<frame::AbstractMarshallingImpl*>(member.get());
        if (proxy == nullptr) continue;
        if (proxy->getServiceName() == "tvservice") proxy->setOmqIOModule(&tvState.link);
        if (proxy->getServiceName() == "mmservice") proxy->setOmqIOModule(&mmState.link);
        if (proxy->getOmqIOModule() != nullptr) proxy->registerMessageHandlers();
    }
    while (result >= 0 && started < members.size()) {
        result = members[started]->start();
        if (result >= 0) ++started;
    }
    if (result >= 0) return 0;
    stop(members, started);
    return result;
}

void Core::stop(Members& members, std::size_t started) {
    for (; !members.empty(); members.pop_back()) {
        if (members.size() <= started) members.back()->stop();
        members.back()->detachProcess();
    }
}

int Core::start(void** (*createArray)()) {
    const std::unique_ptr<void*, decltype(&std::free)> array(createArray != nullptr ? createArray() : nullptr,
                                                             std::free);
    if (!array) return -EINVAL;
    Members members;
    for (void** member = array.get(); *member != nullptr; ++member)
        members.emplace_back(static_cast<frame::AbstractProcessMember*>(*member));
    if (const int result = bringUp(members); result < 0) return result;
    applications_.push_back(std::move(members));
    return 0;
}

void Core::stopApplications() {
    for (; !applications_.empty(); applications_.pop_back()) stop(applications_.back(), applications_.back().size());
}

// ---- services ----

template <class Answer, class Info, class Requests>
void Core::receive(Service::State& service, const Requests& requests) {
    for (const auto& request : requests)
        journals.requests.add(
            {service.name, nameOf(request.terminal), request.uri, request.reqId, time.now(), recordOf(request)});
    const Reaction reaction = service.reactionTo(requests);
    std::vector<Info> infos;
    infos.reserve(requests.size());
    for (const auto& request : requests)
        infos.push_back({request.terminal, reaction.result, request.uri, request.uuid, "", request.reqId});
    for (int i = 0; i < reaction.times; ++i)
        time.at(time.now() + reaction.delay, [&service, infos, life = service.life()] {
            if (life == service.life()) service.link.deliver<Answer>(infos);
        });
}

int Core::tvReceives(const frame::MsgMeta& meta, const void* payload) {
    namespace messages = tvservice::messages;
    if (tvState.life() == 0) return -ENOTCONN;
    if (meta == messages::TvServiceReq::meta) {
        const auto [requests] = messages::TvServiceReq::Body::read(payload);
        receive<messages::TvServiceInfo, tvservice::TvServiceInfo_t>(tvState, requests);
        return 0;
    }
#define TVTEST_NOTE_CALL(service, direction, Name, ...)                                                     \
    if (meta == messages::Name::meta)                                                                       \
        journals.calls.add({#Name,                                                                          \
                            std::apply([](const auto&... each) { return textOf<messages::Name>(each...); }, \
                                       messages::Name::Body::read(payload)),                                \
                            time.now()});
    TVSERVICE_REQUESTS(TVTEST_NOTE_CALL)
#undef TVTEST_NOTE_CALL
    return 0;
}

int Core::mmReceives(const frame::MsgMeta&, const void* payload) {
    namespace messages = mmservice::messages;
    if (mmState.life() == 0) return -ENOTCONN;
    const auto [requests] = messages::MmServiceReq::Body::read(payload); // its only request
    receive<messages::MmServiceInfo, mmservice::MMServiceInfo_t>(mmState, requests);
    return 0;
}

void Core::die(Service::State& service) {
    const thread_safety::LockGuard lock(service.mutex);
    service.dead = true;
}

void Core::comeBack(Service::State& service) {
    const thread_safety::LockGuard lock(service.mutex);
    if (service.dead) ++service.lives;
    service.dead = false;
}

// ---- time ----

std::vector<std::pair<std::string, std::size_t>> Core::queue() const {
    std::vector<std::pair<std::string, std::size_t>> result;
    for (const auto& bundle : adapter->bundles()) result.emplace_back(bundle.reqId, bundle.steps.size());
    return result;
}

// The manager notifies its worker whenever its queue changes. The worker itself changes it only while it does not wait.
// An application's thread may have changed it before seenQueue_ was set; then at least what is to be sent is sent.
bool Core::workerIsNotified() const {
    if (queue() != seenQueue_) return true;
    const auto bundles = adapter->bundles();
    return !bundles.empty() && bundles.front().steps.front().operation.find("::Sending") != std::string::npos;
}

void Core::settle() {
    constexpr int most = 20'000;
    if (happening_) return;
    const During during(happening_);
    for (int count = 0; count < most; ++count) {
        if (workerIsNotified()) {
            worker.resume(std::cv_status::no_timeout);
            seenQueue_ = queue();
        } else if (const auto happens = time.takeDue()) {
            happens();
        } else {
            return;
        }
    }
    throw std::runtime_error(
        "the application sends a request whenever it is answered, so the simulated time stands "
        "still; let the services answer later, with Reaction::after");
}

void Core::expireWait() {
    const auto before = adapter->bundles();
    worker.resume(std::cv_status::timeout);
    seenQueue_ = queue();
    if (before.empty()) return;
    const auto& front = before.front();
    if (!seenQueue_.empty() && seenQueue_.front().first == front.reqId) return;
    for (const auto& terminal : front.terminals) journals.dropped.add({nameOf(terminal), front.reqId, time.now()});
}

bool Core::runUntil(Time end, const std::function<bool()>& condition) {
    if (happening_) throw std::logic_error("time cannot pass inside a notification or an event");
    for (;;) {
        settle();
        if (condition && condition()) return true;
        const Time due = std::min(time.next().value_or(Time::max()), worker.waitEnds());
        if (due > end) break;
        time.moveTo(due);
        settle();
        if (worker.waitEnds() <= time.now()) expireWait();
    }
    time.moveTo(end);
    return false;
}

std::shared_ptr<void> Core::repeat(Time interval, std::function<void()> look) {
    struct Repetition : std::enable_shared_from_this<Repetition> {
        Repetition(Core& core, Time every, std::function<void()> action)
            : core_(core), every_(every), action_(std::move(action)) {}
        void schedule() {
            core_.time.at(core_.time.now() + every_, [weak = weak_from_this()] {
                if (const auto self = weak.lock()) {
                    self->action_();
                    self->schedule();
                }
            });
        }
        Core& core_;
        const Time every_;
        const std::function<void()> action_;
    };
    const auto repetition = std::make_shared<Repetition>(*this, interval, std::move(look));
    repetition->schedule();
    return repetition;
}

} // namespace tvtest
