// The start-up and shutdown of the process's members.
#include "base/guarded-call.h"
#include "frame/process-state.h"
#include "log/log.h"

#include <frame/abstract-marshalling-impl.h>
#include <host/result.h>

#include <algorithm>
#include <boost/core/demangle.hpp>
#include <cerrno>
#include <cstdlib>
#include <typeinfo>

namespace frame {

namespace {

std::string typeName(const AbstractProcessMember& member) { return boost::core::demangle(typeid(member).name()); }

// Runs one step of a member. A negative result is logged with the name of the step; an exception counts as -EIO.
template <class Operation> int runStep(const std::string& who, const char* step, Operation operation) {
    int result = -EIO;
    const bool returned =
        host::guardedCall([&] { result = operation(); },
                          [&](const host::Thrown& thrown) {
                              HOST_LOG(frame, vdlDebugFailure, "%s: %s threw: %s\n", who.c_str(), step, thrown.what);
                          });
    if (returned && result < 0)
        HOST_LOG(frame, vdlDebugFailure, "%s: %s returned %s\n", who.c_str(), step, host::ResultText(result).text());
    return std::min(result, 0);
}

} // namespace

// The start-up of an array: each phase for all of its members in order. The state is an argument, not a member, so that
// clang sees whose mutex is held.
struct Process::State::BringUp {
    const std::string& source;
    std::vector<AbstractProcessMember*> members;
    std::size_t attached = 0;
    std::vector<host::QueueChannel*> channels = {}; // of the marshalling members

    std::string name(std::size_t index) const {
        return "member " + std::to_string(index + 1) + " of " + source + " (" + typeName(*members[index]) + ")";
    }

    int run(State& state) TVSA_REQUIRES(state.membersMutex_) {
        int result = 0;
        for (std::size_t i = 0; i < members.size() && !result; ++i) result = setUp(state, i);
        for (std::size_t i = 0; i < members.size() && !result; ++i) result = connect(state, i);
        for (std::size_t i = 0; i < members.size() && !result; ++i) result = start(state, i);
        if (!result) result = openChannels(state);
        if (result) undo(state);
        return result;
    }

    int setUp(State& state, std::size_t index) {
        AbstractProcessMember& member = *members[index];
        const int result = runStep(name(index), "attachProcess", [&] { return member.attachProcess(state.process_); });
        if (result) return result;
        ++attached;
        return runStep(name(index), "setupDone", [&] { return member.setupDone(); });
    }

    int connect(State& state, std::size_t index) {
        auto* member = dynamic_cast<AbstractMarshallingImpl*>(members[index]);
        if (!member) return 0;
        const int result = runStep(name(index), "connecting", [&] { return connect(state, *member); });
        if (result) return result;
        return runStep(name(index), "registerMessageHandlers", [&] { return member->registerMessageHandlers(); });
    }

    int connect(State& state, AbstractMarshallingImpl& member) {
        if (member.getServiceName().empty()) {
            HOST_LOG(frame, vdlDebugFailure, "%s has not set the name of its service\n", typeName(member).c_str());
            return -EINVAL;
        }
        host::QueueChannel& channel = state.messageQueue().connectTo(member.getServiceName(), member.getMessageSet(),
                                                                     member.getSendBufferSize(), &member);
        channels.push_back(&channel);
        member.setOmqIOModule(&channel);
        return 0;
    }

    // Nothing arrives before the whole array has started, because a member's start may set up what its notifications
    // need.
    int openChannels(State& state) {
        return runStep(source, "starting the message queue", [&] {
            if (channels.empty()) return 0;
            state.startQueue();
            state.messageQueue().open(channels);
            return 0;
        });
    }

    int start(State& state, std::size_t index) TVSA_REQUIRES(state.membersMutex_) {
        AbstractProcessMember& member = *members[index];
        const int result = runStep(name(index), "start", [&] { return member.start(); });
        if (!result) state.started_.push_back(&member);
        return result;
    }

    // The members are kept, because others may have pointers to them. The channels, none of which is open yet, are
    // removed.
    void undo(State& state) TVSA_REQUIRES(state.membersMutex_) {
        for (std::size_t i = members.size(); i-- > 0;) {
            if (!std::erase(state.started_, members[i])) continue;
            runStep(name(i), "stop", [&] { return members[i]->stop(); });
        }
        for (std::size_t i = attached; i-- > 0;)
            runStep(name(i), "detachProcess", [&] { return members[i]->detachProcess(); });
        for (AbstractProcessMember* member : members)
            if (auto* marshalling = dynamic_cast<AbstractMarshallingImpl*>(member))
                marshalling->setOmqIOModule(nullptr);
        for (host::QueueChannel* channel : channels) state.messageQueue().withdraw(*channel);
    }
};

int Process::State::startMembersOf(Factory factory, const std::string& source) {
    thread_safety::LockGuard lock(membersMutex_);
    void** array = nullptr;
    const int result = runStep(source, "making the members", [&] {
        if (factory) array = factory();
        return array ? 0 : -EINVAL;
    });
    if (result) return result;

    BringUp bringUp{source, {}};
    for (void** slot = array; *slot; ++slot) {
        auto* member = static_cast<AbstractProcessMember*>(*slot);
        members_.emplace_back(member);
        bringUp.members.push_back(member);
    }
    std::free(array);
    return bringUp.run(*this);
}

void Process::State::stopMembers() {
    thread_safety::LockGuard lock(membersMutex_);
    while (!started_.empty()) {
        AbstractProcessMember* member = started_.back();
        started_.pop_back();
        runStep(typeName(*member), "stop", [&] { return member->stop(); });
    }
}

Process::State::State(Process& process) : process_(process) { host::nameModule(host::Module::frame, "frame"); }

Process::State::~State() {
    end();
    stopMembers(); // those started after the end
    while (!members_.empty()) {
        // Removed from the list first: a destructor may still use the process.
        const std::unique_ptr<AbstractProcessMember> member = std::move(members_.back());
        members_.pop_back();
        member->detachProcess();
    }
}

host::MessageQueue& Process::State::messageQueue() {
    thread_safety::LockGuard lock(queueMutex_);
    if (!queue_) queue_ = std::make_unique<host::MessageQueue>();
    return *queue_;
}

void Process::State::startQueue() {
    host::MessageQueue& queue = messageQueue();
    thread_safety::LockGuard lock(queueMutex_);
    if (queueStarted_) return;
    queue.start();
    queueStarted_ = true;
}

void Process::State::stopQueue() {
    host::MessageQueue* queue;
    {
        thread_safety::LockGuard lock(queueMutex_);
        queueStarted_ = true; // so that it cannot start any more
        queue = queue_.get();
    }
    if (queue) queue->stop(); // without the lock: handlers that it waits for may use the queue
}

} // namespace frame
