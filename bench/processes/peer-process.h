// Processes that this program makes of itself: servers on the other side of a transport, and groups of cases that need
// a process of their own.
#pragma once

#include <functional>
#include <sys/types.h>

namespace bench {

// A server in a child process, which ends with this object and with its parent. To be made while the process has one
// thread.
class PeerProcess {
public:
    // serve runs in the child; it calls ready once it can be reached, and never returns. The constructor waits for
    // ready. Throws std::runtime_error when the child ends before, std::system_error.
    explicit PeerProcess(const std::function<void(const std::function<void()>& ready)>& serve);
    ~PeerProcess();
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

private:
    pid_t pid_;
};

// Runs work in a child process and waits for it. Throws std::runtime_error when the child does not end with success; it
// has said why on stderr.
void inOwnProcess(const std::function<void()>& work);

} // namespace bench
