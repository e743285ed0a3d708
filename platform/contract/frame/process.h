// The framework's process: it loads application libraries, drives their members through set-up, start and stop, keeps
// the interface registry and runs the framework's thread.
#pragma once

#include <frame/interface.h>

#include <boost/shared_ptr.hpp>
#include <string>

namespace frame {

class Process {
public:
    // The one process object.
    static Process* getInstance();

    // Looks an interface up by its key: 0 and the reference, or -2 with reference unchanged when the key is not
    // registered. From any thread.
    int getInterfaceReference(boost::shared_ptr<Interface>& reference, const std::string& key);

    // Takes ownership of the members that factory creates (a null-terminated array), then sets up and starts them in
    // order on the framework's thread before it returns. From any thread; on the framework's own thread (in a member's
    // start, for example) it runs them directly. Returns 0, or the first negative result after stopping those members
    // of the array that had started; -22 when there is no array, -108 when the process ends before the members' turn,
    // -5 when a member throws.
    int startAppMembersSync(void** (*factory)());

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    struct State; // private to the implementation
    State& state() { return *state_; }

private:
    Process();
    ~Process();
    State* state_;
};

} // namespace frame
