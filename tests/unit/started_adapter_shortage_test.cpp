// A started adapter with real proxies when memory runs out on the thread that calls it or delivers a message. Covers
// the whole path from a service's message to the applications, and from their calls or the debug command to the
// service.
#include "app-mmservice-proxy-main.h"
#include "app-tvservice-proxy-main.h"
#include "resource-manager.h"
#include "support/adapter-process.h"
#include "support/tv-messages.h"
#include "unit/shortage-fixture.h"

#include <mmservice/messages.h>
#include <vdl/debug.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <chrono>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <type_traits>
#include <vector>

namespace {

using namespace shortage_test;
using namespace tvservice;

constexpr const char* film = "http://films/a-film-whose-address-is-longer-than-what-fits-into-a-string-object";
constexpr const char* channel = "dvb://a-channel-whose-address-is-longer-than-what-fits-into-a-string-object";

// A proxy set up as by the framework, on a module without a socket.
template <class Proxy> struct Connected {
    Connected() {
        proxy.attachProcess(*frame::Process::getInstance());
        EXPECT_EQ(proxy.setupDone(), 0);
        proxy.setOmqIOModule(&module);
        proxy.registerMessageHandlers();
        EXPECT_EQ(proxy.start(), 0);
    }
    FakeModule module;
    Proxy proxy;
};

// Whether the manager's worker is idle. Until then it holds the memory of what it has just sent.
std::atomic<bool> workerWaits{false};
const auto originalWait = resWait;
std::cv_status watchedWait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock) {
    workerWaits = true;
    const auto status = originalWait(condition, lock);
    workerWaits = false;
    return status;
}

// Everything here lives as long as the process, as in a receiver.
struct Receiver {
    Receiver() {
        resWait = watchedWait;
        EXPECT_EQ(adapter.start(), 0);
    }
    static Receiver& get() {
        static auto& receiver = *new Receiver;
        return receiver;
    }
    Connected<tvservice::Proxy> tv;
    Connected<mmservice::Proxy> mm;
    ModelTvServiceAdapter& adapter = support::newAdapter();
};

class StartedAdapter : public testing::TestWithParam<Shortage> {
protected:
    StartedAdapter() {
        vdlDebugSetLevels("off"); // log lines would hold memory
        EXPECT_EQ(receiver.adapter.addClient(application), 0);
    }
    ~StartedAdapter() override {
        EXPECT_EQ(receiver.adapter.removeClient(application), 0);
        vdlDebugSetLevels("warning");
    }

    // Delivers a service's message at every shortage. The application receives it once or, if memory ran out, not at
    // all.
    template <class Message> void expectDeliveredOrNot(const FakeModule& module) {
        const support::FlatBody<Message> body(sampleOf<Message>());
        module.deliver<Message>(body);
        ASSERT_EQ(application->calls, 1U);
        const Held held;
        unsigned deliveries = 1;
        const long failures = runShortAtEveryAllocation(
            GetParam(), [&] { module.deliver<Message>(body); },
            [&](bool succeeded) {
                if (succeeded) ++deliveries;
                EXPECT_EQ(application->calls, deliveries);
                expectHeld(held);
            });
        EXPECT_GT(failures, 0) << "nothing was allocated, so nothing was tested";
        application->calls = 0;
    }

    // Sends all answers that the manager awaits from the services, until no bundle is left.
    void answerAll() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (;;) {
            const auto bundles = receiver.adapter.bundles();
            if (bundles.empty()) return;
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "some bundles are never done";
            const std::string& awaited = bundles.front().steps.front().awaited;
            const bool both = awaited == "ResResponse::ResponseBOTH";
            if (both || awaited == "ResResponse::ResponseMM") {
                const std::vector<mmservice::MMServiceInfo_t> infos{{{0, 0}, 0, film, "", "", bundles.front().reqId}};
                receiver.mm.module.deliver(support::FlatBody<mmservice::messages::MmServiceInfo>(std::tuple(infos)));
            }
            if (both || awaited == "ResResponse::ResponseTV") {
                const std::vector<TvServiceInfo_t> infos{{{0, 0}, 0, channel, "", "", bundles.front().reqId}};
                receiver.tv.module.deliver(support::FlatBody<messages::TvServiceInfo>(std::tuple(infos)));
            }
            std::this_thread::yield(); // let the worker send
        }
    }

    int play(const TvServiceTerminal_t& terminal, const std::string& uri) {
        TvServiceReq_t request;
        request.terminal = terminal;
        request.uri = uri;
        frame::MsgIds ids{11, 12};
        return receiver.adapter.tvServiceReq(ids, {}, {request});
    }

    // Plays a marker last and waits for it, so that the worker has sent everything before it.
    void settle() {
        answerAll();
        static unsigned times = 0;
        const std::string mark = "dvb://mark/" + std::to_string(++times) + '/';
        EXPECT_EQ(play({6, 7}, mark), 0);
        ASSERT_TRUE(receiver.tv.module.waitUntilSent(mark));
        answerAll();
        while (!workerWaits) std::this_thread::yield();
    }

    // Makes a call that plays something, at every shortage. It either sends this many messages to the services and is
    // answered, or has no effect.
    template <class Ask> void expectPlayedOrNot(const Ask& ask, unsigned toTv, unsigned toMm) {
        ask(); // creates objects at first use, and starts what plays from now on
        settle();
        const unsigned tvBefore = receiver.tv.module.sent(), mmBefore = receiver.mm.module.sent();
        unsigned played = 0;
        const long failures = runShortAtEveryAllocation(GetParam(), ask, [&](bool succeeded) {
            if (succeeded) {
                ++played;
                answerAll();
            }
            EXPECT_TRUE(receiver.adapter.bundles().empty());
        });
        EXPECT_GT(failures, 5);
        EXPECT_GE(played, 1U);
        settle();
        EXPECT_EQ(receiver.tv.module.sent() - tvBefore, played * toTv + 1);
        EXPECT_EQ(receiver.mm.module.sent() - mmBefore, played * toMm);
        application->calls = 0;
    }

    Receiver& receiver = Receiver::get();
    const boost::shared_ptr<CountingTvClient> application = boost::make_shared<CountingTvClient>();
};

TEST_P(StartedAdapter, DeliversNotificationsCompletelyOrNotAtAll) {
    support::forEach(support::TvNews{}, [&]<class Message>() { expectDeliveredOrNot<Message>(receiver.tv.module); });
}

TEST_P(StartedAdapter, DeliversTheTvServicesAnswersCompletelyOrNotAtAll) {
    expectDeliveredOrNot<messages::TvServiceInfo>(receiver.tv.module);
}

TEST_P(StartedAdapter, DeliversTheMmServicesAnswersCompletelyOrNotAtAll) {
    expectDeliveredOrNot<mmservice::messages::MmServiceInfo>(receiver.mm.module);
}

TEST_P(StartedAdapter, AcceptsARequestForTheTvServiceCompletelyOrNotAtAll) {
    expectPlayedOrNot([&] { EXPECT_EQ(play({2, 0}, channel), 0); }, 1, 0);
}

TEST_P(StartedAdapter, AcceptsARequestForTheMmServiceCompletelyOrNotAtAll) {
    expectPlayedOrNot([&] { EXPECT_EQ(play({3, 0}, film), 0); }, 1, 2); // both services stop before one starts
}

TEST_P(StartedAdapter, SwitchesThePathCompletelyOrNotAtAll) {
    auto& shell = support::FakeShell::get();
    const auto& command = shell.commands.at("pathswitch :s");
    const auto run = [&] { EXPECT_EQ(command.handler(command.context), 0); };
    shell.run("pathswitch :s", "hdmi");
    expectPlayedOrNot(run, 1, 0);
    shell.run("pathswitch :s", "mm");
    expectPlayedOrNot(run, 1, 2);
}

template <class Message> struct Forwarder;
#define FORWARDER(service, direction, Name, method, ...)                                 \
    template <> struct Forwarder<messages::Name> {                                       \
        [[maybe_unused]] static constexpr auto pointer = &ModelTvServiceAdapter::method; \
    };
TVSERVICE_REQUESTS(FORWARDER)
#undef FORWARDER

TEST_P(StartedAdapter, ForwardsARequestCompletelyOrNotAtAll) {
    settle();
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        if constexpr (!std::is_same_v<Message, messages::TvServiceReq>) { // sent by the resource manager
            frame::MsgIds ids{11, 12};
            const auto arguments = sampleOf<Message>();
            const auto ask = [&] {
                const auto call = [&](const auto&... argument) {
                    return (receiver.adapter.*Forwarder<Message>::pointer)(ids, {}, argument...);
                };
                EXPECT_EQ(std::apply(call, arguments), 0);
            };
            ask(); // creates objects that are kept after the first use
            unsigned sent = receiver.tv.module.sent();
            const Held held;
            const long failures = runShortAtEveryAllocation(GetParam(), ask, [&](bool succeeded) {
                if (succeeded) ++sent;
                EXPECT_EQ(receiver.tv.module.sent(), sent);
                expectHeld(held);
            });
            EXPECT_GT(failures, 0) << "nothing was allocated, so nothing was tested";
        }
    });
}

INSTANTIATE_TEST_SUITE_P(InAll, StartedAdapter, testing::ValuesIn(shortages));

} // namespace
