// A member of a framework process: something that is set up, started and stopped with it.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <typeindex>

namespace frame {

class Process;

// The framework drives a member on its own thread:
// attachProcess -> setupDone -> start -> (serving) -> stop -> detachProcess -> destructor.
// A member overrides the perform... operations. Each returns 0, or a negative value: then the framework undoes the
// member's start-up.
class AbstractProcessMember {
public:
    AbstractProcessMember();
    virtual ~AbstractProcessMember();
    AbstractProcessMember(const AbstractProcessMember&) = delete;
    AbstractProcessMember& operator=(const AbstractProcessMember&) = delete;

    // Called by the framework. attachProcess returns -114 for an attached member, detachProcess -107 for a detached
    // one. detachProcess removes the member's registrations. The others return the result of their perform...
    // operation.
    int attachProcess(Process& process);
    int detachProcess();
    int setupDone();
    int start();
    int stop();

    // The number of the member in its process, from 1 in order of attaching; 0 while detached.
    int getServiceId() const { return serviceId_; }

    // Queues an event for this member. From any thread. It does not run before scheduleEvents.
    void postEvent(std::function<void()> event);
    // Schedules the events posted so far to run in order on the framework's thread. Events of a stopped, detached or
    // destroyed member, and of one whose start failed, are discarded. A stopped member that is started again accepts
    // events again.
    void scheduleEvents();

protected:
    // Runs the scheduled events. On the framework's thread. An exception of an event is logged and ignored.
    void runEvents();

    // By default: 0, or -107 when the member is not attached.
    virtual int performSetupDone();
    virtual int performStarting();
    virtual int performStopping();

    // Registers object under key in the process's registry: 0; -17 when the key is taken; -22 when the object is null
    // or the member is not attached. The registry does not own the object. From any thread.
    template <class T> int registerInterface(T* object, const std::string& key) {
        return registerObject(object, std::type_index(typeid(T)), key);
    }
    // Removes every registration of this object (compared by address): 0, or -2 when there is none or it is null.
    template <class T> int unregisterInterface(T* object) { return unregisterObject(object); }
    int unregisterInterface(std::nullptr_t) { return unregisterObject(nullptr); }

private:
    int registerObject(void* object, std::type_index type, const std::string& key);
    int unregisterObject(void* object);

    struct Events; // shared with event runs on the framework's thread, which may outlive the member
    Process* process_ = nullptr;
    int serviceId_ = 0;
    std::shared_ptr<Events> events_;
};

} // namespace frame
