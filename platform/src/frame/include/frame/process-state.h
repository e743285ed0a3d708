// The state of the process object: its members, the interface registry, the framework's thread and the message queue.
#pragma once

#include <frame/abstract-process-member.h>
#include <frame/process.h>
#include <host/message-queue.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread-safety/mutex.h>
#include <thread>
#include <vector>

namespace frame {

struct Process::State {
    using Factory = void** (*)();

    explicit State(Process& process);
    // Stops the members that still run and deletes all members in reverse order.
    ~State();

    // Registry.
    int registerObject(AbstractProcessMember* owner, void* object, std::type_index type, const std::string& key);
    int unregisterObject(void* object);
    void unregisterAllOf(const AbstractProcessMember* owner);
    int getInterfaceReference(boost::shared_ptr<Interface>& reference, const std::string& key);

    // The framework's thread. Work posted before it runs is queued for it; work posted after it has ended is discarded.
    void post(std::function<void()> work) TVSA_EXCLUDES(workMutex_);
    // Runs work on the framework's thread and returns its result. Runs it directly when the caller is that thread, or
    // when there is none. -108 when the process ends before the work's turn.
    int call(std::function<int()> work) TVSA_EXCLUDES(workMutex_);
    // Makes the calling thread the framework's until requestEnd. Work that is still queued then does not run.
    void beginServing();
    void serve() TVSA_EXCLUDES(workMutex_);
    void requestEnd() TVSA_EXCLUDES(workMutex_);
    // Stops all members in reverse order, then the queue. Work from other threads is discarded from now on.
    void end() TVSA_EXCLUDES(workMutex_, queueMutex_);

    // Members. source: their origin, for the log.
    int startMembersOf(Factory factory, const std::string& source);
    int nextServiceId() { return ++lastServiceId_; }

    host::MessageQueue& messageQueue() TVSA_EXCLUDES(queueMutex_);
    void startQueue() TVSA_EXCLUDES(queueMutex_);

private:
    enum class Phase { idle, serving, ending, ended };
    struct Registration {
        void* object;
        std::type_index type;
        const AbstractProcessMember* owner;
    };
    struct BringUp; // the start-up of one array

    void stopMembers();
    void stopQueue();

    Process& process_;

    thread_safety::Mutex queueMutex_;
    // Handlers and listeners belong to members, so the queue is declared before the members and outlives them.
    std::unique_ptr<host::MessageQueue> queue_ TVSA_GUARDED_BY(queueMutex_);
    bool queueStarted_ TVSA_GUARDED_BY(queueMutex_) = false;

    thread_safety::Mutex registryMutex_;
    std::map<std::string, Registration> registry_ TVSA_GUARDED_BY(registryMutex_);

    thread_safety::Mutex workMutex_;
    std::condition_variable workChanged_;
    Phase phase_ TVSA_GUARDED_BY(workMutex_) = Phase::idle;
    bool endRequested_ TVSA_GUARDED_BY(workMutex_) = false;
    // The framework's thread; valid while serving or ending.
    std::thread::id thread_ TVSA_GUARDED_BY(workMutex_);
    // Each thread that waits in call has one item in it. The other items are scheduled events, which the members bound;
    // messages from peers add none.
    std::deque<std::function<void()>> work_ TVSA_GUARDED_BY(workMutex_);

    std::atomic<int> lastServiceId_{0};
    // Recursive, because a member's start may start further members.
    thread_safety::RecursiveMutex membersMutex_;
    // In order of attaching, including those that failed.
    std::vector<std::unique_ptr<AbstractProcessMember>> members_ TVSA_GUARDED_BY(membersMutex_);
    std::vector<AbstractProcessMember*> started_ TVSA_GUARDED_BY(membersMutex_); // in order of starting
};

} // namespace frame
