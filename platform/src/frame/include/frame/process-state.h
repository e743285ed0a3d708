// What the process object keeps: its members, the interface registry, the framework's thread and the message queue.
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
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace frame {

struct Process::State {
    using Factory = void** (*)();

    explicit State(Process& process);
    // Ends what is still up and deletes the members in reverse order.
    ~State();

    // Registry.
    int registerObject(AbstractProcessMember* owner, void* object, std::type_index type, const std::string& key);
    int unregisterObject(void* object);
    void unregisterAllOf(const AbstractProcessMember* owner);
    int getInterfaceReference(boost::shared_ptr<Interface>& reference, const std::string& key);

    // The framework's thread. Work posted before it runs waits for it, work posted after it ended is discarded.
    void post(std::function<void()> work);
    // Has work done on the framework's thread and returns its result; done by the caller itself when that is the
    // framework's thread, or when there is none. -108 when the process ends before it is the work's turn.
    int call(std::function<int()> work);
    // Makes the caller's thread the framework's until requestEnd, whatever has been posted by then.
    void beginServing();
    void serve();
    void requestEnd();
    // Stops all members in reverse order and the queue; no other thread's work is taken meanwhile.
    void end();

    // Members. source names in the log where they came from.
    int startMembersOf(Factory factory, const std::string& source);
    int nextServiceId() { return ++lastServiceId_; }

    host::MessageQueue& messageQueue();
    void startQueue();

private:
    enum class Phase { idle, serving, ending, ended };
    struct Registration {
        void* object;
        std::type_index type;
        const AbstractProcessMember* owner;
    };
    struct BringUp; // an array's way up

    void stopMembers();
    void stopQueue();

    Process& process_;

    std::mutex queueMutex_;
    // Handlers and listeners are members' affairs, so the queue is declared before the members and outlives them.
    std::unique_ptr<host::MessageQueue> queue_;
    bool queueStarted_ = false;

    std::mutex registryMutex_;
    std::map<std::string, Registration> registry_;

    std::mutex workMutex_;
    std::condition_variable workChanged_;
    Phase phase_ = Phase::idle;
    bool endRequested_ = false;
    std::thread::id thread_; // the framework's, meaningful while serving or ending
    // A thread that waits in call has one piece of work in it. Other pieces are members' scheduled events, which the
    // members themselves have to bound; no message of a peer posts any.
    std::deque<std::function<void()>> work_;

    std::atomic<int> lastServiceId_{0};
    // Recursive because a member's start may start further members.
    std::recursive_mutex membersMutex_;
    std::vector<std::unique_ptr<AbstractProcessMember>> members_; // in order of attaching, also those that failed
    std::vector<AbstractProcessMember*> started_;                 // in order of starting
};

} // namespace frame
