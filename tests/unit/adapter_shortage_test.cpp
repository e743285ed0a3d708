// The adapter when memory runs out, at every allocation of every call by an application and of every message from a
// service.
#include "app-mmservice-proxy-main.h"
#include "app-tvservice-proxy-main.h"
#include "client-objects.h"
#include "support/adapter-process.h"
#include "support/queue-fixture.h"
#include "support/tv-messages.h"
#include "unit/shortage-fixture.h"

#include <genrpc/json.h>
#include <host/log-capture.h>
#include <mmservice/messages.h>

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

extern "C" void** CreateTvMmService();

namespace {

using namespace shortage_test;

// ---- requests ----

// Proxies whose services do not run, so that messages stay in the queue.
class RequestWithoutMemory : public queue_test::MessageQueue {
protected:
    RequestWithoutMemory() {
        client = std::make_unique<host::MessageQueue>();
        connect(tvProxy);
        connect(mmProxy);
    }
    template <class Proxy> void connect(Proxy& proxy) {
        proxy.setOmqIOModule(&client->connectTo(proxy.getServiceName(), proxy.getMessageSet(), 64, nullptr));
    }
    std::uint64_t queued() const { return client->statistics()[0].queued + client->statistics()[1].queued; }

    // Calls request at every shortage. It must fail, queue nothing and leak nothing, until it is queued as a whole.
    template <class Request> void expectAllOrNothing(const Request& request) {
        request(); // creates objects that are kept after the first use
        const std::uint64_t before = queued();
        failAtEveryAllocation(request, [&] { EXPECT_EQ(queued(), before); });
        EXPECT_EQ(queued(), before + 1);
        // Again, because the queue has allocated memory of its own meanwhile.
        const Held held;
        const long failures = failAtEveryAllocation(request, [&] { expectHeld(held); });
        EXPECT_EQ(queued(), before + 2) << "after " << failures << " failures";
        // And with a single allocation that fails.
        std::uint64_t expected = queued();
        EXPECT_GT(runShortAtEveryAllocation(Shortage::Passing, request,
                                            [&](bool taken) {
                                                if (taken) ++expected;
                                                EXPECT_EQ(queued(), expected);
                                            }),
                  0);
    }

    frame::MsgIds ids{11, 12};
    const frame::TransportInfo transport{5, {6, 7}};
    tvservice::Proxy tvProxy;
    mmservice::Proxy mmProxy;
};

TEST_F(RequestWithoutMemory, FailsWithoutEffectAndSucceedsTheNextTime) {
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        const auto arguments = sampleOf<Message>();
        expectAllOrNothing(
            [&] { return support::call<Message, tvservice::ServiceInterface>(tvProxy, ids, transport, arguments); });
    });
}

TEST_F(RequestWithoutMemory, ToTheMmServiceFailsWithoutEffectAndSucceedsTheNextTime) {
    const auto arguments = sampleOf<mmservice::messages::MmServiceReq>();
    expectAllOrNothing([&] { return mmProxy.mmServiceReq(ids, transport, std::get<0>(arguments)); });
}

// ---- messages ----

// A proxy, the handlers of its messages, and two clients.
template <class Proxy, class Client> struct Receiving {
    Receiving() {
        proxy.setOmqIOModule(&module);
        proxy.registerMessageHandlers();
        proxy.addClient(first);
        proxy.addClient(second);
    }
    template <class Message> void expectDeliveredNextTime() {
        const support::FlatBody<Message> body(sampleOf<Message>());
        const auto deliver = [&] { module.deliver<Message>(body); };
        deliver();
        for (const Shortage shortage : shortages) {
            first->calls = second->calls = 0;
            unsigned deliveries = 0;
            const Held held;
            const long failures = runShortAtEveryAllocation(shortage, deliver, [&](bool succeeded) {
                expectHeld(held);
                if (succeeded) ++deliveries;
                EXPECT_EQ(second->calls, deliveries) << "no memory for the second client after the first one's copy";
            });
            EXPECT_GT(failures, 0) << "nothing was allocated, so nothing was tested";
            EXPECT_EQ(deliveries, 1U);
            EXPECT_TRUE(Message::Body::read(body.get()) == sampleOf<Message>()) << "the message has changed";
        }
    }

    FakeModule module;
    Proxy proxy;
    const boost::shared_ptr<Client> first = boost::make_shared<Client>(), second = boost::make_shared<Client>();
};

TEST(MessageWithoutMemory, LeaksNothingAndTheNextOneIsDelivered) {
    Receiving<tvservice::Proxy, CountingTvClient> receiving;
    support::forEach(support::TvNotifications{},
                     [&]<class Message>() { receiving.expectDeliveredNextTime<Message>(); });
}

TEST(MessageWithoutMemory, OfTheMmServiceLeaksNothingAndTheNextOneIsDelivered) {
    Receiving<mmservice::Proxy, CountingMmClient> receiving;
    receiving.expectDeliveredNextTime<mmservice::messages::MmServiceInfo>();
}

// ---- records ----

// Makes the strings of a record so long that they need allocations.
template <class T> void lengthen(T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        value += std::string(40, 'x');
    } else if constexpr (requires { value.begin(); }) {
        for (auto& element : value) lengthen(element);
    } else if constexpr (std::is_class_v<T>) {
        std::apply([&](const auto&... field) { (lengthen(value.*field.plain), ...); }, T::Flat::fields());
    }
}

TEST(RecordWithoutMemory, IsReadCompletelyOrNotAtAll) {
    const auto expect = []<class Record>() {
        auto record = schema::Samples().next<Record>();
        lengthen(record);
        typename Record::Flat form(record);
        const Held held;
        failAtEveryAllocation([&] { EXPECT_TRUE(static_cast<Record>(form) == record); }, [&] { expectHeld(held); });
        genrpc::release(form);
    };
    support::forEach(support::CoreRecords{}, expect);
    support::forEach(support::StreamRecords{}, expect);
    support::forEach(support::StatusRecords{}, expect);
}

// Releases a form when it goes out of scope.
template <class Form> class Owned {
public:
    explicit Owned(Form& form) : form_(form) {}
    ~Owned() { genrpc::release(form_); }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

private:
    Form& form_;
};

TEST(RecordWithoutMemory, IsFlattenedCompletelyOrNotAtAll) {
    long failures = 0;
    const auto expect = [&]<class Record>() {
        using Form = typename Record::Flat;
        auto record = schema::Samples().next<Record>();
        lengthen(record);
        for (const Shortage shortage : shortages) {
            const Held held;
            const auto made = [&] {
                Form form(record);
                const Owned owned(form);
                EXPECT_TRUE(static_cast<Record>(form) == record);
            };
            failures += runShortAtEveryAllocation(shortage, made, [&](bool) { expectHeld(held); });
            const auto assigned = [&] {
                Form form;
                const Owned owned(form);
                form = record;
                EXPECT_TRUE(static_cast<Record>(form) == record);
            };
            failures += runShortAtEveryAllocation(shortage, assigned, [&](bool) { expectHeld(held); });
        }
    };
    support::forEach(support::CoreRecords{}, expect);
    support::forEach(support::StreamRecords{}, expect);
    support::forEach(support::StatusRecords{}, expect);
    EXPECT_GT(failures, 100);
}

TEST(JsonErrorWithoutMemory, LeavesNothingBehind) {
    const std::string path(40, 'p'), problem(40, 'q');
    for (const std::string& where : {std::string(), path}) {
        const Held held;
        failAtEveryAllocation([&] { const genrpc::JsonError error(where, problem); }, [&] { expectHeld(held); });
    }
}

// ---- the entry ----

void destroy(void** members) {
    for (void** member = members; *member != nullptr; ++member)
        delete static_cast<frame::AbstractProcessMember*>(*member);
    std::free(members);
}

TEST(EntryWithoutMemory, LeaksNoMember) {
    for (const Shortage shortage : shortages) {
        void** members = nullptr;
        const Held held;
        const long failures = runShortAtEveryAllocation(
            shortage, [&] { members = CreateTvMmService(); },
            [&](bool succeeded) {
                EXPECT_EQ(members != nullptr, succeeded);
                if (succeeded) destroy(members);
                members = nullptr;
                expectHeld(held);
            });
        EXPECT_GT(failures, 2);
    }
}

// ---- starting ----

class AdapterWithoutMemory : public testing::TestWithParam<Shortage> {};

TEST_P(AdapterWithoutMemory, FailsToStartAndStartsTheNextTime) {
    support::RegisteredTvService tv;
    support::RegisteredMmService mm;
    tv.clients.reserve(1000);
    mm.clients.reserve(1000);
    auto& adapter = support::newAdapter();
    int result = -100;
    const long failures = runShortAtEveryAllocation(
        GetParam(), [&] { result = adapter.start(); },
        [&](bool succeeded) {
            EXPECT_EQ(result, succeeded ? 0 : -100);
            result = -100;
        });
    // The manager, its worker and the command are created once per process, so a second run does not create them again.
    EXPECT_GT(failures, GetParam() == Shortage::Lasting ? 5 : 3) << "the client objects, and the objects created once";

    const auto application = boost::make_shared<CountingTvClient>();
    EXPECT_EQ(adapter.addClient(application), 0);
    frame::MsgIds ids{11, 12};
    const auto answers = sampleOf<tvservice::messages::TvServiceInfo>();
    tv.clients.back()->tvServiceInfo(ids, {}, std::get<0>(answers));
    EXPECT_EQ(application->calls, 1U) << "the application receives answers";
    EXPECT_EQ(support::FakeShell::get().run("pathswitch :s", "neither"), 0);
    EXPECT_EQ(adapter.removeClient(application), 0);
    EXPECT_EQ(adapter.stop(), 0);
}

INSTANTIATE_TEST_SUITE_P(InAll, AdapterWithoutMemory, testing::ValuesIn(shortages));

// ---- clients ----

// When the list of clients cannot grow, no client is lost or half added. Each registry has its own list.
template <class Registry, class Client> void expectClientsKept(Shortage shortage) {
    Registry registry;
    std::vector<boost::shared_ptr<Client>> known;
    for (int i = 0; i < 9; ++i) { // so that the list grows several times
        const auto client = boost::make_shared<Client>();
        int result = -100;
        const Held held;
        failAtEveryAllocation([&] { result = registry.addClient(client); },
                              [&] {
                                  expectHeld(held);
                                  EXPECT_LT(registry.removeClient(client), 0);
                                  EXPECT_EQ(client.use_count(), 1);
                              },
                              shortage);
        EXPECT_EQ(result, 0);
        known.push_back(client);
    }
    for (const auto& client : known) EXPECT_EQ(registry.removeClient(client), 0);
}

TEST(ClientWithoutMemory, IsAddedCompletelyOrNotAtAll) {
    for (const Shortage shortage : shortages) {
        const host::LogCapture log; // captures warnings about the client that was not added
        if (shortage == Shortage::Passing) vdlDebugSetLevels("off"); // a failed log line does not fail the call
        expectClientsKept<tvservice::TvServiceClient, CountingTvClient>(shortage);
        expectClientsKept<tvservice::MmServiceClient, CountingMmClient>(shortage);
        expectClientsKept<tvservice::Proxy, CountingTvClient>(shortage);
        expectClientsKept<mmservice::Proxy, CountingMmClient>(shortage);
    }
}

} // namespace
