// Looks at the adapter's queue for a RequestLog, on a thread of its own.
#pragma once

#include "request-log.h"

#include <tvservice-adapter/model-tvservice-adapter.h>

#include <exception>
#include <thread>

namespace control {

class RequestWatch {
public:
    // Both must outlive it.
    RequestWatch(RequestLog& log, const tvservice::ModelTvServiceAdapter& adapter)
        : log_(log), thread_([&log, &adapter] {
              while (log.waitToLook()) {
                  try {
                      const auto taken = RequestLog::Clock::now();
                      log.look(adapter.bundles(), taken);
                  } catch (const std::exception&) { // out of memory: the next look tries again
                  }
              }
          }) {}
    ~RequestWatch() {
        log_.end();
        thread_.join();
    }
    RequestWatch(const RequestWatch&) = delete;
    RequestWatch& operator=(const RequestWatch&) = delete;

private:
    RequestLog& log_;
    std::thread thread_;
};

} // namespace control
