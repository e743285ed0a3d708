// The adapter, its client objects and the conversion between the services' records.
#include "client-objects.h"
#include "conversion.h"
#include "resource-manager.h"
#include "support/fake-shell.h"
#include "support/tv-doubles.h"

#include <frame/process.h>
#include <genrpc/log.h>
#include <host/log-capture.h>
#include <tvservice-adapter/model-tvservice-adapter.h>
#include <tvservice/client-base.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" void** frameCreateApplicationArray();

using namespace tvservice;
using mmservice::MMServiceInfo_t;
using mmservice::MMServiceReq_t;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

namespace {

// ---- conversion ----

TEST(Conversion, OmitsFieldsThatTheMmServiceDoesNotHave) {
    TvServiceReq_t request{{1, 2}, 3, 4, 5, "uri", "dropped", "uuid", "two", {"a", "b"}, "id", "three", "dropped", 99};
    std::vector<MMServiceReq_t> converted(5,
                                          MMServiceReq_t{{9, 9}, 9, 9, 9, "old", "old", "old", {"old"}, "old", "old"});
    convertTvtoMm({request, TvServiceReq_t{}}, converted);
    EXPECT_THAT(converted, ElementsAre(MMServiceReq_t{{1, 2}, 3, 4, 5, "uri", "uuid", "two", {"a", "b"}, "id", "three"},
                                       MMServiceReq_t{}));
}

TEST(Conversion, CopiesEveryFieldOfAnAnswer) {
    std::vector<TvServiceInfo_t> converted(5);
    convertMmtoTv({MMServiceInfo_t{{1, 2}, -3, "uri", "uuid", "ancestor", "id"}, MMServiceInfo_t{}}, converted);
    EXPECT_THAT(converted,
                ElementsAre(TvServiceInfo_t{{1, 2}, -3, "uri", "uuid", "ancestor", "id"}, TvServiceInfo_t{}));
}

TEST(Conversion, ClearsTheOutputForAnEmptyInput) {
    std::vector<MMServiceReq_t> requests(3);
    convertTvtoMm({}, requests);
    EXPECT_THAT(requests, SizeIs(0));
    std::vector<TvServiceInfo_t> infos(3);
    convertMmtoTv({}, infos);
    EXPECT_THAT(infos, SizeIs(0));
}

// ---- client objects ----

class Client : public ClientBase {
public:
    explicit Client(std::string& order, std::string name = "c") : order_(order), name_(std::move(name)) {}
    int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceInfo_t>& infos) override {
        order_ += name_ + std::to_string(infos.size());
        if (name_ == "throws") throw std::runtime_error("client");
        return -1;
    }

private:
    std::string& order_;
    std::string name_;
};

class TvClientObject : public testing::Test {
protected:
    int deliver(std::size_t records = 1) {
        frame::MsgIds ids;
        return object.tvServiceInfocb(ids, {}, std::vector<TvServiceInfo_t>(records));
    }
    std::string order;
    TvServiceClient object;
};

TEST_F(TvClientObject, DeliversToEveryClientInOrderOfRegistration) {
    EXPECT_EQ(deliver(), 0);
    const auto b = boost::make_shared<Client>(order, "b");
    object.addClient(boost::make_shared<Client>(order, "a"));
    object.addClient(b);
    object.addClient(boost::make_shared<Client>(order, "c"));
    EXPECT_EQ(deliver(2), 0);
    EXPECT_EQ(order, "a2b2c2");
    object.removeClient(b);
    deliver(0);
    EXPECT_EQ(order, "a2b2c2a0c0");
}

TEST_F(TvClientObject, ReturnsMinusOneForDuplicateAndUnknownClients) {
    host::LogCapture log{{genrpc::AdapterLog}};
    const auto client = boost::make_shared<Client>(order);
    EXPECT_EQ(object.addClient(client), 0);
    EXPECT_EQ(object.addClient(client), -1);
    EXPECT_EQ(object.removeClient(client), 0);
    EXPECT_EQ(object.removeClient(client), -1);
    const auto lines = log.lines();
    ASSERT_THAT(lines, SizeIs(4));
    EXPECT_THAT(lines[0].text, HasSubstr("addClient(): success, 1 total."));
    EXPECT_THAT(lines[1].text, HasSubstr("addClient(): Client already exists, 1 total."));
    EXPECT_THAT(lines[2].text, HasSubstr("removeClient(): success, 0 remaining."));
    EXPECT_THAT(lines[3].text, HasSubstr("removeClient(): client not found (of 0 known ones)"));
    EXPECT_EQ(lines[1].levelWord, 0x0101U * 65536 + 3000);
    EXPECT_EQ(lines[0].text.rfind("tvservice-adapter.cpp:", 0), 0U);
}

TEST_F(TvClientObject, TreatsPointersWithDifferentOwnersToOneObjectAsOneClient) {
    const host::LogCapture log; // hides expected warnings
    Client client(order);
    const auto pointer = [&] { return boost::shared_ptr<Client>(&client, [](Client*) {}); };
    EXPECT_EQ(object.addClient(pointer()), 0);
    EXPECT_EQ(object.addClient(pointer()), -1);
    deliver();
    EXPECT_EQ(order, "c1");
    EXPECT_EQ(object.removeClient(pointer()), 0);
    EXPECT_EQ(object.removeClient(pointer()), -1);
}

TEST_F(TvClientObject, ReleasesItsLockWhenAClientThrows) {
    object.addClient(boost::make_shared<Client>(order, "throws"));
    const auto later = boost::make_shared<Client>(order, "later");
    object.addClient(later);
    EXPECT_THROW(deliver(), std::runtime_error);
    EXPECT_EQ(order, "throws1");
    EXPECT_EQ(object.removeClient(later), 0);
}

template <class Registry, class Client> void expectClientsGivenBack(const boost::shared_ptr<Client>& client) {
    {
        Registry registry;
        EXPECT_EQ(registry.addClient(client), 0);
        EXPECT_EQ(client.use_count(), 2);
    }
    EXPECT_EQ(client.use_count(), 1);
}

TEST(ClientObjects, ReleaseTheirClientsWhenDestroyed) {
    expectClientsGivenBack<TvServiceClient, ClientInterface>(boost::make_shared<ClientBase>());
    expectClientsGivenBack<MmServiceClient, mmservice::ClientInterface>(boost::make_shared<MmServiceClient>());
}

TEST(MmClientObject, ManagesItsRegistryLikeTheTvClientObject) {
    class MmClient : public mmservice::ClientInterface {
        int mmServiceInfo(frame::MsgIds&, const frame::TransportInfo&, const std::vector<MMServiceInfo_t>&) override {
            return 0;
        }
    };
    MmServiceClient object;
    const auto client = boost::make_shared<MmClient>();
    EXPECT_EQ(object.addClient(client), 0);
    EXPECT_EQ(object.addClient(client), -1);
    EXPECT_EQ(object.removeClient(client), 0);
    EXPECT_EQ(object.removeClient(client), -1);
}

// ---- the whole adapter, with services in the process ----

// Registers a service as a proxy would. It answers at once, inside the request.
template <class Interface, class Service = Interface> class Member : public frame::AbstractApplication, public Service {
public:
    int registerAs(const char* key) {
        attachProcess(*frame::Process::getInstance());
        return registerInterface(static_cast<Interface*>(this), key);
    }
    int unregister() { return unregisterInterface(static_cast<Interface*>(this)); }
};

class TvService : public Member<ServiceInterface, support::RecordingTvService> {
public:
    int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<TvServiceReq_t>& requests) override {
        EXPECT_EQ(ids, frame::MsgIds{});
        EXPECT_EQ(transport, frame::TransportInfo{});
        std::vector<TvServiceInfo_t> infos;
        infos.reserve(requests.size());
        for (const auto& r : requests) infos.push_back({r.terminal, 0, r.uri, r.uuid, "tv", r.reqId});
        const auto copy = clients;
        for (const auto& client : copy) client->tvServiceInfo(ids, transport, infos);
        return -7;
    }
};

class MmService : public Member<mmservice::ServiceInterface> {
public:
    int mmServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<MMServiceReq_t>& requests) override {
        std::vector<MMServiceInfo_t> infos;
        infos.reserve(requests.size());
        for (const auto& r : requests)
            infos.push_back({{r.terminal.type, r.terminal.id}, 0, r.uri, r.uuid, "mm", r.reqId});
        for (const auto& client : clients) client->mmServiceInfo(ids, transport, infos);
        return 0;
    }
    int addClient(boost::shared_ptr<mmservice::ClientInterface> client) override {
        clients.push_back(client);
        return 0;
    }
    int removeClient(boost::shared_ptr<mmservice::ClientInterface>) override { return 0; }
    std::vector<boost::shared_ptr<mmservice::ClientInterface>> clients;
};

// A client that waits for answers.
class Application : public ClientBase {
public:
    int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceInfo_t>& infos) override {
        std::lock_guard lock(mutex_);
        lists_.push_back(infos);
        changed_.notify_all();
        return 0;
    }
    // Waits until there are `count` lists and returns them; empty if they do not come.
    std::vector<std::vector<TvServiceInfo_t>> waitFor(std::size_t count) {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, std::chrono::seconds(10), [&] { return lists_.size() >= count; })) return {};
        return lists_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::vector<TvServiceInfo_t>> lists_;
};

// Everything here lives as long as the process, as in a receiver, because the manager's worker keeps the services'
// addresses.
struct Receiver {
    TvService tv;
    MmService mm;
    ModelTvServiceAdapter adapter;

    static Receiver& get() {
        static Receiver* const receiver = [] {
            support::FakeShell::get(); // must exist before the adapter starts
            auto* made = new Receiver;
            made->adapter.attachProcess(*frame::Process::getInstance());
            EXPECT_EQ(made->adapter.setupDone(), 0);
            return made;
        }();
        return *receiver;
    }
};

TvServiceReq_t request(const std::string& uri) {
    TvServiceReq_t r;
    r.terminal = {1, 0};
    r.uri = uri;
    r.uuid = "uuid";
    return r;
}

TEST(Adapter, IsRegisteredUnderItsOwnType) {
    boost::shared_ptr<frame::Interface> reference;
    ModelTvServiceAdapter* const adapter = &Receiver::get().adapter;
    ASSERT_EQ(frame::Process::getInstance()->getInterfaceReference(reference, "orvel.lm.interfaces.tvservice-wrapper"),
              0);
    EXPECT_EQ(reference->get<ModelTvServiceAdapter>(), adapter);
    EXPECT_EQ(reference->get<ServiceInterface>(), nullptr);
}

TEST(Adapter, StartsWithoutServicesThenFindsThemAndPlaysThroughThem) {
    auto& receiver = Receiver::get();
    {
        host::LogCapture log{{genrpc::AdapterLog}};
        EXPECT_EQ(receiver.adapter.start(), 0);
        EXPECT_TRUE(
            log.waitFor("performStarting(): Unable to lookup tvservice-interface: -2.", std::chrono::seconds(0)));
        EXPECT_TRUE(
            log.waitFor("performStarting(): Unable to lookup mmservice-interface: -2.", std::chrono::seconds(0)));
        EXPECT_EQ(receiver.adapter.stop(), 0);
    }
    ASSERT_EQ(receiver.tv.registerAs(ServiceInterface::interfaceKey), 0);
    EXPECT_EQ(receiver.adapter.start(), 0);
    EXPECT_THAT(receiver.tv.clients, SizeIs(1)) << "the TV service's client object does not need the MM service";
    EXPECT_EQ(receiver.adapter.stop(), 0);
    ASSERT_EQ(receiver.mm.registerAs(mmservice::ServiceInterface::interfaceKey), 0);
    host::LogCapture log{{genrpc::AdapterLog, genrpc::ManagerLog}};
    EXPECT_EQ(receiver.adapter.start(), 0);
    EXPECT_THAT(receiver.tv.clients, SizeIs(2)) << "every start creates a new client object";
    EXPECT_THAT(receiver.mm.clients, SizeIs(1));

    const auto application = boost::make_shared<Application>();
    EXPECT_EQ(receiver.adapter.addClient(application), 0);
    EXPECT_EQ(receiver.adapter.addClient(application), -1);
    frame::MsgIds ids{3, 4};
    EXPECT_EQ(receiver.adapter.tvServiceReq(ids, frame::TransportInfo{7, {}}, {request("dvb://1")}), 0);
    const auto live = application->waitFor(1);
    ASSERT_THAT(live, SizeIs(testing::Ge(1U)));
    EXPECT_THAT(live[0], ElementsAre(TvServiceInfo_t{{1, 0}, 0, "dvb://1", "uuid", "tv", "1"}));
    EXPECT_TRUE(log.waitFor("ReqTV(): tvservice-interface pointer = ", std::chrono::seconds(10)));
    EXPECT_EQ(ids, (frame::MsgIds{3, 4}));
    EXPECT_EQ(receiver.adapter.removeClient(application), 0);
    EXPECT_EQ(receiver.adapter.removeClient(application), -1);
}

TEST(Entry, ReturnsTheProxiesAndTheAdapterInATerminatedArray) {
    void** members = frameCreateApplicationArray();
    std::vector<std::string> types;
    for (int i = 0; members[i] != nullptr; ++i) {
        auto* member = static_cast<frame::AbstractProcessMember*>(members[i]);
        types.push_back(dynamic_cast<ServiceInterface*>(member)              ? "TV proxy"
                        : dynamic_cast<mmservice::ServiceInterface*>(member) ? "MM proxy"
                        : dynamic_cast<ModelTvServiceAdapter*>(member)       ? "adapter"
                                                                             : "?");
        delete member;
    }
    std::free(members);
    EXPECT_THAT(types, ElementsAre("TV proxy", "MM proxy", "adapter"));
}

} // namespace
