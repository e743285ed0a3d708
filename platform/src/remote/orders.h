// What others have for a thread that waits in poll.
#pragma once

#include "io/file-descriptor.h"

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>

namespace host::remote {

class Orders {
public:
    // Throws std::system_error.
    Orders();

    // From any thread; what comes after close is dropped. Throws std::bad_alloc.
    void add(std::function<void()> order);
    void close() noexcept;

    // On the thread. The descriptor is readable when there is something new. What an order throws is thrown; then it
    // is run again by the next run.
    int descriptor() const { return wake_.get(); }
    void run();
    bool haveToRunAgain() const { return !toRun_.empty(); }
    bool isClosed() const { return closed_; }

private:
    void wake() const noexcept;

    const io::FileDescriptor wake_;
    std::mutex mutex_; // guards the next
    std::deque<std::function<void()>> added_;
    std::deque<std::function<void()>> toRun_; // the thread's alone
    std::atomic<bool> closed_{false};
};

} // namespace host::remote
