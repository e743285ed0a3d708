// The TV service's proxy: sending each request and delivering each notification.
#include "app-tvservice-proxy-main.h"
#include "support/log-texts.h"
#include "support/recording-module.h"
#include "support/test-where.h"
#include "support/tv-doubles.h"
#include "support/tv-messages.h"
#include "support/wire.h"

#include <genrpc/log.h>
#include <tvservice/client-base.h>

#include <boost/make_shared.hpp>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <schema/samples.h>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace tvservice;
using support::textsOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// ---- senders ----

template <class Message> auto sampleOf(std::uint32_t start = 0) {
    return schema::Samples(start).next<typename Message::Body::Arguments>();
}

class EverySender : public testing::Test {
protected:
    EverySender() { proxy.setOmqIOModule(&module); }
    template <class Message> int send(const typename Message::Body::Arguments& arguments = sampleOf<Message>()) {
        return support::call<Message, ServiceInterface>(proxy, ids, frame::TransportInfo{5, {6, 7}}, arguments);
    }
    // The arguments of the last message.
    template <class Message> typename Message::Body::Arguments lastSent() {
        return Message::Body::read(support::received(*Message::table(), module.sent.back().wire, false).get());
    }

    frame::MsgIds ids{11, 12};
    support::RecordingModule module;
    Proxy proxy;
};

TEST_F(EverySender, SendsItsMessageWithTheCallersIdsAndWithoutItsTransport) {
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        module.sent.clear();
        EXPECT_EQ(send<Message>(), 0) << "regardless of the module's result";
        ASSERT_THAT(module.sent, SizeIs(1));
        const auto& sent = module.sent.front();
        EXPECT_EQ(sent.ids, (frame::MsgIds{11, 12}));
        EXPECT_EQ(ids, (frame::MsgIds{11, 12}));
        EXPECT_EQ(sent.meta, Message::meta);
        EXPECT_FALSE(sent.hasTransport);
        EXPECT_EQ(sent.table, Message::table());
        EXPECT_EQ(lastSent<Message>(), sampleOf<Message>());
    });
}

TEST_F(EverySender, LogsThatItWasCalled) {
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        const host::LogCapture log{{genrpc::TvProxyLog}};
        send<Message>();
        EXPECT_THAT(textsOf(log), ElementsAre(std::string("app-tvservice-proxy-main.cpp:") +
                                              support::Method<Message>::name + "(): Called."));
        EXPECT_EQ(log.lines().at(0).levelWord, genrpc::TvProxyLog << 16 | vdlDebugTrace);
    });
}

// The number of the source line that a log line names.
std::string lineNumberOf(const std::string& text) {
    const auto first = text.find(':');
    return text.substr(first + 1, text.find(':', first + 1) - first - 1);
}

TEST_F(EverySender, LogsFromALineOfItsOwn) {
    std::set<std::string> numbers;
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        const host::LogCapture log{{genrpc::TvProxyLog}};
        send<Message>();
        numbers.insert(lineNumberOf(log.lines().at(0).text));
    });
    EXPECT_THAT(numbers, SizeIs(support::TvRequests::size));
}

TEST_F(EverySender, ReleasesItsMemoryWhenTheMessageIsSent) {
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        const auto before = host::flatHeapUsage().blocks;
        send<Message>();
        EXPECT_EQ(host::flatHeapUsage().blocks, before);
    });
}

TEST_F(EverySender, KeepsItsMemoryUntilALaterCompletionOnAnotherThread) {
    module.holds = true;
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        const auto before = host::flatHeapUsage().blocks;
        module.held.clear();
        EXPECT_EQ(send<Message>(), 0);
        ASSERT_THAT(module.held, SizeIs(1));
        EXPECT_GT(host::flatHeapUsage().blocks, before);
        std::thread(module.held.front()).join();
        EXPECT_EQ(lastSent<Message>(), sampleOf<Message>());
        EXPECT_EQ(host::flatHeapUsage().blocks, before);
    });
}

TEST_F(EverySender, ReleasesItsMemoryWithoutAModule) {
    proxy.setOmqIOModule(nullptr);
    const host::LogCapture log; // hides the framework's warning
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        const auto before = host::flatHeapUsage().blocks;
        EXPECT_EQ(send<Message>(), 0);
        EXPECT_EQ(host::flatHeapUsage().blocks, before);
    });
}

TEST_F(EverySender, SendsEmptyArguments) {
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        using Arguments = typename Message::Body::Arguments;
        send<Message>(Arguments{});
        EXPECT_EQ(lastSent<Message>(), Arguments{});
    });
}

TEST_F(EverySender, HasTheseBytesForShortMessages) {
    send<messages::TvServiceReq>({});
    EXPECT_EQ(module.sent.back().wire, std::string(8, '\0')) << "count zero and no array";
    send<messages::TvServiceInfoReq>();
    EXPECT_EQ(module.sent.back().wire, std::string(1, '\0'));
    send<messages::TvServiceSendKeyReq>({""});
    const auto empty = support::received(*messages::TvServiceSendKeyReq::table(), module.sent.back().wire, false);
    EXPECT_EQ(module.sent.back().wire.size(), 9U) << "only the terminator";
    EXPECT_EQ(reinterpret_cast<const vdlDeserString_t*>(empty.get())->length, 0U);
    EXPECT_STREQ(reinterpret_cast<const vdlDeserString_t*>(empty.get())->data, "");
    send<messages::SetCasService>({TvServiceCasServiceType_t{-1}});
    EXPECT_EQ(module.sent.back().wire, "\xFF\xFF\xFF\xFF");
    send<messages::RequestPackagesReq>({reqeustOadType_t{-1}, "key"});
    EXPECT_EQ(module.sent.back().wire.size(), 12U + 4U);
    EXPECT_EQ(module.sent.back().wire.substr(12), std::string("key\0", 4));
}

TEST_F_WHERE(support::flatMemoryIsLimited, EverySender, SendsNothingAndKeepsNothingWhenMemoryRunsOut) {
    const auto limit = static_cast<std::size_t>(host::flatHeapUsage().limit);
    const auto room = std::unique_ptr<void, decltype(&vdlFlatFree)>(vdlFlatAlloc(limit - (24U << 20)), vdlFlatFree);
    const auto before = host::flatHeapUsage().blocks;
    EXPECT_THROW(send<messages::TvServiceSendKeyReq>({std::string(32U << 20, 'x')}), std::bad_alloc);
    EXPECT_THAT(module.sent, IsEmpty());
    EXPECT_EQ(host::flatHeapUsage().blocks, before);
}

// ---- handlers ----

// Records its arguments, then overwrites them.
class SpoilingClient : public support::RecordingTvClient {
public:
#define SPOIL(type, name) spoil(name);
#define HEAR_AND_SPOIL(service, direction, Name, method, id, ...)                        \
    int method(GENRPC_PARAMETERS(__VA_ARGS__)) override {                                \
        RecordingTvClient::method(ids, transport GENRPC_EACH(GENRPC_NAME, __VA_ARGS__)); \
        GENRPC_EACH(SPOIL, __VA_ARGS__)                                                  \
        ids = {9, 9};                                                                    \
        return -5;                                                                       \
    }
    TVSERVICE_NOTIFICATIONS(HEAR_AND_SPOIL)
#undef HEAR_AND_SPOIL
#undef SPOIL

private:
    template <class T> static void spoil(const T& argument) {
        if constexpr (std::is_class_v<T>) const_cast<T&>(argument) = T{};
    }
};

class EveryHandler : public testing::Test {
protected:
    EveryHandler() {
        proxy.setOmqIOModule(&module);
        EXPECT_EQ(proxy.registerMessageHandlers(), 0);
        for (int i = 0; i < 3; ++i) clients.push_back(boost::make_shared<SpoilingClient>());
    }
    // Registers the next clients, up to `count` in all.
    void add(std::size_t count) {
        for (; added < count; ++added) proxy.addClient(clients[added]);
    }
    // Delivers a message as the framework does, to the handler bound to its meta.
    template <class Message> int notify(const typename Message::Body::Arguments& arguments = sampleOf<Message>()) {
        const support::FlatBody<Message> body(arguments);
        return notifyFlat<Message>(body.get());
    }
    template <class Message> int notifyFlat(const void* body) {
        for (const auto& bound : module.bound)
            if (bound.meta == Message::meta) return bound.handler(bound.meta, transport, body, bound.context);
        return -1;
    }
    template <class Message> static genrpc::Json jsonOf(const typename Message::Body::Arguments& arguments) {
        return std::apply([](const auto&... args) { return genrpc::argumentsToJson<Message>(args...); }, arguments);
    }
    // Expects that the client received one call of this message, with its sample, ids and transport. Then clears its
    // calls.
    template <class Message> void expectReceivedOnce(SpoilingClient& client) {
        ASSERT_THAT(client.calls, SizeIs(1));
        EXPECT_EQ(client.calls[0].message, Message::name);
        EXPECT_EQ(client.calls[0].arguments, jsonOf<Message>(sampleOf<Message>()));
        EXPECT_EQ(client.calls[0].ids, frame::MsgIds::none);
        EXPECT_EQ(client.calls[0].transport, transport);
        client.calls.clear();
    }

    const frame::TransportInfo transport{4, {5, 6}};
    support::RecordingModule module;
    Proxy proxy;
    std::vector<boost::shared_ptr<SpoilingClient>> clients;
    std::size_t added = 0;
};

TEST_F(EveryHandler, IsBoundToItsNotificationInTheOrderOfIds) {
    ASSERT_THAT(module.bound, SizeIs(support::TvNotifications::size));
    std::size_t index = 0;
    support::forEach(support::TvNotifications{}, [&]<class Message>() {
        const auto& bound = module.bound[index];
        EXPECT_EQ(bound.meta, (frame::MsgMeta{0xFFFFFFFF, 0x1CCD7774, 0x28671247U + static_cast<unsigned>(index), 1}));
        EXPECT_EQ(bound.context, &proxy);
        EXPECT_EQ(bound.table, Message::table());
        ++index;
    });
}

TEST_F(EveryHandler, OnlyLogsWithoutClients) {
    support::forEach(support::TvNotifications{}, [&]<class Message>() {
        const host::LogCapture log{{genrpc::TvProxyLog}};
        EXPECT_EQ(notify<Message>(), 0);
        const std::string place = std::string("app-tvservice-proxy-main.cpp:call") + Message::name;
        EXPECT_THAT(textsOf(log), ElementsAre(place + "(): Eneter", place + "(): Exit"));
    });
}

TEST_F(EveryHandler, LogsFromTwoLinesOfItsOwn) {
    std::set<std::string> numbers;
    support::forEach(support::TvNotifications{}, [&]<class Message>() {
        const host::LogCapture log{{genrpc::TvProxyLog}};
        notify<Message>();
        for (const auto& line : log.lines()) numbers.insert(lineNumberOf(line.text));
    });
    EXPECT_THAT(numbers, SizeIs(2 * support::TvNotifications::size));
}

TEST_F(EveryHandler, GivesEachClientItsOwnArgumentsAndIds) {
    for (const std::size_t count : {1U, 3U}) {
        add(count);
        support::forEach(support::TvNotifications{}, [&]<class Message>() {
            EXPECT_EQ(notify<Message>(), 0) << "regardless of the clients' results";
            for (std::size_t i = 0; i < count; ++i) expectReceivedOnce<Message>(*clients[i]);
        });
    }
    EXPECT_EQ(frame::MsgIds::none, frame::MsgIds{});
}

TEST_F(EveryHandler, CallsItsClientsInTheOrderOfRegistration) {
    std::string order;
    for (std::size_t i = 0; i < 3; ++i) clients[i]->then = [&order, i](frame::MsgIds&) { order += std::to_string(i); };
    add(3);
    support::forEach(support::TvNotifications{}, [&]<class Message>() {
        order.clear();
        notify<Message>();
        EXPECT_EQ(order, "012");
    });
}

TEST_F(EveryHandler, ContinuesWithItsCopyWhenAClientRemovesItself) {
    add(3);
    clients[1]->then = [&](frame::MsgIds&) { EXPECT_EQ(proxy.removeClient(clients[1]), 0); };
    support::forEach(support::TvNotifications{}, [&]<class Message>() {
        notify<Message>();
        for (const auto& client : clients) expectReceivedOnce<Message>(*client);
        notify<Message>();
        EXPECT_THAT(clients[1]->calls, IsEmpty());
        expectReceivedOnce<Message>(*clients[2]);
        clients[0]->calls.clear();
        proxy.addClient(clients[1]); // now after the others
    });
}

TEST_F(EveryHandler, PropagatesAClientsExceptionAndRemainsUsable) {
    add(2);
    support::forEach(support::TvNotifications{}, [&]<class Message>() {
        clients[0]->then = [](frame::MsgIds&) { throw std::runtime_error("client"); };
        EXPECT_THROW(notify<Message>(), std::runtime_error);
        EXPECT_THAT(clients[1]->calls, IsEmpty());
        EXPECT_EQ(clients[0].use_count(), 2) << "the handler has released its copy of the list";
        clients[0]->then = nullptr;
        clients[0]->calls.clear();
        notify<Message>();
        expectReceivedOnce<Message>(*clients[0]);
        expectReceivedOnce<Message>(*clients[1]);
    });
}

TEST_F(EveryHandler, LeavesTheMessageUnchanged) {
    add(3);
    support::forEach(support::TvNotifications{}, [&]<class Message>() {
        const support::FlatBody<Message> body(sampleOf<Message>());
        const auto blocks = host::flatHeapUsage().blocks;
        notifyFlat<Message>(body.get());
        EXPECT_EQ(Message::Body::read(body.get()), sampleOf<Message>());
        EXPECT_EQ(host::flatHeapUsage().blocks, blocks);
    });
}

TEST_F(EveryHandler, ReadsTheDownloadStatusTextByItsLength) {
    add(1);
    struct {
        vdl::Word<std::uint32_t> status;
        vdlDeserString_t text;
    } body{7, {3, nullptr}};
    const support::FlatBlock block(static_cast<char*>(vdlFlatAlloc(16)), vdlFlatFree);
    std::strcpy(block.get(), "downloading");
    const auto received = [&] {
        notifyFlat<messages::TvserviceOadStatusNotify>(&body);
        return genrpc::textOf(clients[0]->calls.back().arguments);
    };
    EXPECT_EQ(received(), R"({"status":7,"text":""})") << "without a block";
    body.text = {0, block.get()};
    EXPECT_EQ(received(), R"({"status":7,"text":""})") << "length 0";
    body.text = {4, block.get()};
    EXPECT_EQ(received(), R"({"status":7,"text":"down"})");
}

TEST(ClientBase, ReturnsZeroForEveryNotification) {
    ClientBase client;
    frame::MsgIds ids;
    support::forEach(support::TvNotifications{}, [&]<class Message>() {
        EXPECT_EQ((support::call<Message, ClientInterface>(client, ids, {}, sampleOf<Message>())), 0);
    });
}

} // namespace
