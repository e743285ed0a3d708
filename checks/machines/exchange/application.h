// An application of the adapter, which hears everything that the adapter tells.
#pragma once

#include <tvservice-adapter/model-tvservice-adapter.h>

#include <boost/shared_ptr.hpp>
#include <functional>
#include <string>
#include <vector>

namespace exchange {

// A notification as text: its name and its arguments as JSON.
using Heard = std::vector<std::string>;

class Application {
public:
    // In a framework process in which the adapter has started. Throws std::runtime_error when there is none, or when
    // its proxies do not get their connections.
    Application();
    ~Application();

    tvservice::ModelTvServiceAdapter& adapter() { return *adapter_; }
    // Takes what was heard up to the first notification for which last says yes. Throws std::runtime_error when that
    // does not come in time.
    Heard hearUntil(const std::function<bool(const std::string&)>& last);

    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

private:
    class Listener;

    boost::shared_ptr<Listener> listener_;
    tvservice::ModelTvServiceAdapter* adapter_ = nullptr;
};

} // namespace exchange
