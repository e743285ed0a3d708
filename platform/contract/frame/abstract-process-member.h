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
// A member overrides the perform... operations; each returns 0, or a negative value that undoes the member's start-up.
class AbstractProcessMember {
public:
    AbstractProcessMember();
    virtual ~AbstractProcessMember();
    AbstractProcessMember(const AbstractProcessMember&) = delete;
    AbstractProcessMember& operator=(const AbstractProcessMember&) = delete;

    // Called by the framework. Attaching twice is -114, detaching what is not attached -107. Detaching removes what the
    // member has registered. The others return what their perform... operation does.
    int attachProcess(Process& process);
    int detachProcess();
    int setupDone();
    int start();
    int stop();

    // A number that names the member in its process, from 1 in order of attaching; 0 while detached.
    int getServiceId() const { return serviceId_; }

    // Queues work for this member. From any thread. Nothing runs before scheduleEvents.
    void postEvent(std::function<void()> event);
    // Has the framework's thread run the events posted so far, in order. Events of a stopped, detached or destroyed
    // member, and of one whose start failed, are discarded. A stopped member that is started again takes events again.
    void scheduleEvents();

protected:
    // Runs the scheduled events. On the framework's thread. An exception of an event is logged and swallowed.
    void runEvents();

    // Here: 0, or -107 when the member is not attached.
    virtual int performSetupDone();
    virtual int performStarting();
    virtual int performStopping();

    // Registers object under key in the process's registry: 0; -17 when the key is taken; -22 when the object is null
    // or the member is not attached. The registry holds no ownership. From any thread.
    template <class T> int registerInterface(T* object, const std::string& key) {
        return registerObject(object, std::type_index(typeid(T)), key);
    }
    // Removes every registration of this object (compared by address): 0, or -2 when there is none. Null is harmless.
    template <class T> int unregisterInterface(T* object) { return unregisterObject(object); }
    int unregisterInterface(std::nullptr_t) { return unregisterObject(nullptr); }

private:
    int registerObject(void* object, std::type_index type, const std::string& key);
    int unregisterObject(void* object);

    struct Events; // shared with the runs under way on the framework's thread, which may outlive the member
    Process* process_ = nullptr;
    int serviceId_ = 0;
    std::shared_ptr<Events> events_;
};

} // namespace frame
