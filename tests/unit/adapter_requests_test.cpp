// What the adapter passes from applications to the TV service and back, and how it starts when services are missing.
#include "client-objects.h"
#include "support/adapter-process.h"
#include "support/log-texts.h"
#include "support/tv-messages.h"

#include <genrpc/log.h>
#include <host/log-capture.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <schema/samples.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using namespace tvservice;
using support::ownLinesOf;
using support::textsOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const frame::TransportInfo transport{5, {6, 7}};

template <class Message> auto sampleOf() { return schema::Samples().next<typename Message::Body::Arguments>(); }

// Expects one call of this message, with its sample, the caller's ids and the transport above.
template <class Message> void expectOneCall(const support::Recorder& recorder) {
    ASSERT_THAT(recorder.calls, SizeIs(1));
    const support::Call& call = recorder.calls.front();
    EXPECT_EQ(call.message, Message::name);
    EXPECT_EQ(call.arguments, std::apply([](const auto&... args) { return genrpc::argumentsToJson<Message>(args...); },
                                         sampleOf<Message>()));
    EXPECT_EQ(call.ids, (frame::MsgIds{11, 12}));
    EXPECT_EQ(call.transport, transport);
}

// ---- the adapter's client object ----

// Gives this test the object's private mutex.
template <auto Member> struct Reveal {
    friend std::mutex& clientMutexOf(TvServiceClient& object) { return object.*Member; }
};
std::mutex& clientMutexOf(TvServiceClient& object);
template struct Reveal<&TvServiceClient::clientMutex>;

// Whether a thread other than this one could register a client now.
bool isFree(TvServiceClient& object) {
    bool free = false;
    std::thread([&] {
        std::mutex& mutex = clientMutexOf(object);
        free = mutex.try_lock();
        if (free) mutex.unlock();
    }).join();
    return free;
}

class EveryNotification : public testing::Test {
protected:
    EveryNotification() {
        for (auto& client : clients) {
            client = boost::make_shared<support::RecordingTvClient>();
            client->result = -5;
        }
    }
    void addAll() {
        for (const auto& client : clients) object.addClient(client);
    }
    template <class Message> int deliver() {
        for (const auto& client : clients) client->calls.clear();
        frame::MsgIds ids{11, 12};
        return support::call<Message, ClientInterface>(object, ids, transport, sampleOf<Message>());
    }

    boost::shared_ptr<support::RecordingTvClient> clients[3];
    TvServiceClient object;
};

TEST_F(EveryNotification, ReachesEveryClientUnchangedAndIsNotLogged) {
    addAll();
    const host::LogCapture log{{genrpc::AdapterLog, genrpc::ManagerLog}};
    support::forEach(support::TvNews{}, [&]<class Message>() {
        EXPECT_EQ(deliver<Message>(), 0) << "regardless of the clients' results";
        for (const auto& client : clients) expectOneCall<Message>(*client);
    });
    EXPECT_THAT(textsOf(log), IsEmpty());
}

TEST_F(EveryNotification, ReachesNoClientThatWasRemoved) {
    addAll();
    for (const auto& client : clients) EXPECT_EQ(object.removeClient(client), 0);
    support::forEach(support::TvNews{}, [&]<class Message>() {
        EXPECT_EQ(deliver<Message>(), 0);
        for (const auto& client : clients) EXPECT_THAT(client->calls, IsEmpty());
    });
}

TEST_F(EveryNotification, LocksTheRegistryWhileItCallsTheClients) {
    object.addClient(clients[0]);
    clients[0]->then = [&](frame::MsgIds&) { EXPECT_FALSE(isFree(object)); };
    support::forEach(support::TvNews{}, [&]<class Message>() {
        deliver<Message>();
        EXPECT_TRUE(isFree(object));
    });
    frame::MsgIds ids;
    object.tvServiceInfocb(ids, transport, {});
    EXPECT_TRUE(isFree(object));
}

TEST_F(EveryNotification, StopsAtAClientThatThrowsAndReleasesTheLock) {
    addAll();
    clients[1]->then = [](frame::MsgIds&) { throw std::runtime_error("client"); };
    support::forEach(support::TvNews{}, [&]<class Message>() {
        EXPECT_THROW(deliver<Message>(), std::runtime_error);
        expectOneCall<Message>(*clients[0]);
        EXPECT_THAT(clients[2]->calls, IsEmpty());
        EXPECT_TRUE(isFree(object));
    });
}

// ---- requests ----

template <class Message> struct Forwarder;
#define FORWARDER(service, direction, Name, method, ...)                                 \
    template <> struct Forwarder<messages::Name> {                                       \
        [[maybe_unused]] static constexpr auto pointer = &ModelTvServiceAdapter::method; \
    };
TVSERVICE_REQUESTS(FORWARDER)
#undef FORWARDER

using TvService = support::RegisteredTvService;
using MmService = support::RegisteredMmService;
using support::newAdapter;

class EveryRequest : public testing::Test {
protected:
    EveryRequest() { EXPECT_EQ(adapter.start(), 0); }
    template <class Message> int request() {
        service.calls.clear();
        return std::apply(
            [&](const auto&... args) { return (adapter.*Forwarder<Message>::pointer)(ids, transport, args...); },
            sampleOf<Message>());
    }
    template <class Message> static constexpr bool isForwarded = !std::is_same_v<Message, messages::TvServiceReq>;

    TvService service;
    MmService otherService;
    ModelTvServiceAdapter& adapter = newAdapter();
    frame::MsgIds ids{11, 12};
};

TEST_F(EveryRequest, IsPassedUnchangedToTheTvServiceAndReturnsItsResult) {
    service.result = -42;
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        if constexpr (isForwarded<Message>) {
            EXPECT_EQ(request<Message>(), -42);
            expectOneCall<Message>(service);
        }
    });
}

TEST_F(EveryRequest, PassesTheCallersIdsToTheService) {
    service.then = [this](frame::MsgIds& seen) { EXPECT_EQ(&seen, &ids); };
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        if constexpr (isForwarded<Message>) request<Message>();
    });
}

TEST_F(EveryRequest, LogsOneLineExceptForThreeThatLogNone) {
    const std::vector<std::string> silent{"setCasService", "requestPackagesReq", "tvServiceSourceChanged"};
    std::size_t logged = 0;
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        if constexpr (isForwarded<Message>) {
            const std::string method = support::Method<Message>::name;
            const host::LogCapture log{{genrpc::AdapterLog}};
            request<Message>();
            if (std::find(silent.begin(), silent.end(), method) != silent.end()) {
                EXPECT_THAT(textsOf(log), IsEmpty());
            } else {
                EXPECT_THAT(textsOf(log), ElementsAre("tvservice-adapter.cpp:" + method + "(): Called."));
                EXPECT_EQ(ownLinesOf(log)[0].levelWord, genrpc::AdapterLog * 65536U + vdlDebugTrace);
                ++logged;
            }
        }
    });
    EXPECT_EQ(logged, support::TvRequests::size - silent.size() - 1)
        << "all requests but the silent ones and the play request";
}

TEST_F(EveryRequest, ToPlayGoesToTheResourceManager) {
    const host::LogCapture log{{genrpc::AdapterLog, genrpc::ManagerLog}};
    EXPECT_EQ(adapter.tvServiceReq(ids, transport, {}), 0);
    EXPECT_THAT(textsOf(log), ElementsAre("tvservice-adapter.cpp:tvServiceReq(): Called.",
                                          "resource-manager.cpp:tvServiceReq(): Called"));
    EXPECT_EQ(ownLinesOf(log)[0].levelWord, genrpc::AdapterLog * 65536U + vdlDebugTrace);
    EXPECT_THAT(service.calls, IsEmpty());
}

// ---- answers ----

TEST_F(EveryNotification, IsDeliveredByTheClientObjectUnlessItIsAnAnswer) {
    addAll();
    const host::LogCapture log{{genrpc::AdapterLog}};
    EXPECT_EQ(deliver<messages::TvServiceInfo>(), 0);
    for (const auto& client : clients)
        EXPECT_THAT(client->calls, IsEmpty()) << "no manager is connected to this object";
    EXPECT_THAT(textsOf(log), ElementsAre("tvservice-adapter.cpp:tvServiceInfo(): Called."));
}

const std::vector<TvServiceInfo_t> threeAnswers{{{1, 2}, 0, "uri 1", "uuid 1", "ancestor 1", "none under way"},
                                                {{3, 4}, -5, "uri 2", "uuid 2", "ancestor 2", "second"},
                                                {{5, 6}, 7, "uri 3", "uuid 3", "ancestor 3", "third"}};

// The three answers as the manager delivers them to a client.
void expectThreeAnswers(const support::Call& call) {
    EXPECT_EQ(call.message, messages::TvServiceInfo::name);
    EXPECT_EQ(call.arguments, genrpc::argumentsToJson<messages::TvServiceInfo>(threeAnswers));
    EXPECT_EQ(call.ids, (frame::MsgIds{11, 12}));
    EXPECT_EQ(call.transport, transport);
}

class EveryAnswer : public EveryRequest {
protected:
    EveryAnswer() { EXPECT_EQ(adapter.addClient(application), 0); }
    const boost::shared_ptr<support::RecordingTvClient> application = boost::make_shared<support::RecordingTvClient>();
};

TEST_F(EveryAnswer, OfTheTvServiceReachesTheClientsThroughTheManager) {
    const host::LogCapture log{{genrpc::AdapterLog, genrpc::ManagerLog}};
    EXPECT_EQ(service.clients.back()->tvServiceInfo(ids, transport, threeAnswers), 0);
    ASSERT_THAT(application->calls, SizeIs(1));
    expectThreeAnswers(application->calls[0]);
    const auto lines = textsOf(log);
    ASSERT_THAT(lines, SizeIs(testing::Ge(2U)));
    EXPECT_EQ(lines[0], "tvservice-adapter.cpp:tvServiceInfo(): Called.");
    EXPECT_EQ(lines[1], "resource-manager.cpp:tvServiceInfo(): Called");
}

TEST_F(EveryAnswer, OfTheMmServiceReachesTheManagerAsTheTvServicesRecords) {
    std::vector<mmservice::MMServiceInfo_t> infos;
    infos.reserve(threeAnswers.size());
    for (const auto& info : threeAnswers)
        infos.push_back(
            {{info.terminal.type, info.terminal.id}, info.result, info.uri, info.uuid, info.uuidAncestor, info.reqId});
    const host::LogCapture log{{genrpc::AdapterLog, genrpc::ManagerLog}};
    EXPECT_EQ(otherService.clients.back()->mmServiceInfo(ids, transport, infos), 0);
    ASSERT_THAT(application->calls, SizeIs(1));
    expectThreeAnswers(application->calls[0]);
    const auto lines = textsOf(log);
    ASSERT_THAT(lines, SizeIs(testing::Ge(2U)));
    EXPECT_EQ(lines[0], "tvservice-adapter.cpp:mmServiceInfo(): Called mmServiceInfo size 3.");
    EXPECT_EQ(lines[1], "resource-manager.cpp:tvServiceInfo(): Called");
}

static_assert(std::is_base_of_v<frame::AbstractApplication, ModelTvServiceAdapter>);
static_assert(!std::is_base_of_v<ServiceInterface, ModelTvServiceAdapter>);

// ---- starting ----

TEST(AdapterStart, CreatesOnlyTheMmClientWithoutTheTvService) {
    MmService mm;
    auto& adapter = newAdapter();
    const host::LogCapture log{{genrpc::AdapterLog}};
    EXPECT_EQ(adapter.start(), 0);
    EXPECT_THAT(mm.clients, SizeIs(1));
    const auto lines = textsOf(log);
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_EQ(lines[0], "tvservice-adapter.cpp:performStarting(): Called.");
    EXPECT_EQ(lines[1], "tvservice-adapter.cpp:performStarting(): Unable to lookup tvservice-interface: -2.");
    EXPECT_THAT(lines[2],
                testing::StartsWith("tvservice-adapter.cpp:performStarting(): mmservice-interface pointer = "));
}

TEST(AdapterStart, CreatesOnlyTheTvClientWithoutTheMmService) {
    TvService tv;
    auto& adapter = newAdapter();
    const host::LogCapture log{{genrpc::AdapterLog}};
    EXPECT_EQ(adapter.start(), 0);
    EXPECT_THAT(tv.clients, SizeIs(1));
    const auto lines = textsOf(log);
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_THAT(lines[1],
                testing::StartsWith("tvservice-adapter.cpp:performStarting(): tvservice-interface pointer = "));
    EXPECT_EQ(lines[2], "tvservice-adapter.cpp:performStarting(): Unable to lookup mmservice-interface: -2.");

    const auto application = boost::make_shared<support::RecordingTvClient>();
    EXPECT_EQ(adapter.addClient(application), 0);
    frame::MsgIds ids{11, 12};
    tv.clients[0]->tvServiceInfo(ids, transport, threeAnswers);
    ASSERT_THAT(application->calls, SizeIs(1)) << "the application receives answers";
    expectThreeAnswers(application->calls[0]);
}

TEST(AdapterStart, LooksUpTheTvServiceFirst) {
    TvService tv;
    MmService mm;
    auto& adapter = newAdapter();
    const host::LogCapture log{{genrpc::AdapterLog}};
    EXPECT_EQ(adapter.start(), 0);
    const std::string place = "tvservice-adapter.cpp:performStarting(): ";
    EXPECT_THAT(textsOf(log),
                ElementsAre(place + "Called.", testing::StartsWith(place + "tvservice-interface pointer = "),
                            testing::StartsWith(place + "mmservice-interface pointer = ")));
}

TEST(AdapterStart, CreatesOnlyNewClientObjectsTheSecondTime) {
    TvService tv;
    MmService mm;
    auto& adapter = newAdapter();
    EXPECT_EQ(adapter.start(), 0);
    const auto application = boost::make_shared<support::RecordingTvClient>();
    EXPECT_EQ(adapter.addClient(application), 0);
    EXPECT_EQ(adapter.stop(), 0);
    const int registrations = support::FakeShell::get().registrations;
    const host::LogCapture log{{genrpc::AdapterLog, genrpc::RegistrarLog}};
    EXPECT_EQ(adapter.start(), 0);
    EXPECT_THAT(textsOf(log), ElementsAre("tvservice-adapter.cpp:performStarting(): Called."));
    EXPECT_EQ(support::FakeShell::get().registrations, registrations);
    EXPECT_THAT(mm.clients, SizeIs(2));
    ASSERT_THAT(tv.clients, SizeIs(2));
    EXPECT_NE(tv.clients[0], tv.clients[1]);
    EXPECT_EQ(adapter.addClient(application), 0) << "the new registry is empty";
    frame::MsgIds ids;
    for (const auto& client : tv.clients) client->tvServiceFoundNewOadPacket(ids, transport, 1);
    EXPECT_THAT(application->calls, SizeIs(2)) << "one answer per start";
    application->calls.clear();
    tv.clients[1]->tvServiceInfo(ids, transport, threeAnswers);
    EXPECT_THAT(application->calls, SizeIs(2)) << "an answer as well";
}

} // namespace
