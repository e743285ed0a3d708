// Failures with all log modules switched off: the same results, without log lines.
#include "app-mmservice-proxy-main.h"
#include "app-tvservice-proxy-main.h"
#include "client-objects.h"
#include "ovshell.h"
#include "support/adapter-process.h"
#include "unit/resource-manager-fixture.h"

#include <frame/process.h>
#include <tvservice/client-base.h>

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>

// The factory of the process's shell. There is no shell here.
extern "C" void** CreateOvshellProxy() { return nullptr; }

namespace {

using namespace managertest;

class MmClient : public mmservice::ClientInterface {
    int mmServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                      const std::vector<mmservice::MMServiceInfo_t>&) override {
        return 0;
    }
};

class SilentModules : public testing::Test {
protected:
    SilentModules() {
        EXPECT_EQ(vdlDebugSetLevels("off"), "");
        SimulatedTime::install();
    }
    ~SilentModules() override {
        EXPECT_THAT(show(log.lines()), IsEmpty());
        vdlDebugSetLevels("warning");
    }

    const host::LogCapture log{{0x0204}}; // this module logs nothing here; the capture restores the levels
};

TEST_F(SilentModules, FailWhenTheirBasesFail) {
    tvservice::Proxy tvProxy;
    mmservice::Proxy mmProxy;
    ModelTvServiceAdapter adapter;
    for (frame::AbstractProcessMember* detached :
         std::initializer_list<frame::AbstractProcessMember*>{&tvProxy, &mmProxy, &adapter}) {
        EXPECT_EQ(detached->setupDone(), -107);
        EXPECT_EQ(detached->start(), -107);
        EXPECT_EQ(detached->stop(), -107);
    }
}

template <class Member> void expectTheKeyOnce() {
    Member first, second;
    for (Member* member : {&first, &second}) ASSERT_EQ(member->attachProcess(*frame::Process::getInstance()), 0);
    EXPECT_EQ(first.setupDone(), 0);
    EXPECT_EQ(second.setupDone(), -17);
    for (Member* member : {&second, &first}) member->detachProcess();
}

TEST_F(SilentModules, FailWhenTheirKeyIsTaken) {
    expectTheKeyOnce<tvservice::Proxy>();
    expectTheKeyOnce<mmservice::Proxy>();
    expectTheKeyOnce<ModelTvServiceAdapter>();
}

TEST_F(SilentModules, StartWithoutServices) {
    auto& adapter = support::newAdapter();
    EXPECT_EQ(adapter.start(), 0);
    EXPECT_EQ(adapter.stop(), 0);
    adapter.detachProcess();
}

TEST_F(SilentModules, RejectDuplicateAndUnknownClients) {
    const auto expectRejected = [](auto& registry, const auto& client, int known, int unknown) {
        EXPECT_EQ(registry.addClient(client), 0);
        EXPECT_EQ(registry.addClient(client), known);
        EXPECT_EQ(registry.removeClient(client), 0);
        EXPECT_EQ(registry.removeClient(client), unknown);
    };
    tvservice::Proxy tvProxy;
    mmservice::Proxy mmProxy;
    TvServiceClient tvObject;
    MmServiceClient mmObject;
    const auto tvClient = boost::make_shared<ClientBase>();
    const auto mmClient = boost::make_shared<MmClient>();
    expectRejected(tvProxy, tvClient, -17, -2);
    expectRejected(mmProxy, mmClient, -17, -2);
    expectRejected(tvObject, tvClient, -1, -1);
    expectRejected(mmObject, mmClient, -1, -1);
}

// Sends as the product does, to services that do not exist, or runs out of memory.
class SendingManager : public Manager {
public:
    int ReqMM(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<TvServiceReq_t>& requests) override {
        if (outOfMemory) throw std::bad_alloc();
        return ResManager::ReqMM(ids, transport, requests); // NOLINT(bugprone-parent-virtual-call): not the double's
    }
    int ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<TvServiceReq_t>& requests) override {
        return ResManager::ReqTV(ids, transport, requests); // NOLINT(bugprone-parent-virtual-call): not the double's
    }
    bool outOfMemory = false;
};

TEST_F(SilentModules, DropRequestsThatCouldNotBeSent) {
    SendingManager manager;
    for (const bool outOfMemory : {false, true}) {
        manager.outOfMemory = outOfMemory;
        manager.ask({request(1, 0, "http://film", "id"), request(2, 0, "dvb://1", "id")});
        manager.work();
        EXPECT_EQ(manager.queue().size(), 1U);
        SimulatedTime::get().now += 6s;
        manager.work();
        EXPECT_THAT(manager.queue(), IsEmpty());
    }
    manager.outOfMemory = false;
    frame::MsgIds ids;
    EXPECT_EQ(manager.ReqMM(ids, {}, {request(1, 0, "http://film")}), -1);
    EXPECT_EQ(manager.ReqTV(ids, {}, {request(2, 0, "dvb://1")}), -1);
}

TEST_F(SilentModules, RejectEarlyAnswersAndThoseToABundleThatEndsAfterItsStop) {
    Manager manager;
    manager.ask({request(1, 0, stopUri)});
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), -1);
    manager.queued().front()->resOps[1].endAfterStop = true;
    manager.work();
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), -1);
    EXPECT_THAT(manager.queue(), IsEmpty());
    EXPECT_EQ(manager.answer(static_cast<ResResponse>(7), {info(1, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "2")}), 0);
}

TEST(ModuleNames, SetTheLevelsOfTheModules) {
    genrpc::nameLogModules();
    const std::vector<std::pair<std::string, genrpc::LogModule>> modules{{"adapter", genrpc::AdapterLog},
                                                                         {"resource-manager", genrpc::ManagerLog},
                                                                         {"registrar", genrpc::RegistrarLog},
                                                                         {"tv-proxy", genrpc::TvProxyLog},
                                                                         {"mm-proxy", genrpc::MmProxyLog}};
    for (const auto& [name, module] : modules) {
        EXPECT_EQ(vdlDebugSetLevels(name + "=4321"), "");
        EXPECT_EQ(vdlDebugLevels[module % vdlDebugModules], 4321) << name;
    }
    vdlDebugSetLevels("warning");
}

// The environment that runs the program may write lines about its end.
const auto logsNothing = testing::Not(testing::ContainsRegex("(failure|warning|progress|trace): "));

TEST(SilentModulesDeathTest, EndTheProcessForMixedIds) {
    EXPECT_EXIT(
        {
            vdlDebugSetLevels("off");
            Manager().ask({request(0, 0, "a", "one"), request(1, 0, "b", "two")});
        },
        testing::KilledBySignal(SIGABRT), logsNothing);
}

TEST(SilentModulesDeathTest, EndTheProcessWithoutAShell) {
    EXPECT_EXIT(
        {
            vdlDebugSetLevels("off");
            ovRegister registrar(nullptr);
        },
        [](int status) { return status != 0; }, logsNothing);
}

} // namespace
