// The log lines of the adapter, of the registrar of its command and of the proxies: module, severity and text.
#include "app-mmservice-proxy-main.h"
#include "app-tvservice-proxy-main.h"
#include "client-objects.h"
#include "ovshell.h"
#include "support/adapter-process.h"
#include "support/log-texts.h"
#include "support/recording-module.h"

#include <genrpc/log.h>
#include <mmservice/messages.h>
#include <tvservice/messages.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

extern "C" void** CreateTvMmService();

// The factory of the process's shell. There is no shell here.
extern "C" void** CreateOvshellProxy() { return nullptr; }

using testing::ElementsAreArray;

namespace {

// ---- lines as text: "module severity file:function(): what" ----

enum Severity : int { failure = 1000, warning = 3000, progress = 4000, trace = 5000 };

std::string line(unsigned module, int severity, const std::string& text) {
    char start[32];
    std::snprintf(start, sizeof start, "%04x %d ", module, severity);
    return start + text;
}
std::string adapter(int severity, const std::string& text) {
    return line(0x0101, severity, "tvservice-adapter.cpp:" + text);
}
std::string registrar(int severity, const std::string& text) { return line(0x0103, severity, "ovshell.cpp:" + text); }
std::string tvProxy(int severity, const std::string& text) {
    return line(0x0104, severity, "app-tvservice-proxy-main.cpp:" + text);
}
std::string mmProxy(int severity, const std::string& text) {
    return line(0x0105, severity, "app-mmservice-proxy-main.cpp:" + text);
}

// The lines that these four modules log during act. Addresses are replaced by P.
std::vector<std::string> linesOf(const std::function<void()>& act) {
    const std::vector<std::uint32_t> modules{genrpc::AdapterLog, genrpc::RegistrarLog, genrpc::TvProxyLog,
                                             genrpc::MmProxyLog};
    const host::LogCapture log{modules};
    act();
    std::vector<std::string> lines;
    for (auto& [levelWord, text, thread] : support::ownLinesOf(log)) {
        const std::uint32_t module = levelWord >> 16;
        if (std::find(modules.begin(), modules.end(), module) == modules.end()) continue;
        const std::string before = "pointer = ";
        if (const auto pointer = text.find(before + "0x"); pointer != std::string::npos) {
            const auto from = pointer + before.size();
            text.replace(from, text.find('.', from) - from, "P");
        }
        lines.push_back(line(module, static_cast<int>(levelWord & 0xFFFF), text));
    }
    return lines;
}

// ---- the members that log ----

using TvService = support::RegisteredTvService;
using MmService = support::RegisteredMmService;

template <class Member> std::unique_ptr<Member> attached() {
    auto member = std::make_unique<Member>();
    member->attachProcess(*frame::Process::getInstance());
    return member;
}

void deleteMembers(void** members) {
    for (void** member = members; *member != nullptr; ++member)
        delete static_cast<frame::AbstractProcessMember*>(*member);
    std::free(members);
}

// Adds a client twice and removes it twice.
template <class Registry, class Client> void useRegistry(Registry& registry) {
    const auto client = boost::make_shared<Client>();
    registry.addClient(client);
    registry.addClient(client);
    registry.removeClient(client);
    registry.removeClient(client);
}

class MmClient : public mmservice::ClientInterface {
    int mmServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                      const std::vector<mmservice::MMServiceInfo_t>&) override {
        return 0;
    }
};
using TvClient = support::RecordingTvClient;

// ---- scenes: each returns the lines logged in it ----

using Lines = std::vector<std::string>;

template <class Member> Lines lifeOnADetachedBase() {
    return linesOf([] {
        Member detached;
        detached.setupDone();
        detached.start();
        detached.stop();
    });
}

template <class Member> Lines setUpWithTheKeyTaken() {
    const auto first = attached<Member>(), second = attached<Member>();
    first->setupDone();
    auto lines = linesOf([&] { second->setupDone(); });
    first->detachProcess();
    return lines;
}

// A proxy's work from set-up to stop, with one request and one notification.
template <class Proxy, class Client> Lines work(void (*send)(Proxy&), void (*notify)(Proxy&)) {
    support::RecordingModule module;
    const auto proxy = attached<Proxy>();
    auto lines = linesOf([&] {
        proxy->setupDone();
        proxy->setOmqIOModule(&module);
        proxy->registerMessageHandlers();
        proxy->start();
        useRegistry<Proxy, Client>(*proxy);
        send(*proxy);
        notify(*proxy);
        proxy->stop();
    });
    proxy->detachProcess();
    return lines;
}

Lines tvProxyAtWork() {
    return work<tvservice::Proxy, TvClient>(
        [](tvservice::Proxy& proxy) {
            frame::MsgIds ids;
            proxy.tvServiceInfoReq(ids, {});
        },
        [](tvservice::Proxy& proxy) {
            using Message = tvservice::messages::TvServiceCcInfoNotify;
            const support::FlatBody<Message> body({});
            tvservice::Proxy::callTvServiceCcInfoNotify(Message::meta, {}, body.get(), &proxy);
        });
}

Lines mmProxyAtWork() {
    return work<mmservice::Proxy, MmClient>(
        [](mmservice::Proxy& proxy) {
            frame::MsgIds ids;
            proxy.mmServiceReq(ids, {}, {});
        },
        [](mmservice::Proxy& proxy) {
            using Message = mmservice::messages::MmServiceInfo;
            const support::FlatBody<Message> body({});
            mmservice::Proxy::callMmServiceInfo(Message::meta, {}, body.get(), &proxy);
        });
}

// An adapter from creation to destruction, when another adapter has installed the debug command.
Lines adapterLife(bool withServices) {
    const host::LogCapture unseen;
    support::newAdapter().start();
    auto& adapter = support::newAdapter();
    const auto live = [&] {
        return linesOf([&] {
            adapter.setupDone();
            adapter.start();
            adapter.stop();
        });
    };
    Lines lines;
    if (withServices) {
        const TvService tv;
        const MmService mm;
        lines = live();
    } else {
        lines = live();
    }
    adapter.detachProcess();
    return lines;
}

Lines adapterForwarding() {
    TvService tv;
    MmService mm;
    auto& adapter = support::newAdapter();
    adapter.start();
    return linesOf([&] {
        useRegistry<tvservice::ModelTvServiceAdapter, TvClient>(adapter);
        frame::MsgIds ids;
        adapter.tvServiceInfoReq(ids, {});
        tv.clients.back()->tvServiceInfo(ids, {}, {});
    });
}

Lines mmClientObjectAtWork() {
    tvservice::MmServiceClient object;
    return linesOf([&] {
        useRegistry<tvservice::MmServiceClient, MmClient>(object);
        frame::MsgIds ids;
        object.mmServiceInfo(ids, {}, std::vector<mmservice::MMServiceInfo_t>(3));
    });
}

// ---- the expected lines ----

using MakeLine = std::string (*)(int severity, const std::string& text);

Lines join(std::initializer_list<Lines> parts) {
    Lines all;
    for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

Lines called(MakeLine line, const std::string& function) { return {line(trace, function + "(): Called.")}; }

// A step of a member that fails because its base class fails.
Lines baseFails(MakeLine line, const std::string& step) {
    return join({called(line, step), {line(failure, step + "(): Parent class " + step + "() returned -107.")}});
}
Lines everyStepFails(MakeLine line) {
    return join(
        {baseFails(line, "performSetupDone"), baseFails(line, "performStarting"), baseFails(line, "performStopping")});
}
Lines keyTaken(MakeLine line) {
    return join(
        {called(line, "performSetupDone"), {line(failure, "performSetupDone(): Unable to register interface: -17.")}});
}
Lines registryUsed(MakeLine line) {
    return {line(progress, "addClient(): success, 1 total."),
            line(warning, "addClient(): Client already exists, 1 total."),
            line(progress, "removeClient(): success, 0 remaining."),
            line(warning, "removeClient(): client not found (of 0 known ones)")};
}
Lines made(MakeLine line, const std::string& service) {
    return join({called(line, "Proxy"), {line(progress, "Proxy(): the buffer size for " + service + " is 16384.")}});
}
Lines worked(MakeLine line, const std::string& request, const std::string& handler) {
    return join({called(line, "performSetupDone"),
                 called(line, "registerMessageHandlers"),
                 called(line, "performStarting"),
                 registryUsed(line),
                 called(line, request),
                 {line(trace, handler + "(): Eneter"), line(trace, handler + "(): Exit")},
                 called(line, "performStopping")});
}
Lines adapterDeleted() {
    return join({called(adapter, "~ModelTvServiceAdapter"), called(adapter, "~ModelTvServiceAdapter")});
}
Lines adapterLived(int severity, const std::string& tv, const std::string& mm) {
    return join({called(adapter, "performSetupDone"),
                 called(adapter, "performStarting"),
                 {adapter(severity, "performStarting(): " + tv), adapter(severity, "performStarting(): " + mm)},
                 called(adapter, "performStopping")});
}

struct Scene {
    const char* name;
    Lines (*play)();
    Lines lines;
};

std::vector<Scene> scenes() {
    return {
        {"AllMembersMadeAndDeleted", [] { return linesOf([] { deleteMembers(CreateTvMmService()); }); },
         join({called(adapter, "CreateTvMmService"), made(tvProxy, "tvservice"), made(mmProxy, "mmservice"),
               called(adapter, "ModelTvServiceAdapter"), called(tvProxy, "~Proxy"), called(mmProxy, "~Proxy"),
               adapterDeleted()})},
        {"TvProxyMadeAndDeleted", [] { return linesOf([] { deleteMembers(CreateTvServiceProxy()); }); },
         join({called(tvProxy, "CreateTvServiceProxy"), made(tvProxy, "tvservice"), called(tvProxy, "~Proxy")})},
        {"MmProxyMadeAndDeleted", [] { return linesOf([] { deleteMembers(CreateMMServiceProxy()); }); },
         join({called(mmProxy, "CreateMMServiceProxy"), made(mmProxy, "mmservice"), called(mmProxy, "~Proxy")})},
        {"TvProxyOnADetachedBase", lifeOnADetachedBase<tvservice::Proxy>,
         join({made(tvProxy, "tvservice"), everyStepFails(tvProxy), called(tvProxy, "~Proxy")})},
        {"MmProxyOnADetachedBase", lifeOnADetachedBase<mmservice::Proxy>,
         join({made(mmProxy, "mmservice"), everyStepFails(mmProxy), called(mmProxy, "~Proxy")})},
        {"AdapterOnADetachedBase", lifeOnADetachedBase<tvservice::ModelTvServiceAdapter>,
         join({called(adapter, "ModelTvServiceAdapter"), everyStepFails(adapter), adapterDeleted()})},
        {"TvProxyWithItsKeyTaken", setUpWithTheKeyTaken<tvservice::Proxy>, keyTaken(tvProxy)},
        {"MmProxyWithItsKeyTaken", setUpWithTheKeyTaken<mmservice::Proxy>, keyTaken(mmProxy)},
        {"AdapterWithItsKeyTaken", setUpWithTheKeyTaken<tvservice::ModelTvServiceAdapter>, keyTaken(adapter)},
        {"TvProxyAtWork", tvProxyAtWork, worked(tvProxy, "tvServiceInfoReq", "callTvServiceCcInfoNotify")},
        {"MmProxyAtWork", mmProxyAtWork, worked(mmProxy, "mmServiceReq", "callMmServiceInfo")},
        {"AdapterWithServices", [] { return adapterLife(true); },
         adapterLived(progress, "tvservice-interface pointer = P.", "mmservice-interface pointer = P.")},
        {"AdapterWithoutServices", [] { return adapterLife(false); },
         adapterLived(failure, "Unable to lookup tvservice-interface: -2.",
                      "Unable to lookup mmservice-interface: -2.")},
        {"AdapterForwarding", adapterForwarding,
         join({registryUsed(adapter), called(adapter, "tvServiceInfoReq"), called(adapter, "tvServiceInfo")})},
        {"MmClientObjectAtWork", mmClientObjectAtWork,
         join({registryUsed(adapter), {adapter(trace, "mmServiceInfo(): Called mmServiceInfo size 3.")}})},
    };
}

void PrintTo(const Scene& scene, std::ostream* out) { *out << scene.name; }

class LogLines : public testing::TestWithParam<Scene> {};

TEST_P(LogLines, AreAsListed) { EXPECT_THAT(GetParam().play(), ElementsAreArray(GetParam().lines)); }

INSTANTIATE_TEST_SUITE_P(Of, LogLines, testing::ValuesIn(scenes()),
                         [](const auto& scene) { return std::string(scene.param.name); });

TEST(LinesOf, ExcludeLinesThatAnotherThreadLogs) {
    tvservice::MmServiceClient object;
    EXPECT_THAT(linesOf([&] {
                    std::thread([] {
                        vdlDebugOutput0(vdlDebugChunk{genrpc::ManagerLog << 16 | vdlDebugFailure}, "elsewhere");
                    }).join();
                    frame::MsgIds ids;
                    object.mmServiceInfo(ids, {}, {});
                }),
                testing::ElementsAre(adapter(trace, "mmServiceInfo(): Called mmServiceInfo size 0.")));
}

// The registrar looks up its shell once per process, so each of these tests has its own process.

TEST(RegistrarLogLinesDeathTest, ReportThatTheShellWasFound) {
    const auto expected =
        Lines{registrar(trace, "ovRegister(): Called "), registrar(trace, "registerCommand(): Called "),
              registrar(progress, "svcAppovshell(): ovshell-interface pointer = P."),
              registrar(trace, "~ovRegister(): Called ")};
    EXPECT_EXIT(
        {
            support::FakeShell::get();
            const bool same = linesOf([] { tvservice::ovRegister registrar(nullptr); }) == expected;
            std::_Exit(same ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(RegistrarLogLinesDeathTest, ReportThatThereIsNoShell) {
    const auto containsLine = [](const std::string& what) {
        return testing::ContainsRegex("0x0103 failure: ovshell.cpp:[0-9]+:svcAppovshell\\(\\): " + what);
    };
    EXPECT_EXIT(
        tvservice::ovRegister(nullptr), [](int status) { return status != 0; },
        testing::AllOf(containsLine("Unable to lookup ovshell-interface: -22\\."),
                       containsLine("pService != nullptr ASSERT FAILED !!!")));
}

} // namespace
