#include "core.h"

#include <tvservice-adapter/testing/receiver.h>

#include <utility>

namespace tvtest {
namespace {

Core* current = nullptr; // for Zappers, whose functions have no context

} // namespace

// ---- Service ----

void Service::next(Reaction reaction) {
    const thread_safety::LockGuard lock(state_.mutex);
    state_.next.push_back(reaction);
}

void Service::when(const std::string& uri, Reaction reaction) {
    const thread_safety::LockGuard lock(state_.mutex);
    state_.when.insert_or_assign(uri, reaction);
}

void Service::always(Reaction reaction) {
    const thread_safety::LockGuard lock(state_.mutex);
    state_.always = reaction;
}

void Service::die() {
    core_.settle(); // what is due has happened before
    core_.die(state_);
}

void Service::comeBack() {
    core_.settle();
    core_.comeBack(state_);
}

std::vector<Request> Service::requests() {
    core_.settle();
    auto all = core_.journals.requests.entries();
    std::erase_if(all, [this](const Request& request) { return request.service != state_.name; });
    return all;
}

// ---- Receiver ----

Receiver::Receiver(tvservice::ZapperTime& zappers) : core_(Core::create()) {
    current = &core_;
    zappers.now = [] { return current->time.point(); };
    zappers.repeat = [](std::chrono::milliseconds interval, std::function<void()> look) {
        return current->repeat(interval, std::move(look));
    };
}

Receiver::~Receiver() { stopApplications(); }

int Receiver::start(void** (*createApplicationArray)()) { return core_.start(createApplicationArray); }

void Receiver::stopApplications() { core_.stopApplications(); }

tvservice::ModelTvServiceAdapter& Receiver::adapter() { return *core_.adapter; }

int Receiver::play(const std::string& terminal, const std::string& uri, const std::string& reqId) {
    tvservice::TvServiceReq_t request;
    request.terminal = terminalOf(terminal);
    request.uri = uri;
    request.reqId = reqId;
    frame::MsgIds ids;
    return core_.adapter->tvServiceReq(ids, frame::TransportInfo{}, {request});
}

int Receiver::stop(const std::string& terminal, const std::string& reqId) {
    return play(terminal, tvservice::stopUri, reqId);
}

Service& Receiver::tv() { return core_.tv; }
Service& Receiver::mm() { return core_.mm; }

tvservice::ClientInterface& Receiver::sender() { return *core_.sender; }

std::string Receiver::command(const std::string& name, const std::vector<std::string>& arguments) {
    return core_.shell.run(name, arguments);
}

Time Receiver::now() const { return core_.time.now(); }

void Receiver::advance(Time time) { core_.runUntil(core_.time.now() + time, {}); }

bool Receiver::waitFor(const std::function<bool()>& condition, Time limit) {
    return core_.runUntil(core_.time.now() + limit, condition);
}

void Receiver::after(Time time, std::function<void()> action) {
    core_.time.at(core_.time.now() + time, std::move(action));
}

std::vector<Request> Receiver::requests() {
    core_.settle();
    return core_.journals.requests.entries();
}

std::vector<Message> Receiver::calls() {
    core_.settle();
    return core_.journals.calls.entries();
}

std::vector<Answer> Receiver::answers() {
    core_.settle();
    return core_.journals.answers.entries();
}

std::vector<Message> Receiver::notifications() {
    core_.settle();
    return core_.journals.notifications.entries();
}

std::vector<DroppedRequest> Receiver::dropped() {
    core_.settle();
    return core_.journals.dropped.entries();
}

void Receiver::forget() {
    core_.settle();
    core_.journals.requests.clear();
    core_.journals.calls.clear();
    core_.journals.answers.clear();
    core_.journals.notifications.clear();
    core_.journals.dropped.clear();
}

} // namespace tvtest
