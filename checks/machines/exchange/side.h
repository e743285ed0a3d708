// A TV service in a process of its own, and a proxy that is connected to it.
#pragma once

#include <host/message-queue.h>
#include <host/shell-client.h>

#include <app-tvservice-proxy-main.h>
#include <boost/shared_ptr.hpp>
#include <filesystem>
#include <functional>
#include <memory>
#include <receiver-kit/child-process.h>
#include <string>
#include <vector>

namespace exchange {

// A notification as text: its name and its arguments as JSON.
using Heard = std::vector<std::string>;

class Side {
public:
    // command: starts the service. Throws std::runtime_error when it does not come up.
    explicit Side(const std::vector<std::string>& command);
    ~Side();

    tvservice::Proxy& proxy() { return proxy_; }
    // Lets the service send a notification; throws std::runtime_error when it refuses to.
    void emit(const std::string& notification, const std::string& arguments);
    // Takes what was heard up to the first notification for which last says yes. Throws std::runtime_error when that
    // does not come in time.
    Heard hearUntil(const std::function<bool(const std::string&)>& last);
    // Ends the service; returns what was not as it should be, or an empty text.
    std::string end();

    Side(const Side&) = delete;
    Side& operator=(const Side&) = delete;

private:
    class Listener;

    std::filesystem::path folder_;
    std::unique_ptr<receiver::ChildProcess> service_;
    host::ShellClient shell_;
    boost::shared_ptr<Listener> listener_;
    host::MessageQueue queue_;
    tvservice::Proxy proxy_;
};

} // namespace exchange
