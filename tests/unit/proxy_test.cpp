// The proxies' life cycles, their registries, and the delivery of an answer. proxy_messages_test.cpp has all messages,
// mm_proxy_test.cpp those of the MM service.
#include "app-mmservice-proxy-main.h"
#include "app-tvservice-proxy-main.h"
#include "support/log-texts.h"
#include "support/recording-module.h"
#include "support/wire.h"

#include <frame/process.h>
#include <genrpc/log.h>
#include <host/log-capture.h>
#include <tvservice/client-base.h>
#include <tvservice/messages.h>

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

using support::RecordingModule;
using support::textsOf;
using testing::ElementsAre;

namespace {

class TvClient : public tvservice::ClientBase {
public:
    int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override {
        notifications.push_back(infos);
        if (then) then();
        return -5;
    }
    std::vector<std::vector<tvservice::TvServiceInfo_t>> notifications;
    std::function<void()> then;
};

class TvProxy : public testing::Test {
protected:
    TvProxy() { proxy.setOmqIOModule(&module); }
    // Delivers a notification as the framework does.
    int notify(const std::vector<tvservice::TvServiceInfo_t>& infos) {
        const support::FlatBody<tvservice::messages::TvServiceInfo> body(std::tuple{infos});
        return tvservice::Proxy::callTvServiceInfo(tvservice::messages::TvServiceInfo::meta, {}, body.get(), &proxy);
    }

    RecordingModule module;
    tvservice::Proxy proxy;
    const std::vector<tvservice::TvServiceInfo_t> oneInfo{{{1, 2}, 3, "uri", "uuid", "ancestor", "7"}};
};

TEST_F(TvProxy, SetsItsServiceAndBufferOnConstruction) {
    host::LogCapture log{{genrpc::TvProxyLog}};
    tvservice::Proxy made;
    EXPECT_EQ(made.getServiceName(), "tvservice");
    EXPECT_EQ(made.getSendBufferSize(), 16384U);
    EXPECT_EQ(made.getMessageSet().messages, tvservice::messageSet().messages);
    EXPECT_EQ(made.getMessageSet().count, tvservice::messageSet().count);
    EXPECT_THAT(textsOf(log),
                ElementsAre("app-tvservice-proxy-main.cpp:Proxy(): Called.",
                            "app-tvservice-proxy-main.cpp:Proxy(): the buffer size for tvservice is 16384."));
}

TEST_F(TvProxy, ReturnsMinusSeventeenForDuplicateAndMinusTwoForUnknownClients) {
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

TEST_F(TvProxy, TreatsPointersWithDifferentOwnersToOneObjectAsOneClient) {
    const host::LogCapture log; // hides expected warnings
    TvClient client;
    const auto pointer = [&] { return boost::shared_ptr<TvClient>(&client, [](TvClient*) {}); };
    EXPECT_EQ(proxy.addClient(pointer()), 0);
    EXPECT_EQ(proxy.addClient(pointer()), -17);
    EXPECT_EQ(proxy.removeClient(pointer()), 0);
    EXPECT_EQ(proxy.removeClient(pointer()), -2);
}

TEST_F(TvProxy, DeliversAnEmptyListToEveryClient) {
    const auto client = boost::make_shared<TvClient>();
    proxy.addClient(client);
    notify({});
    EXPECT_THAT(client->notifications, ElementsAre(testing::IsEmpty()));
}

TEST_F(TvProxy, ContinuesWithItsCopyWhenAClientRemovesItselfOrSends) {
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
    EXPECT_THAT(first->notifications, ElementsAre(oneInfo));
    EXPECT_THAT(second->notifications, ElementsAre(oneInfo, oneInfo));
    EXPECT_EQ(module.sent.size(), 1U);
}

// Whether a key is registered in this process.
bool registered(const char* key) {
    boost::shared_ptr<frame::Interface> reference;
    return frame::Process::getInstance()->getInterfaceReference(reference, key) == 0;
}

// The behaviour that both proxies share.
template <class P, class I, genrpc::LogModule number> struct Kind {
    using Proxy = P;
    using Interface = I;
    static constexpr genrpc::LogModule module = number;
    static std::string place() {
        return number == genrpc::TvProxyLog ? "app-tvservice-proxy-main.cpp:" : "app-mmservice-proxy-main.cpp:";
    }
};
template <class> class ProxyLifecycle : public testing::Test {};
using Kinds = testing::Types<Kind<tvservice::Proxy, tvservice::ServiceInterface, genrpc::TvProxyLog>,
                             Kind<mmservice::Proxy, mmservice::ServiceInterface, genrpc::MmProxyLog>>;
struct KindName {
    template <class K> static std::string GetName(int) { return K::module == genrpc::TvProxyLog ? "Tv" : "Mm"; }
};
TYPED_TEST_SUITE(ProxyLifecycle, Kinds, KindName);

TYPED_TEST(ProxyLifecycle, ReportsThatItsBaseFailsAndRegistersNothing) {
    typename TypeParam::Proxy detached;
    const std::string place = TypeParam::place();
    const auto expectFailure = [&](int (frame::AbstractProcessMember::*operation)(), const std::string& name) {
        const host::LogCapture log{{TypeParam::module}};
        EXPECT_EQ((detached.*operation)(), -107);
        EXPECT_THAT(textsOf(log), ElementsAre(place + name + "(): Called.",
                                              place + name + "(): Parent class " + name + "() returned -107."));
        EXPECT_FALSE(registered(TypeParam::Interface::interfaceKey));
    };
    expectFailure(&frame::AbstractProcessMember::setupDone, "performSetupDone");
    expectFailure(&frame::AbstractProcessMember::start, "performStarting");
    expectFailure(&frame::AbstractProcessMember::stop, "performStopping");
}

TYPED_TEST(ProxyLifecycle, LogsItsDestruction) {
    auto proxy = std::make_unique<typename TypeParam::Proxy>();
    const host::LogCapture log{{TypeParam::module}};
    proxy.reset();
    EXPECT_THAT(textsOf(log), ElementsAre(TypeParam::place() + "~Proxy(): Called."));
}

TYPED_TEST(ProxyLifecycle, RegistersItsInterfaceAndReportsThatTheKeyIsTaken) {
    using Interface = typename TypeParam::Interface;
    auto proxy = std::make_unique<typename TypeParam::Proxy>();
    ASSERT_EQ(proxy->attachProcess(*frame::Process::getInstance()), 0);
    EXPECT_FALSE(registered(Interface::interfaceKey));
    EXPECT_EQ(proxy->setupDone(), 0);
    EXPECT_EQ(proxy->start(), 0);
    EXPECT_EQ(proxy->stop(), 0);
    boost::shared_ptr<frame::Interface> reference;
    ASSERT_EQ(frame::Process::getInstance()->getInterfaceReference(reference, Interface::interfaceKey), 0);
    EXPECT_EQ(reference->get<Interface>(), static_cast<Interface*>(proxy.get())) << "even after it has stopped";
    {
        typename TypeParam::Proxy second;
        ASSERT_EQ(second.attachProcess(*frame::Process::getInstance()), 0);
        const host::LogCapture log{{TypeParam::module}};
        EXPECT_EQ(second.setupDone(), -17);
        EXPECT_THAT(textsOf(log),
                    testing::Contains(TypeParam::place() + "performSetupDone(): Unable to register interface: -17."));
        second.detachProcess();
    }
    EXPECT_TRUE(registered(Interface::interfaceKey));
    EXPECT_EQ(proxy->detachProcess(), 0);
    EXPECT_FALSE(registered(Interface::interfaceKey));
}

TEST(ProxyDestruction, UnregistersOnlyTheMmProxysInterface) {
    auto* tv = new tvservice::Proxy;
    auto* mm = new mmservice::Proxy;
    for (frame::AbstractProcessMember* proxy : std::initializer_list<frame::AbstractProcessMember*>{tv, mm}) {
        ASSERT_EQ(proxy->attachProcess(*frame::Process::getInstance()), 0);
        EXPECT_EQ(proxy->setupDone(), 0);
    }
    delete tv;
    delete mm;
    EXPECT_TRUE(registered(tvservice::ServiceInterface::interfaceKey));
    EXPECT_FALSE(registered(mmservice::ServiceInterface::interfaceKey));
}

TEST(ProxyEntries, ReturnOneProxyEachInATerminatedArray) {
    for (auto* create : {CreateTvServiceProxy, CreateMMServiceProxy}) {
        void** members = create();
        ASSERT_NE(members[0], nullptr);
        EXPECT_EQ(members[1], nullptr);
        delete static_cast<frame::AbstractProcessMember*>(members[0]);
        std::free(members);
    }
}

} // namespace
