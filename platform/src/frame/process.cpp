#include "frame/process-state.h"

#include <frame/process.h>

namespace frame {

Process::Process() : state_(new State(*this)) {}

Process::~Process() { delete state_; }

// Libraries are loaded through the process object. So their function-local statics are created after it, and destroyed
// before it deletes its members.
Process* Process::getInstance() {
    static Process process;
    return &process;
}

int Process::getInterfaceReference(boost::shared_ptr<Interface>& reference, const std::string& key) {
    return state_->getInterfaceReference(reference, key);
}

} // namespace frame
