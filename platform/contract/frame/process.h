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

    // Looks an interface up by its key: 0 and the reference, or -2 when nobody has registered the key (reference is
    // then left as it was). From any thread.
    int getInterfaceReference(boost::shared_ptr<Interface>& reference, const std::string& key);

    // Takes the members that factory makes (a null-terminated array, owned by the process from then on), and sets up
    // and starts them in order on the framework's thread, before it returns. From any thread; on the framework's own
    // thread (a member's start, say) the work is done at once. Returns 0, or the first negative result, after the
    // members of this array that had already come up were stopped again; -22 when there is no array, -108 when the
    // process ends before it is their turn, -5 when a member throws.
    int startAppMembersSync(void** (*factory)());

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    struct State; // the implementation's
    State& state() { return *state_; }

private:
    Process();
    ~Process();
    State* state_;
};

} // namespace frame
