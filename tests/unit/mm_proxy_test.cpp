// The MM service's proxy: sending its request and delivering the answer.
#include "app-mmservice-proxy-main.h"
#include "support/log-texts.h"
#include "support/recording-module.h"
#include "support/wire.h"

#include <genrpc/log.h>
#include <mmservice/messages.h>

#include <boost/make_shared.hpp>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <schema/samples.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace mmservice;
using support::textsOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Infos = std::vector<MMServiceInfo_t>;
using Requests = std::vector<MMServiceReq_t>;

class Client : public ClientInterface {
public:
    int mmServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport, const Infos& infos) override {
        EXPECT_EQ(ids, frame::MsgIds::none);
        ids = {9, 9}; // the client may change its own copy, as it may change the list
        received.push_back(infos);
        const_cast<Infos&>(infos).clear();
        lastTransport = transport;
        if (then) then();
        return -5;
    }
    std::vector<Infos> received;
    frame::TransportInfo lastTransport;
    std::function<void()> then;
};

class MmProxy : public testing::Test {
protected:
    MmProxy() {
        proxy.setOmqIOModule(&module);
        for (auto& client : clients) client = boost::make_shared<Client>();
    }
    void addAll() {
        for (const auto& client : clients) EXPECT_EQ(proxy.addClient(client), 0);
    }
    // Delivers an answer as the framework does, to the bound handler.
    int notify(const Infos& infos) {
        if (module.bound.empty()) proxy.registerMessageHandlers();
        const auto& bound = module.bound.front();
        const support::FlatBody<messages::MmServiceInfo> body(std::tuple{infos});
        return bound.handler(bound.meta, transport, body.get(), bound.context);
    }

    const frame::TransportInfo transport{4, {5, 6}};
    const Infos infos = schema::Samples().next<Infos>();
    const Requests requests = schema::Samples().next<Requests>();
    frame::MsgIds ids{11, 12};
    support::RecordingModule module;
    Proxy proxy;
    boost::shared_ptr<Client> clients[3];
};

TEST_F(MmProxy, SetsItsServiceAndBufferOnConstruction) {
    const host::LogCapture log{{genrpc::MmProxyLog}};
    const Proxy made;
    EXPECT_EQ(made.getServiceName(), "mmservice");
    EXPECT_EQ(made.getSendBufferSize(), 16384U);
    EXPECT_EQ(made.getMessageSet().messages, mmservice::messageSet().messages);
    EXPECT_EQ(made.getMessageSet().count, mmservice::messageSet().count);
    EXPECT_THAT(textsOf(log),
                ElementsAre("app-mmservice-proxy-main.cpp:Proxy(): Called.",
                            "app-mmservice-proxy-main.cpp:Proxy(): the buffer size for mmservice is 16384."));
}

TEST_F(MmProxy, SendsItsRequestWithTheCallersIdsAndWithoutItsTransport) {
    const host::LogCapture log{{genrpc::MmProxyLog}};
    EXPECT_EQ(proxy.mmServiceReq(ids, transport, requests), 0) << "regardless of the module's result";
    ASSERT_THAT(module.sent, SizeIs(1));
    const auto& sent = module.sent.front();
    EXPECT_EQ(sent.ids, (frame::MsgIds{11, 12}));
    EXPECT_EQ(sent.meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7773, 0x28671236, 0}));
    EXPECT_FALSE(sent.hasTransport);
    EXPECT_EQ(sent.table, messages::MmServiceReq::table());
    EXPECT_EQ(messages::MmServiceReq::Body::read(support::received(*sent.table, sent.wire, false).get()),
              std::tuple{requests});
    EXPECT_THAT(textsOf(log), ElementsAre("app-mmservice-proxy-main.cpp:mmServiceReq(): Called."));
}

TEST_F(MmProxy, SendsAnEmptyListAsCountZeroWithoutAnArray) {
    EXPECT_EQ(proxy.mmServiceReq(ids, transport, {}), 0);
    ASSERT_THAT(module.sent, SizeIs(1));
    EXPECT_EQ(module.sent.front().wire, std::string(8, '\0'));
}

TEST_F(MmProxy, KeepsTheRequestsMemoryUntilALaterCompletionOnAnotherThread) {
    module.holds = true;
    for (const Requests& list : {requests, Requests{}}) {
        const auto before = host::flatHeapUsage().blocks;
        module.held.clear();
        EXPECT_EQ(proxy.mmServiceReq(ids, transport, list), 0);
        ASSERT_THAT(module.held, SizeIs(1));
        EXPECT_GT(host::flatHeapUsage().blocks, before);
        std::thread(module.held.front()).join();
        EXPECT_EQ(host::flatHeapUsage().blocks, before);
    }
}

TEST_F(MmProxy, BindsItsOneNotification) {
    EXPECT_EQ(proxy.registerMessageHandlers(), 0) << "regardless of the module's result";
    ASSERT_THAT(module.bound, SizeIs(1));
    EXPECT_EQ(module.bound[0].meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7774, 0x28671237, 1}));
    EXPECT_EQ(module.bound[0].context, &proxy);
    EXPECT_EQ(module.bound[0].table, messages::MmServiceInfo::table());
}

TEST_F(MmProxy, ReturnsMinusSeventeenForDuplicateAndMinusTwoForUnknownClients) {
    const host::LogCapture log{{genrpc::MmProxyLog}};
    EXPECT_EQ(proxy.addClient(clients[0]), 0);
    EXPECT_EQ(proxy.addClient(clients[0]), -17);
    EXPECT_EQ(proxy.removeClient(clients[0]), 0);
    EXPECT_EQ(proxy.removeClient(clients[0]), -2);
    EXPECT_THAT(textsOf(log),
                ElementsAre("app-mmservice-proxy-main.cpp:addClient(): success, 1 total.",
                            "app-mmservice-proxy-main.cpp:addClient(): Client already exists, 1 total.",
                            "app-mmservice-proxy-main.cpp:removeClient(): success, 0 remaining.",
                            "app-mmservice-proxy-main.cpp:removeClient(): client not found (of 0 known ones)"));
}

TEST_F(MmProxy, TreatsPointersWithDifferentOwnersToOneObjectAsOneClient) {
    const host::LogCapture log; // hides expected warnings
    Client client;
    const auto pointer = [&] { return boost::shared_ptr<Client>(&client, [](Client*) {}); };
    EXPECT_EQ(proxy.addClient(pointer()), 0);
    EXPECT_EQ(proxy.addClient(pointer()), -17);
    EXPECT_EQ(proxy.removeClient(pointer()), 0);
    EXPECT_EQ(proxy.removeClient(pointer()), -2);
}

TEST_F(MmProxy, OnlyLogsWithoutClients) {
    EXPECT_EQ(proxy.registerMessageHandlers(), 0);
    const host::LogCapture log{{genrpc::MmProxyLog}};
    EXPECT_EQ(notify(infos), 0);
    EXPECT_THAT(textsOf(log), ElementsAre("app-mmservice-proxy-main.cpp:callMmServiceInfo(): Eneter",
                                          "app-mmservice-proxy-main.cpp:callMmServiceInfo(): Exit"));
}

TEST_F(MmProxy, GivesEachClientItsOwnListInTheOrderOfRegistration) {
    std::string order;
    for (std::size_t i = 0; i < 3; ++i) clients[i]->then = [&order, i] { order += std::to_string(i); };
    addAll();
    EXPECT_EQ(notify(infos), 0) << "regardless of the clients' results";
    EXPECT_EQ(order, "012");
    for (const auto& client : clients) {
        EXPECT_THAT(client->received, ElementsAre(infos));
        EXPECT_EQ(client->lastTransport, transport);
    }
    EXPECT_EQ(frame::MsgIds::none, frame::MsgIds{});
}

TEST_F(MmProxy, DeliversAnEmptyListToEveryClient) {
    addAll();
    EXPECT_EQ(notify({}), 0);
    for (const auto& client : clients) EXPECT_THAT(client->received, ElementsAre(IsEmpty()));
}

TEST_F(MmProxy, ContinuesWithItsCopyWhenAClientRemovesItselfOrSends) {
    addAll();
    clients[1]->then = [&] {
        EXPECT_EQ(proxy.removeClient(clients[1]), 0);
        EXPECT_EQ(proxy.mmServiceReq(ids, {}, requests), 0);
    };
    notify(infos);
    notify(infos);
    EXPECT_THAT(clients[0]->received, SizeIs(2));
    EXPECT_THAT(clients[1]->received, SizeIs(1));
    EXPECT_THAT(clients[2]->received, SizeIs(2));
    EXPECT_THAT(module.sent, SizeIs(1));
}

TEST_F(MmProxy, PropagatesAClientsExceptionAndRemainsUsable) {
    addAll();
    clients[1]->then = [] { throw std::runtime_error("client"); };
    EXPECT_THROW(notify(infos), std::runtime_error);
    EXPECT_THAT(clients[0]->received, SizeIs(1));
    EXPECT_THAT(clients[2]->received, IsEmpty());
    EXPECT_EQ(clients[2].use_count(), 2) << "the handler has released its copy of the list";
    clients[1]->then = nullptr;
    EXPECT_EQ(notify(infos), 0);
    EXPECT_THAT(clients[2]->received, ElementsAre(infos));
}

TEST_F(MmProxy, LeavesTheMessageUnchanged) {
    addAll();
    EXPECT_EQ(proxy.registerMessageHandlers(), 0);
    const support::FlatBody<messages::MmServiceInfo> body(std::tuple{infos});
    const auto blocks = host::flatHeapUsage().blocks;
    Proxy::callMmServiceInfo(messages::MmServiceInfo::meta, transport, body.get(), &proxy);
    EXPECT_EQ(messages::MmServiceInfo::Body::read(body.get()), std::tuple{infos});
    EXPECT_EQ(host::flatHeapUsage().blocks, blocks);
}

} // namespace
