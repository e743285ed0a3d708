// The proxies' lives, their registries, and the delivery of an answer (proxy_messages_test.cpp has all messages).
#include "app-mmservice-proxy-main.h"
#include "app-tvservice-proxy-main.h"
#include "support/log-texts.h"
#include "support/recording-module.h"
#include "support/wire.h"

#include <frame/process.h>
#include <genrpc/log.h>
#include <host/log-capture.h>
#include <mmservice/messages.h>
#include <tvservice/client-base.h>
#include <tvservice/messages.h>

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

using support::RecordingModule;
using support::textsOf;
using testing::ElementsAre;

namespace {

class TvClient : public tvservice::ClientBase {
public:
    int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override {
        EXPECT_EQ(ids, frame::MsgIds::none);
        ids.sender = 99; // a client's own copy
        lastTransport = transport;
        notifications.push_back(infos);
        if (then) then();
        return -5;
    }
    std::vector<std::vector<tvservice::TvServiceInfo_t>> notifications;
    frame::TransportInfo lastTransport;
    std::function<void()> then;
};

class TvProxy : public testing::Test {
protected:
    TvProxy() { proxy.setOmqIOModule(&module); }
    // Delivers one notification as the framework does.
    int notify(const std::vector<tvservice::TvServiceInfo_t>& infos, const frame::TransportInfo& transport = {}) {
        const support::FlatBody<tvservice::messages::TvServiceInfo> body(std::tuple{infos});
        return tvservice::Proxy::callTvServiceInfo(tvservice::messages::TvServiceInfo::meta, transport, body.get(),
                                                   &proxy);
    }

    RecordingModule module;
    tvservice::Proxy proxy;
    const std::vector<tvservice::TvServiceInfo_t> oneInfo{{{1, 2}, 3, "uri", "uuid", "ancestor", "7"}};
};

TEST_F(TvProxy, SetsItsServiceAndBufferWhenMade) {
    host::LogCapture log{{genrpc::TvProxyLog}};
    tvservice::Proxy made;
    EXPECT_EQ(made.getServiceName(), "tvservice");
    EXPECT_EQ(made.getSendBufferSize(), 16384U);
    EXPECT_THAT(textsOf(log),
                ElementsAre("app-tvservice-proxy-main.cpp:Proxy(): Called.",
                            "app-tvservice-proxy-main.cpp:Proxy(): the buffer size for tvservice is 16384."));
}

TEST_F(TvProxy, AnswersMinusSeventeenAndMinusTwoForClientsThatAreKnownAndUnknown) {
    host::LogCapture log{{genrpc::TvProxyLog}};
    const auto client = boost::make_shared<TvClient>();
    EXPECT_EQ(proxy.addClient(client), 0);
    EXPECT_EQ(proxy.addClient(client), -17);
    EXPECT_EQ(proxy.removeClient(client), 0);
    EXPECT_EQ(proxy.removeClient(client), -2);
    EXPECT_THAT(textsOf(log),
                ElementsAre("app-tvservice-proxy-main.cpp:addClient(): success, 1 total.",
                            "app-tvservice-proxy-main.cpp:addClient(): Client already exists, 1 total.",
                            "app-tvservice-proxy-main.cpp:removeClient(): success, 0 remaining.",
                            "app-tvservice-proxy-main.cpp:removeClient(): client not found (of 0 known ones)"));
}

TEST_F(TvProxy, GivesEveryClientItsOwnRecordInOrderOfRegistration) {
    std::string order;
    const auto first = boost::make_shared<TvClient>(), second = boost::make_shared<TvClient>();
    first->then = [&] { order += "1"; };
    second->then = [&] { order += "2"; };
    proxy.addClient(first);
    proxy.addClient(second);
    EXPECT_EQ(notify(oneInfo, frame::TransportInfo{4, {}}), 0);
    EXPECT_EQ(order, "12");
    EXPECT_THAT(first->notifications, ElementsAre(oneInfo));
    EXPECT_THAT(second->notifications, ElementsAre(oneInfo));
    EXPECT_EQ(second->lastTransport.connection, 4U);
}

TEST_F(TvProxy, DeliversAnEmptyListToEveryClient) {
    const auto client = boost::make_shared<TvClient>();
    proxy.addClient(client);
    notify({});
    EXPECT_THAT(client->notifications, ElementsAre(testing::IsEmpty()));
}

TEST_F(TvProxy, OnlyLogsWithoutClients) {
    host::LogCapture log{{genrpc::TvProxyLog}};
    EXPECT_EQ(notify(oneInfo), 0);
    EXPECT_THAT(textsOf(log), ElementsAre("app-tvservice-proxy-main.cpp:callTvServiceInfo(): Eneter",
                                          "app-tvservice-proxy-main.cpp:callTvServiceInfo(): Exit"));
}

TEST_F(TvProxy, GoesOnWithItsCopyWhenAClientRemovesItselfOrSends) {
    const auto first = boost::make_shared<TvClient>(), second = boost::make_shared<TvClient>();
    proxy.addClient(first);
    proxy.addClient(second);
    first->then = [&] {
        proxy.removeClient(first);
        frame::MsgIds ids;
        proxy.tvServiceReq(ids, {}, {});
    };
    notify(oneInfo);
    notify(oneInfo);
    EXPECT_EQ(first->notifications.size(), 1U);
    EXPECT_EQ(second->notifications.size(), 2U);
}

TEST_F(TvProxy, LetsAClientsExceptionOutAndServesOn) {
    const auto first = boost::make_shared<TvClient>(), second = boost::make_shared<TvClient>();
    proxy.addClient(first);
    proxy.addClient(second);
    first->then = [] { throw std::runtime_error("client"); };
    EXPECT_THROW(notify(oneInfo), std::runtime_error);
    EXPECT_TRUE(second->notifications.empty());
    first->then = nullptr;
    notify(oneInfo);
    EXPECT_EQ(second->notifications.size(), 1U);
}

class MmClient : public mmservice::ClientInterface {
public:
    int mmServiceInfo(frame::MsgIds& ids, const frame::TransportInfo&,
                      const std::vector<mmservice::MMServiceInfo_t>& infos) override {
        EXPECT_EQ(ids, frame::MsgIds::none);
        notifications.push_back(infos);
        return 0;
    }
    std::vector<std::vector<mmservice::MMServiceInfo_t>> notifications;
};

TEST(MmProxy, SendsItsRequestAndDeliversTheAnswer) {
    RecordingModule module;
    mmservice::Proxy proxy;
    proxy.setOmqIOModule(&module);
    EXPECT_EQ(proxy.getServiceName(), "mmservice");
    frame::MsgIds ids;
    const std::vector<mmservice::MMServiceReq_t> requests{{{1, 2}, 3, 4, 5, "uri", "uuid", "two", {"x"}, "7", "three"}};
    EXPECT_EQ(proxy.mmServiceReq(ids, {}, requests), 0);
    EXPECT_EQ(module.sent.front().meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7773, 0x28671236, 0}));
    EXPECT_EQ(module.sent.front().table, mmservice::messages::MmServiceReq::table());
    EXPECT_EQ(module.sent.front().wire, support::wireOf<mmservice::messages::MmServiceReq>({requests}));

    EXPECT_EQ(proxy.registerMessageHandlers(), 0);
    EXPECT_EQ(module.bound.front().meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7774, 0x28671237, 1}));
    const auto client = boost::make_shared<MmClient>();
    EXPECT_EQ(proxy.addClient(client), 0);
    EXPECT_EQ(proxy.addClient(client), -17);
    const std::vector<mmservice::MMServiceInfo_t> infos{{{1, 2}, 3, "uri", "uuid", "ancestor", "7"}};
    host::LogCapture log{{genrpc::MmProxyLog}};
    const support::FlatBody<mmservice::messages::MmServiceInfo> body(std::tuple{infos});
    module.bound.front().handler(module.bound.front().meta, {}, body.get(), module.bound.front().context);
    EXPECT_THAT(client->notifications, ElementsAre(infos));
    EXPECT_THAT(textsOf(log), ElementsAre("app-mmservice-proxy-main.cpp:callMmServiceInfo(): Eneter",
                                          "app-mmservice-proxy-main.cpp:callMmServiceInfo(): Exit"));
    EXPECT_EQ(proxy.removeClient(client), 0);
    EXPECT_EQ(proxy.removeClient(client), -2);
}

// Whether a key is registered in this process.
bool registered(const char* key) {
    boost::shared_ptr<frame::Interface> reference;
    return frame::Process::getInstance()->getInterfaceReference(reference, key) == 0;
}

TEST(ProxyLifecycle, RegistersTheInterfaceInSetUpAndOnlyTheMmProxyTakesItBack) {
    auto* tv = new tvservice::Proxy;
    auto* mm = new mmservice::Proxy;
    for (frame::AbstractMarshallingImpl* proxy :
         {static_cast<frame::AbstractMarshallingImpl*>(tv), static_cast<frame::AbstractMarshallingImpl*>(mm)}) {
        EXPECT_LT(proxy->setupDone(), 0) << "not attached";
        ASSERT_EQ(proxy->attachProcess(*frame::Process::getInstance()), 0);
    }
    EXPECT_FALSE(registered(tvservice::ServiceInterface::interfaceKey));
    EXPECT_EQ(tv->setupDone(), 0);
    EXPECT_EQ(mm->setupDone(), 0);
    boost::shared_ptr<frame::Interface> reference;
    frame::Process::getInstance()->getInterfaceReference(reference, tvservice::ServiceInterface::interfaceKey);
    EXPECT_EQ(reference->get<tvservice::ServiceInterface>(), static_cast<tvservice::ServiceInterface*>(tv));
    {
        host::LogCapture log{{genrpc::TvProxyLog}};
        EXPECT_EQ(tv->setupDone(), -17);
        EXPECT_TRUE(log.waitFor("performSetupDone(): Unable to register interface: -17.", std::chrono::seconds(0)));
    }
    delete tv;
    delete mm;
    EXPECT_TRUE(registered(tvservice::ServiceInterface::interfaceKey));
    EXPECT_FALSE(registered(mmservice::ServiceInterface::interfaceKey));
}

TEST(ProxyEntries, MakeOneProxyEachInATerminatedArray) {
    for (auto* create : {CreateTvServiceProxy, CreateMMServiceProxy}) {
        void** members = create();
        ASSERT_NE(members[0], nullptr);
        EXPECT_EQ(members[1], nullptr);
        delete static_cast<frame::AbstractProcessMember*>(members[0]);
        std::free(members);
    }
}

} // namespace
