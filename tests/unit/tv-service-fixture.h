// A TV service and its clients in one process, over real message queues in their own folder.
#pragma once

#include "media/simulated/simulated-engine.h"
#include "tvservice/tv-service.h"

#include <genrpc/json.h>
#include <genrpc/send.h>
#include <host/message-queue.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tvservicetest {

namespace messages = tvservice::messages;

struct Received {
    std::string message;
    genrpc::Json arguments;

    // As text, for comparisons: TvServiceSwapWinInfo {"info":{"intParam1":1}}
    std::string text() const { return message + ' ' + genrpc::textOf(arguments); }
};

inline std::vector<std::string> namesOf(const std::vector<Received>& all) {
    std::vector<std::string> names;
    for (const Received& notification : all) names.push_back(notification.message);
    return names;
}

inline std::vector<std::string> textsOf(const std::vector<Received>& all) {
    std::vector<std::string> texts;
    for (const Received& notification : all) texts.push_back(notification.text());
    return texts;
}

// A client that records its notifications.
class Client {
public:
    Client()
        : channel_(
              queue_.connectTo(tvservice::serviceName, tvservice::messageSet(), services::sendBufferBytes, nullptr)) {
#define TVSERVICE_RECORD(service, direction, Name, ...)                                          \
    channel_.registerMessageHandler(messages::Name::meta, &Client::record<messages::Name>, this, \
                                    *messages::Name::table());
        TVSERVICE_NOTIFICATIONS(TVSERVICE_RECORD)
#undef TVSERVICE_RECORD
        queue_.open(channel_);
        queue_.start();
    }
    ~Client() { queue_.stop(); }

    template <class Message, class... Args> void send(const Args&... args) {
        EXPECT_EQ(
            genrpc::send<Message>(
                channel_, {.ids = frame::MsgIds::none, .transport = nullptr, .firstBytes = services::sendBufferBytes},
                args...),
            0);
    }
    void play(int type, int id, const std::string& uri, const std::string& reqId = "r") {
        tvservice::TvServiceReq_t request;
        request.terminal = {type, id};
        request.uri = uri;
        request.reqId = reqId;
        send<messages::TvServiceReq>(std::vector{request});
    }

    // The notifications since the last call: all that the service sent immediately for the requests so far.
    std::vector<Received> received() {
        tvservice::TvServiceStreamInfoReq_t mark;
        mark.intParam1 = --lastMark_;
        send<messages::TvServiceStreamInfoReq>(mark);
        const auto isMark = [&](const Received& notification) {
            return notification.message == "TvServiceStreamInfo" &&
                   notification.arguments["info"]["intParam1"] == mark.intParam1;
        };
        std::vector<Received> result = waitUntil([&](const auto& all) { return !all.empty() && isMark(all.back()); });
        if (!result.empty() && isMark(result.back())) result.pop_back();
        return result;
    }
    // Waits for a message of that name. Returns the notifications since the last call.
    std::vector<Received> receivedUntil(const std::string& name) {
        return waitUntil([&](const auto& all) {
            return std::any_of(all.begin(), all.end(),
                               [&](const Received& notification) { return notification.message == name; });
        });
    }
    template <class Condition> std::vector<Received> waitUntil(const Condition& condition) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds(20), [&] { return condition(received_); }));
        return std::exchange(received_, {});
    }

private:
    template <class Message>
    static int record(const frame::MsgMeta&, const frame::TransportInfo&, const void* payload, void* context) {
        auto& client = *static_cast<Client*>(context);
        auto arguments = std::apply([](const auto&... args) { return genrpc::argumentsToJson<Message>(args...); },
                                    Message::Body::read(payload));
        const std::lock_guard lock(client.mutex_);
        client.received_.push_back({Message::name, std::move(arguments)});
        client.changed_.notify_all();
        return 0;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Received> received_;
    int lastMark_ = -1000;
    host::MessageQueue queue_;
    host::QueueChannel& channel_;
};

template <class Engine> class TvServiceWith : public testing::Test {
protected:
    TvServiceWith() {
        char folder[] = "/tmp/tv-service-XXXXXX";
        folder_ = mkdtemp(folder);
        setenv("RUNTIME_DIRECTORY", folder, 1);
        service.offer(queue);
        queue.start();
        requester = std::make_unique<Client>();
        other = std::make_unique<Client>();
        // A client with an answer is connected.
        requester->received();
        other->received();
    }
    ~TvServiceWith() override {
        requester.reset();
        other.reset();
        queue.stop();
        std::filesystem::remove_all(folder_);
    }

    // Discards the notifications of both clients.
    void discard() {
        requester->received();
        other->received();
    }

    services::ChannelList channels = services::ChannelList::builtIn();
    services::TerminalTable table;
    services::FaultSwitches faults;
    Engine engine;
    services::TvService service{table, faults, channels, engine, std::chrono::milliseconds(1)};
    host::MessageQueue queue;
    std::unique_ptr<Client> requester, other;

private:
    std::string folder_;
};
using TvServiceTest = TvServiceWith<media::SimulatedEngine>;

} // namespace tvservicetest
