#include "base/guarded-call.h"
#include "frame/process-state.h"
#include "log/log.h"

#include <frame/abstract-marshalling-impl.h>
#include <frame/abstract-process-member.h>

#include <cerrno>
#include <cstdint>
#include <list>
#include <thread-safety/mutex.h>

namespace frame {

// Events are counted, so that a run handles exactly those that were posted before it was scheduled.
struct AbstractProcessMember::Events {
    thread_safety::Mutex mutex;
    AbstractProcessMember* owner TVSA_GUARDED_BY(mutex); // null once destroyed
    bool open TVSA_GUARDED_BY(mutex) = true;
    // A list, because that allocates nothing while it is empty: the destructor must not need memory. It has no limit;
    // the member must bound what it posts and lets others post.
    std::list<std::function<void()>> waiting TVSA_GUARDED_BY(mutex);
    std::uint64_t taken TVSA_GUARDED_BY(mutex) = 0;     // events removed from waiting
    std::uint64_t scheduled TVSA_GUARDED_BY(mutex) = 0; // events that may run, counted from the first one posted

    explicit Events(AbstractProcessMember* member) : owner(member) {}

    void setOpen(bool value) {
        std::list<std::function<void()>> discarded; // destroyed without the lock: destructors of events may post again
        thread_safety::LockGuard lock(mutex);
        open = value;
        if (open) return;
        taken += waiting.size();
        discarded.swap(waiting);
    }

    // The member to deliver to, or null when events are discarded.
    AbstractProcessMember* receiver() {
        thread_safety::LockGuard lock(mutex);
        return open ? owner : nullptr;
    }

    std::function<void()> take(std::uint64_t limit) {
        thread_safety::LockGuard lock(mutex);
        if (waiting.empty() || taken >= limit) return nullptr;
        std::function<void()> event = std::move(waiting.front());
        waiting.pop_front();
        ++taken;
        return event;
    }
};

AbstractProcessMember::AbstractProcessMember() : events_(std::make_shared<Events>(this)) {}

// An interface that the member has not unregistered stays registered: that is the member's decision. When the framework
// undoes a start-up, it detaches a member first.
AbstractProcessMember::~AbstractProcessMember() {
    events_->setOpen(false);
    thread_safety::LockGuard lock(events_->mutex);
    events_->owner = nullptr;
}

int AbstractProcessMember::attachProcess(Process& process) {
    if (process_) return -EALREADY;
    process_ = &process;
    serviceId_ = process.state().nextServiceId();
    events_->setOpen(true);
    return 0;
}

int AbstractProcessMember::detachProcess() {
    if (!process_) return -ENOTCONN;
    events_->setOpen(false);
    process_->state().unregisterAllOf(this);
    process_ = nullptr;
    serviceId_ = 0;
    return 0;
}

int AbstractProcessMember::setupDone() { return performSetupDone(); }

// After a stop, events are discarded. start enables them before performStarting, which may post some, and disables them
// again if that fails.
int AbstractProcessMember::start() {
    if (process_) events_->setOpen(true);
    try {
        const int result = performStarting();
        if (result < 0) events_->setOpen(false);
        return result;
    } catch (...) {
        events_->setOpen(false);
        throw;
    }
}

int AbstractProcessMember::stop() {
    const int result = performStopping();
    events_->setOpen(false);
    return result;
}

int AbstractProcessMember::performSetupDone() { return process_ ? 0 : -ENOTCONN; }

int AbstractProcessMember::performStarting() { return process_ ? 0 : -ENOTCONN; }

int AbstractProcessMember::performStopping() { return process_ ? 0 : -ENOTCONN; }

void AbstractProcessMember::postEvent(std::function<void()> event) {
    thread_safety::LockGuard lock(events_->mutex);
    if (events_->open && event) events_->waiting.push_back(std::move(event));
}

void AbstractProcessMember::scheduleEvents() {
    if (!process_) return;
    {
        thread_safety::LockGuard lock(events_->mutex);
        events_->scheduled = events_->taken + events_->waiting.size();
    }
    process_->state().post([events = events_] {
        AbstractProcessMember* member = events->receiver();
        if (auto* delivery = dynamic_cast<EventDelivery*>(member))
            delivery->deliverEvents();
        else if (member)
            member->runEvents();
    });
}

void AbstractProcessMember::runEvents() {
    const std::shared_ptr<Events> events = events_; // an event may destroy the member
    std::uint64_t limit;
    {
        thread_safety::LockGuard lock(events->mutex);
        limit = events->scheduled;
    }
    while (const std::function<void()> event = events->take(limit)) {
        host::guardedCall(event, [](const host::Thrown& thrown) {
            HOST_LOG(frame, vdlDebugFailure, "an event threw: %s\n", thrown.what);
        });
    }
}

int AbstractProcessMember::registerObject(void* object, std::type_index type, const std::string& key) {
    if (process_) return process_->state().registerObject(this, object, type, key);
    HOST_LOG(frame, vdlDebugFailure, "interface \"%s\": its member is not attached to the process\n", key.c_str());
    return -EINVAL;
}

int AbstractProcessMember::unregisterObject(void* object) {
    return process_ && object ? process_->state().unregisterObject(object) : -ENOENT;
}

} // namespace frame
