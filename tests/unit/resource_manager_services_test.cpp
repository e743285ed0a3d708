// How the resource manager finds the services: it looks them up in the framework when first needed, and keeps them.
#include "support/tv-doubles.h"
#include "unit/resource-manager-fixture.h"

#include <frame/abstract-process-member.h>
#include <frame/process.h>
#include <mmservice/interfaces.h>
#include <tvservice/interfaces.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace {

using namespace managertest;

// The test runs its worker's cycle.
class SendingManager : public ResManager {
public:
    SendingManager() : ResManager(WithoutWorker{}) {}
    void work() { cycle(GENRPC_HERE); }
};

class MmDouble : public mmservice::ServiceInterface {
public:
    struct Call {
        frame::MsgIds ids;
        frame::TransportInfo transport;
        std::vector<mmservice::MMServiceReq_t> requests;
    };
    int mmServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<mmservice::MMServiceReq_t>& requests) override {
        calls.push_back({ids, transport, requests});
        return -7;
    }
    int addClient(boost::shared_ptr<mmservice::ClientInterface>) override { return 0; }
    int removeClient(boost::shared_ptr<mmservice::ClientInterface>) override { return 0; }

    std::vector<Call> calls;
};

// A member that registers one object under one key.
class Offer : public frame::AbstractProcessMember {
public:
    template <class T> Offer(T* object, const char* key) {
        attachProcess(*frame::Process::getInstance());
        EXPECT_EQ(registerInterface(object, key), 0);
    }
    ~Offer() override { detachProcess(); }
};

std::string pointerText(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

// The lines that one of the two senders has written since `log` was created.
std::vector<std::string> linesOf(const host::LogCapture& log, const std::string& function) {
    std::vector<std::string> found;
    for (const auto& line : show(log.lines())) {
        const auto place = line.find(function + "(): ");
        if (place != std::string::npos) found.push_back(line.substr(0, 5) + line.substr(place));
    }
    return found;
}

class ManagerServices : public testing::Test {
protected:
    ManagerServices() { SimulatedTime::install(); }

    host::LogCapture log{{genrpc::ManagerLog}};
    SendingManager manager;
    frame::MsgIds ids{3, 4};
    const frame::TransportInfo transport{6, {7, 8}};
    int number = 0; // an object of the wrong type

    void expectTvServiceLookUpsUntilItIsRegistered();
    void expectMmServiceLookUpsUntilItIsRegistered();
};

// The manager keeps the services that it finds until the process ends, so each test has its own process, with a double
// that lives as long.
void inOwnProcess(const std::function<void()>& body) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            body();
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

void ManagerServices::expectTvServiceLookUpsUntilItIsRegistered() {
    static support::RecordingTvService service;
    service.result = -7;
    const std::vector<TvServiceReq_t> requests{request(3, 0, "dvb://1", "r")};
    for (int call = 0; call < 2; ++call) EXPECT_EQ(manager.ReqTV(ids, transport, requests), -1);
    EXPECT_THAT(linesOf(log, "ReqTV"),
                ElementsAre("5000 ReqTV(): Called", "1000 ReqTV(): Unable to lookup tvservice-interface: -2.",
                            "5000 ReqTV(): Called", "1000 ReqTV(): Unable to lookup tvservice-interface: -2."));
    {
        const Offer wrong(&number, ServiceInterface::interfaceKey);
        EXPECT_EQ(manager.ReqTV(ids, transport, requests), 0);
    }
    EXPECT_TRUE(service.calls.empty());

    const host::LogCapture later{{genrpc::ManagerLog}};
    {
        const Offer offer(static_cast<ServiceInterface*>(&service), ServiceInterface::interfaceKey);
        EXPECT_EQ(manager.ReqTV(ids, transport, requests), 0);
    }
    // The manager keeps the service although it is no longer registered.
    EXPECT_EQ(manager.ReqTV(ids, transport, requests), 0);
    EXPECT_THAT(linesOf(later, "ReqTV"), ElementsAre("5000 ReqTV(): Called",
                                                     "4000 ReqTV(): tvservice-interface pointer = " +
                                                         pointerText(static_cast<ServiceInterface*>(&service)) + ".",
                                                     "5000 ReqTV(): Called"));
    ASSERT_EQ(service.calls.size(), 2U);
    for (const support::Call& call : service.calls) {
        EXPECT_EQ(call.message, "TvServiceReq");
        EXPECT_EQ(call.arguments, genrpc::argumentsToJson<messages::TvServiceReq>(requests));
        EXPECT_EQ(call.ids, ids);
        EXPECT_EQ(call.transport, transport);
    }

    // A client's request is sent with the worker's own ids and transport.
    EXPECT_EQ(manager.tvServiceReq(ids, transport, requests), 0);
    manager.work();
    ASSERT_EQ(service.calls.size(), 3U);
    EXPECT_EQ(service.calls[2].arguments, genrpc::argumentsToJson<messages::TvServiceReq>(requests));
    EXPECT_EQ(service.calls[2].ids, frame::MsgIds{});
    EXPECT_EQ(service.calls[2].transport, frame::TransportInfo{});
}

TEST_F(ManagerServices, LookUpTheTvServiceUntilItIsRegisteredAndThenKeepIt) {
    inOwnProcess([this] { expectTvServiceLookUpsUntilItIsRegistered(); });
}

void ManagerServices::expectMmServiceLookUpsUntilItIsRegistered() {
    static MmDouble service;
    const std::vector<TvServiceReq_t> requests{request(4, 0, "http://x", "r")};
    for (int call = 0; call < 2; ++call) EXPECT_EQ(manager.ReqMM(ids, transport, requests), -1);
    EXPECT_THAT(linesOf(log, "ReqMM"),
                ElementsAre("5000 ReqMM(): Called", "1000 ReqMM(): Unable to lookup mmservice-interface: -2.",
                            "5000 ReqMM(): Called", "1000 ReqMM(): Unable to lookup mmservice-interface: -2."));
    {
        const Offer wrong(&number, mmservice::ServiceInterface::interfaceKey);
        EXPECT_EQ(manager.ReqMM(ids, transport, requests), 0);
    }
    EXPECT_TRUE(service.calls.empty());

    const host::LogCapture later{{genrpc::ManagerLog}};
    {
        const Offer offer(static_cast<mmservice::ServiceInterface*>(&service),
                          mmservice::ServiceInterface::interfaceKey);
        EXPECT_EQ(manager.ReqMM(ids, transport, requests), 0);
    }
    EXPECT_EQ(manager.ReqMM(ids, transport, requests), 0);
    EXPECT_THAT(linesOf(later, "ReqMM"),
                ElementsAre("5000 ReqMM(): Called",
                            "4000 ReqMM(): mmservice-interface pointer = " +
                                pointerText(static_cast<mmservice::ServiceInterface*>(&service)) + ".",
                            "5000 ReqMM(): Called"));
    ASSERT_EQ(service.calls.size(), 2U);
    const mmservice::MMServiceReq_t sent{{4, 0}, 0, 0, 0, "http://x", "", "", {}, "r", ""};
    for (const MmDouble::Call& call : service.calls) {
        EXPECT_THAT(call.requests, ElementsAre(sent));
        EXPECT_EQ(call.ids, ids);
        EXPECT_EQ(call.transport, transport);
    }

    EXPECT_EQ(manager.tvServiceReq(ids, transport, requests), 0);
    manager.work();
    ASSERT_EQ(service.calls.size(), 3U);
    const mmservice::MMServiceReq_t stop{{4, 0}, 0, 0, 0, stopUri, "", "", {}, "r", ""};
    EXPECT_THAT(service.calls[2].requests, ElementsAre(stop));
    EXPECT_EQ(service.calls[2].ids, frame::MsgIds{});
    EXPECT_EQ(service.calls[2].transport, frame::TransportInfo{});
}

TEST_F(ManagerServices, LookUpTheMmServiceUntilItIsRegisteredAndThenKeepIt) {
    inOwnProcess([this] { expectMmServiceLookUpsUntilItIsRegistered(); });
}

} // namespace
