// The debug command that switches the source of the main screens, and how it finds its shell.
#include "ovshell.h"

#include "support/adapter-process.h"
#include "support/fake-shell.h"
#include "support/log-texts.h"

#include <frame/process.h>
#include <genrpc/log.h>
#include <host/log-capture.h>
#include <tvservice-adapter/model-tvservice-adapter.h>
#include <tvservice-adapter/testing/main.h>
#include <tvservice-adapter/testing/receiver.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <vector>

using namespace tvservice;
using support::FakeShell;
using support::textsOf;
using testing::ElementsAre;
using testing::SizeIs;

namespace {
char markerFile[64] = "/nonexistent";
}
// The file that marks a receiver under development. The test chooses it.
namespace tvservice {
const char* const debugVersionFile = markerFile;
}

namespace {

void** (*shellFactory)() = nullptr; // called to start the process's shell

void** noMembers() { return nullptr; }
void** membersWithoutShell() { return static_cast<void**>(std::calloc(1, sizeof(void*))); }

// A shell that registers itself in its set-up, as the platform's shell does.
class StartedShell : public FakeShell {
protected:
    int performSetupDone() override {
        return registerInterface(static_cast<appovshell::Server*>(this), appovshell::Server::name());
    }
};
StartedShell* startedShell = nullptr;
void** oneShell() {
    startedShell = new StartedShell;
    void** members = static_cast<void**>(std::calloc(2, sizeof(void*)));
    members[0] = static_cast<frame::AbstractProcessMember*>(startedShell);
    return members;
}

} // namespace

extern "C" void** CreateOvshellProxy() { return shellFactory(); }

namespace {

// A started adapter whose services do not answer. It lives as long as the process, as in a receiver.
struct StartedAdapter {
    support::RegisteredTvService tv;
    support::RegisteredMmService mm;
    ModelTvServiceAdapter adapter;
    std::vector<std::string> startLines; // the registrar's lines of two starts

    static StartedAdapter& get() {
        static StartedAdapter* const started = [] {
            FakeShell::get();
            auto* made = new StartedAdapter;
            made->adapter.attachProcess(*frame::Process::getInstance());
            const host::LogCapture log{{genrpc::RegistrarLog}};
            EXPECT_EQ(made->adapter.start(), 0);
            EXPECT_EQ(made->adapter.stop(), 0);
            EXPECT_EQ(made->adapter.start(), 0);
            made->startLines = textsOf(log);
            return made;
        }();
        return *started;
    }
};

class PathSwitch : public testing::Test {
protected:
    std::string run(const std::string& argument) {
        EXPECT_EQ(shell.run("pathswitch :s", argument), 0);
        return shell.printed;
    }
    // Whether the command sends a request. It sends before it returns.
    bool sends(const std::string& argument) {
        const host::LogCapture log{{genrpc::AdapterLog}};
        run(argument);
        return log.waitFor("tvServiceReq(): Called.", std::chrono::seconds(0));
    }

    StartedAdapter& started = StartedAdapter::get();
    FakeShell& shell = FakeShell::get();
};

// ---- the command ----

TEST_F(PathSwitch, IsRegisteredOnceHoweverOftenTheAdapterStarts) {
    EXPECT_EQ(shell.registrations, 1);
    ASSERT_THAT(shell.commands, SizeIs(1));
    EXPECT_EQ(shell.commands.begin()->first, "pathswitch :s");
    EXPECT_EQ(shell.commands.begin()->second.help, "simple path switch");
    ASSERT_THAT(started.startLines, SizeIs(3));
    EXPECT_EQ(started.startLines[0], "ovshell.cpp:ovRegister(): Called ");
    EXPECT_EQ(started.startLines[1], "ovshell.cpp:registerCommand(): Called ");
    EXPECT_THAT(started.startLines[2],
                testing::StartsWith("ovshell.cpp:svcAppovshell(): ovshell-interface pointer = "));
}

TEST_F(PathSwitch, LogsAndPrintsItsArgument) {
    const host::LogCapture log{{genrpc::RegistrarLog}};
    EXPECT_EQ(run("something"), "something");
    EXPECT_THAT(textsOf(log), ElementsAre("ovshell.cpp:pathswitch(): Called "));
    EXPECT_EQ(log.lines()[0].levelWord, genrpc::RegistrarLog * 65536U + vdlDebugTrace);
}

TEST_F(PathSwitch, SendsARequestForEitherOfItsTwoWordsAndNoneForOthers) {
    EXPECT_TRUE(sends("hdmi"));
    EXPECT_TRUE(sends("mm"));
    EXPECT_TRUE(sends(std::string("hdmi\0x", 6))) << "the text ends at a NUL";
    for (const char* other : {"HDMI", "", "hdmi ", " mm", "mmm", "hdmi%%", "hd%d", "%dmm"})
        EXPECT_FALSE(sends(other)) << '"' << other << '"';
}

TEST_F(PathSwitch, InterpretsPercentSignsInItsArgument) {
    EXPECT_EQ(run("%%"), "%");
    EXPECT_EQ(run("100%% hdmi"), "100% hdmi");
    EXPECT_EQ(run("%d").find('%'), std::string::npos);
}

TEST_F(PathSwitch, CutsItsArgumentTo511Characters) {
    EXPECT_EQ(run(std::string(600, 'x')), std::string(511, 'x'));
    EXPECT_EQ(run(std::string(511, 'y')), std::string(511, 'y'));
}

TEST_F(PathSwitch, StaysRegisteredWhenItsRegistrarEnds) {
    const host::LogCapture log{{genrpc::RegistrarLog}};
    { ovRegister another(&started.adapter); } // the shell rejects its command, which is registered already
    EXPECT_THAT(textsOf(log), ElementsAre("ovshell.cpp:ovRegister(): Called ", "ovshell.cpp:registerCommand(): Called ",
                                          "ovshell.cpp:~ovRegister(): Called "));
    EXPECT_EQ(run("still there"), "still there");
}

// ---- what it requests ----

class PathSwitchRequests : public testing::Test {
protected:
    // What the service receives apart from stops, which come first.
    static std::vector<TvServiceReq_t> startsOf(tvtest::Service& service) {
        std::vector<TvServiceReq_t> starts;
        for (const auto& request : service.requests())
            if (request.uri != stopUri) starts.push_back(request.record);
        return starts;
    }
    tvtest::Receiver receiver;
};

TEST_F(PathSwitchRequests, ToHdmiShowTheInputOnFiveTerminals) {
    EXPECT_EQ(receiver.command("pathswitch", {"hdmi"}), "hdmi");
    const auto requests = startsOf(receiver.tv());
    ASSERT_THAT(requests, SizeIs(5));
    EXPECT_NE(requests[0].reqId, "");
    const std::int32_t types[] = {0, 9, 1, 4, 8};
    for (std::size_t i = 0; i < 5; ++i) {
        TvServiceReq_t expected;
        expected.terminal = {types[i], 0};
        expected.intParam2 = 3;
        expected.uri = "rec://plain/hdmi?id=0";
        expected.uuid = "HDMI1";
        expected.strParam2 = "extin";
        expected.strParam3 = "4";
        expected.reqId = requests[0].reqId;
        EXPECT_EQ(requests[i], expected);
    }
}

TEST_F(PathSwitchRequests, ToMmShowTheExternalSourceOnThreeTerminals) {
    EXPECT_EQ(receiver.command("pathswitch", {"mm"}), "mm");
    const auto requests = startsOf(receiver.mm());
    ASSERT_THAT(requests, SizeIs(3));
    EXPECT_NE(requests[0].reqId, "");
    const std::int32_t types[] = {0, 1, 4};
    for (std::size_t i = 0; i < 3; ++i) {
        TvServiceReq_t expected;
        expected.terminal = {types[i], 0};
        expected.intParam2 = 3;
        expected.uri = "external://plain/dmp";
        expected.reqId = requests[0].reqId;
        EXPECT_EQ(requests[i], expected);
    }
}

// ---- the shell that it needs: one process per test, because the shell is looked up once per process ----

class PathSwitchShell : public testing::Test {
protected:
    PathSwitchShell() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

// Creates a registrar in a process whose shell is made by `factory`. Its log lines go to stderr.
[[noreturn]] void registerWith(void** (*factory)(), const char* marker = "/nonexistent") {
    shellFactory = factory;
    std::snprintf(markerFile, sizeof markerFile, "%s", marker);
    const host::LogCapture log{{genrpc::RegistrarLog}, false};
    ovRegister registrar(nullptr);
    std::string all;
    for (const auto& line : textsOf(log)) all += line + '|';
    std::fprintf(stderr, "%s%d commands\n", all.c_str(), startedShell == nullptr ? 0 : startedShell->registrations);
    std::_Exit(0);
}

TEST_F(PathSwitchShell, IsStartedWhenItIsMissing) {
    EXPECT_EXIT(
        registerWith(oneShell), testing::ExitedWithCode(0),
        testing::HasSubstr("ovshell.cpp:ovRegister(): Called |ovshell.cpp:registerCommand(): Called |1 commands"));
}

bool endsFatallyButNotByAbort(int status) {
    return WIFSIGNALED(status) ? WTERMSIG(status) != SIGABRT : WEXITSTATUS(status) != 0;
}

TEST_F(PathSwitchShell, IsReportedAndEndsTheProcessWhenItCannotBeStarted) {
    EXPECT_EXIT(registerWith(noMembers), endsFatallyButNotByAbort,
                testing::AllOf(testing::HasSubstr("svcAppovshell(): Unable to lookup ovshell-interface: -22."),
                               testing::HasSubstr("svcAppovshell(): pService != nullptr ASSERT FAILED !!!")));
}

TEST_F(PathSwitchShell, EndsTheProcessWhenItIsStillMissingAfterItsStart) {
    EXPECT_EXIT(registerWith(membersWithoutShell), endsFatallyButNotByAbort,
                testing::AllOf(testing::Not(testing::HasSubstr("Unable to lookup")),
                               testing::HasSubstr("svcAppovshell(): pService != nullptr ASSERT FAILED !!!")));
}

TEST_F(PathSwitchShell, AbortsAReceiverUnderDevelopmentAfterASecondWhenMissing) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EXIT(registerWith(noMembers, "/proc/self/exe"), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("svcAppovshell(): pService != nullptr ASSERT FAILED !!!"));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

} // namespace

int main(int count, char** words) { return tvtest::runTests(count, words); }
