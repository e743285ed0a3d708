// What a program of the kit serves: one service with its handlers.
#pragma once

#include <host/message-queue.h>
#include <tvservice-adapter/service/bounds.h>

#include <vector>

namespace services {

class Service {
public:
    virtual ~Service() = default;

    // Offers the service through queue and binds its handlers (sender.h, handlers.h), once, on the framework's thread.
    // It must outlive the queue's receiving. Throws std::runtime_error when the endpoint is not available.
    virtual void offer(host::MessageQueue& queue) = 0;

    // How full the service's tables are, except that of the terminals, for the shell's "stats tables". From any thread.
    virtual std::vector<TableCount> tables() const { return {}; }
};

} // namespace services
