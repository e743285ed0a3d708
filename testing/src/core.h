// What a Receiver consists of. It lives as long as the process: the manager keeps the addresses of what it has found.
#pragma once

#include "journal.h"
#include "service-state.h"
#include "shell.h"
#include "simulated-time.h"
#include "worker.h"

#include <frame/abstract-process-member.h>
#include <tvservice-adapter/testing/receiver.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tvtest {

// The test's thread calls all functions, except that proxies deliver requests to their services from any thread.
class Core {
public:
    // Starts the process's only one. Throws std::logic_error when there is one already.
    static Core& create();

    // ---- time ----

    // Lets everything happen that is due. Does nothing while something is happening.
    void settle();
    // Lets time pass until the end, or until the condition (if any) holds. Returns whether it holds.
    bool runUntil(Time end, const std::function<bool()>& condition);
    // Calls look once per interval, for as long as the returned object exists.
    std::shared_ptr<void> repeat(Time interval, std::function<void()> look);

    // ---- members ----

    int start(void** (*createArray)());
    void stopApplications();

    // ---- services ----

    void die(Service::State& service);
    void comeBack(Service::State& service);

    SimulatedTime time;
    Worker worker{time};
    Journals journals;
    Shell shell;
    Service::State tvState, mmState;
    Service tv{*this, tvState}, mm{*this, mmState};
    tvservice::ModelTvServiceAdapter* adapter = nullptr;
    std::shared_ptr<tvservice::ClientInterface> sender; // see Receiver::notify

private:
    using Members = std::vector<std::unique_ptr<frame::AbstractProcessMember>>;

    Core();
    void startProduct();
    // Sets up and starts members, in order. Returns 0, or the first negative result after undoing all of it.
    int bringUp(Members& members);
    void stop(Members& members, std::size_t started);

    int tvReceives(const frame::MsgMeta& meta, const void* payload);
    int mmReceives(const frame::MsgMeta& meta, const void* payload);
    template <class Answer, class Info, class Requests> void receive(Service::State& service, const Requests& requests);

    // The manager's queue, as far as notifications of its worker change it: ids, and steps that are left.
    std::vector<std::pair<std::string, std::size_t>> queue() const;
    bool workerIsNotified() const;
    void expireWait();

    Members product_;
    std::vector<Members> applications_;
    std::vector<std::pair<std::string, std::size_t>> seenQueue_; // when the worker began to wait
    bool happening_ = false;                                     // inside an event
};

} // namespace tvtest
