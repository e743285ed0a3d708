#include "side.h"

#include <frame/process.h>
#include <genrpc/json.h>
#include <tvservice/messages.h>

#include <boost/make_shared.hpp>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <receiver-kit/wait.h>
#include <stdexcept>
#include <system_error>

namespace exchange {
namespace {

constexpr std::chrono::seconds patience{30};
constexpr std::size_t sendBufferBytes = 16384;

std::filesystem::path makePrivateFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "exchange-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
    return name;
}

} // namespace

class Side::Listener : public tvservice::ClientInterface {
public:
#define LISTEN(service, direction, Name, method, id, ...)                                                              \
    int method(frame::MsgIds&, const frame::TransportInfo& GENRPC_EACH(GENRPC_PARAMETER, __VA_ARGS__)) override {      \
        return hear(#Name " " + genrpc::argumentsToJson<tvservice::messages::Name>(GENRPC_NAMES(__VA_ARGS__)).dump()); \
    }
    TVSERVICE_NOTIFICATIONS(LISTEN)
#undef LISTEN

    Heard until(const std::function<bool(const std::string&)>& last) {
        std::unique_lock lock(mutex_);
        Heard taken;
        const auto deadline = std::chrono::steady_clock::now() + patience;
        for (;;) {
            if (!changed_.wait_until(lock, deadline, [&] { return taken.size() < heard_.size(); }))
                throw std::runtime_error("the last answer does not come; so far: " + std::to_string(taken.size()) +
                                         (taken.empty() ? "" : ", the last one " + taken.back()));
            taken.push_back(heard_[taken.size()]);
            if (!last(taken.back())) continue;
            heard_.erase(heard_.begin(), heard_.begin() + static_cast<std::ptrdiff_t>(taken.size()));
            return taken;
        }
    }

private:
    int hear(std::string text) {
        {
            const std::lock_guard lock(mutex_);
            heard_.push_back(std::move(text));
        }
        changed_.notify_one();
        return 0;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    Heard heard_;
};

Side::Side(const std::vector<std::string>& command)
    : folder_(makePrivateFolder()), listener_(boost::make_shared<Listener>()) {
    service_ = std::make_unique<receiver::ChildProcess>(
        receiver::ChildCommand{command.at(0),
                               {command.begin() + 1, command.end()},
                               {{"RUNTIME_DIRECTORY", folder_}, {"STATE_DIRECTORY", folder_}},
                               folder_ / "log"});
    const auto emits = [&] {
        try {
            if (!shell_.isConnected()) shell_.connect(folder_ / "tvserviced.shell");
            return shell_.run("help").output.find("emit") != std::string::npos;
        } catch (const host::ShellError&) {
            return !service_->running();
        }
    };
    if (!receiver::waitUntil(emits, patience) || !service_->running())
        throw std::runtime_error(command.at(0) + " does not come up");

    setenv("TVSA_ENDPOINT_TVSERVICE", (folder_ / "tvservice.sock").c_str(), 1);
    proxy_.attachProcess(*frame::Process::getInstance());
    frame::OmqIOModule& door =
        queue_.connectTo(tvservice::serviceName, tvservice::messageSet(), sendBufferBytes, nullptr);
    proxy_.setOmqIOModule(&door);
    proxy_.registerMessageHandlers();
    proxy_.addClient(listener_);
    queue_.open(door);
    queue_.start();
}

Side::~Side() {
    queue_.stop(); // before what its handlers use goes
    proxy_.detachProcess();
    service_.reset();
    std::error_code ignored; // what cannot be removed from a folder of temporary files stays there
    std::filesystem::remove_all(folder_, ignored);
}

void Side::emit(const std::string& notification, const std::string& arguments) {
    const auto reply = shell_.run(std::vector<std::string>{"emit", notification, arguments});
    if (reply.status != 0) throw std::runtime_error(notification + " is refused: " + reply.output + reply.error);
}

Heard Side::hearUntil(const std::function<bool(const std::string&)>& last) { return listener_->until(last); }

std::string Side::end() {
    for (const auto& counters : queue_.statistics())
        if (counters.undecodable != 0) return std::to_string(counters.undecodable) + " messages could not be decoded";
    queue_.stop();
    shell_.disconnect();
    service_->terminate(patience);
    return service_->failure();
}

} // namespace exchange
