// An application that receives all notifications of the adapter.
#pragma once

#include <tvservice-adapter/model-tvservice-adapter.h>

#include <boost/shared_ptr.hpp>
#include <functional>
#include <string>
#include <vector>

namespace exchange {

// A notification as text: its name and its arguments as JSON.
using Notifications = std::vector<std::string>;

class Application {
public:
    // Needs a framework process in which the adapter has started. Throws std::runtime_error if there is no adapter, or
    // if its proxies do not connect.
    Application();
    ~Application();

    tvservice::ModelTvServiceAdapter& adapter() { return *adapter_; }
    // Returns and removes the notifications up to the first one for which last() returns true. Throws
    // std::runtime_error on timeout.
    Notifications receiveUntil(const std::function<bool(const std::string&)>& last);

    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

private:
    class Listener;

    boost::shared_ptr<Listener> listener_;
    tvservice::ModelTvServiceAdapter* adapter_ = nullptr;
};

} // namespace exchange
