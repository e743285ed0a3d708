#include "honest.h"

#include <frame/omq-io-module.h>
#include <genrpc/send.h>
#include <host/message-queue.h>
#include <host/shell-client.h>
#include <mmservice/messages.h>
#include <tvservice/messages.h>

#include <condition_variable>
#include <cstdlib>
#include <thread-safety/mutex.h>

namespace access_check {
namespace {

constexpr std::size_t sendBufferBytes = 4096;

// A client of a service, with its own message queue.
template <class Request, class Answer> class QueueClient final : public HonestClient {
public:
    QueueClient(const char* service, const frame::MessageSet& messages, typename Request::Body::Arguments request)
        : request_(std::move(request)), endpoint_(queue_.connectTo(service, messages, sendBufferBytes, nullptr)) {
        const frame::MessageHandler handler = [](const frame::MsgMeta&, const frame::TransportInfo&, const void*,
                                                 void* self) {
            static_cast<QueueClient*>(self)->receiveAnswer();
            return 0;
        };
        endpoint_.registerMessageHandler(Answer::meta, handler, this, *Answer::table());
        queue_.open(endpoint_);
        queue_.start();
    }
    ~QueueClient() override { queue_.stop(); }

    void ask() override {
        thread_safety::UniqueLock lock(mutex_);
        const unsigned before = answers_;
        lock.unlock();
        const genrpc::Sending sending{.ids = frame::MsgIds::none, .transport = nullptr, .firstBytes = sendBufferBytes};
        const int sent = std::apply(
            [&](const auto&... argument) { return genrpc::send<Request>(endpoint_, sending, argument...); }, request_);
        lock.lock();
        const bool answered = changed_.wait_for(lock, receiver::defaultTimeout,
                                                [&]() TVSA_REQUIRES(mutex_) { return answers_ != before; });
        require(sent == 0 && answered, "an honest client of a service got no answer");
    }

private:
    void receiveAnswer() {
        const thread_safety::LockGuard lock(mutex_);
        ++answers_;
        changed_.notify_all();
    }

    const typename Request::Body::Arguments request_;
    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    unsigned answers_ TVSA_GUARDED_BY(mutex_) = 0;
    host::MessageQueue queue_;
    host::QueueChannel& endpoint_;
};

class ShellUser final : public HonestClient {
public:
    explicit ShellUser(const std::string& path) : path_(path) {}

    void ask() override {
        if (!shell_.isConnected()) shell_.connect(path_);
        const host::ShellReply reply = shell_.run("stats");
        require(reply.status == 0, path_ + ": " + reply.error);
    }

private:
    const std::string path_;
    host::ShellClient shell_;
};

} // namespace

void setEndpoints(const std::vector<Endpoint>& endpoints) {
    for (const Endpoint& endpoint : endpoints)
        if (!endpoint.shell)
            setenv(endpoint.part == Part::tvService ? "TVSA_ENDPOINT_TVSERVICE" : "TVSA_ENDPOINT_MMSERVICE",
                   endpoint.path.c_str(), 1);
}

std::unique_ptr<HonestClient> honestClientOf(const Endpoint& endpoint) {
    if (endpoint.shell) return std::make_unique<ShellUser>(endpoint.path);
    if (endpoint.part == Part::tvService) {
        using namespace tvservice::messages;
        return std::make_unique<QueueClient<TvServiceInfoReq, TvServiceStatusInfo>>(
            tvservice::serviceName, tvservice::messageSet(), std::tuple<>());
    }
    using namespace mmservice::messages;
    mmservice::MMServiceReq_t request;
    request.uri = "unknown:";
    return std::make_unique<QueueClient<MmServiceReq, MmServiceInfo>>(mmservice::serviceName, mmservice::messageSet(),
                                                                      std::tuple{std::vector{request}});
}

} // namespace access_check
