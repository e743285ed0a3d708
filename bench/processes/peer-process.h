// Child processes of this program: servers on the other side of a transport, and groups of cases that need a separate
// process.
#pragma once

#include <functional>
#include <sys/types.h>

namespace bench {

// A server in a child process, which ends with this object and with its parent. Must be created while the process has
// one thread.
class PeerProcess {
public:
    // serve runs in the child. It calls ready() once clients can connect, and never returns. The constructor waits for
    // ready(). Throws std::runtime_error if the child ends before that, and std::system_error.
    explicit PeerProcess(const std::function<void(const std::function<void()>& ready)>& serve);
    ~PeerProcess();
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

private:
    pid_t pid_;
};

// Runs work in a child process and waits for it. Throws std::runtime_error if the child fails; the child prints the
// reason to stderr.
void inOwnProcess(const std::function<void()>& work);

} // namespace bench
