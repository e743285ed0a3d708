// tvctl doctor as users and scripts run it, with and without a receiver.
#include "integration/program-run.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

namespace {

using namespace program_run;
using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr int done = 0, failed = 1, usage = 2;

class TvctlDoctor : public Programs {
protected:
    TvctlDoctor() {
        environment["TVSA_CONFIG"] = (folder / "config.toml").string();
        configure("");
    }
    void configure(const std::string& text) const { std::ofstream(folder / "config.toml") << text; }
    Outcome doctor(const Words& arguments = {}) const {
        Words words{program("tvctl"), "doctor"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return run(words);
    }
    // Starts a service process. Returns once its shell has a socket.
    std::unique_ptr<Running> serving(const Words& command) const {
        auto running = start(command);
        const std::string shell =
            runtimeFolder() + '/' + std::filesystem::path(command[0]).filename().string() + ".shell";
        EXPECT_TRUE(eventually([&] { return std::filesystem::exists(shell); })) << running->error();
        return running;
    }
};

TEST_F(TvctlDoctor, FindsNoFaultWhereNothingRunsAndCreatesNothing) {
    const Outcome outcome = doctor();
    EXPECT_EQ(outcome.exitCode, done);
    EXPECT_EQ(outcome.error, "");
    EXPECT_THAT(outcome.output,
                AllOf(ContainsRegex("\nwarning +tvservice +not running"), ContainsRegex("\nwarning +mmservice +not"),
                      ContainsRegex("\n\n[0-9]+ ok, 2 warnings, 0 wrong\n$"), Not(HasSubstr("\x1b"))));
    EXPECT_FALSE(std::filesystem::exists(runtimeFolder()));
    EXPECT_FALSE(std::filesystem::exists(folder / "state"));
}

TEST_F(TvctlDoctor, FindsNoFaultInAReceiver) {
    const auto tv = serving({program("tvserviced")});
    const auto mm = serving({program("mmserviced")});
    const auto host = serving({program("frame-host"), library("libapp-tvservice-adapter.so")});
    const Outcome outcome = doctor({"--json"});
    EXPECT_EQ(outcome.exitCode, done);
    EXPECT_EQ(outcome.error, "");
    const json answer = json::parse(outcome.output);
    EXPECT_EQ(answer["warnings"], 0) << outcome.output;
    EXPECT_EQ(answer["wrong"], 0) << outcome.output;
    EXPECT_GT(answer["ok"], 5);
    EXPECT_EQ(answer["doors"].size(), 5U);
    for (const json& entryPoint : answer["doors"])
        EXPECT_EQ(entryPoint["who"], "user " + std::to_string(geteuid()) + " only") << entryPoint;
    EXPECT_THAT(doctor().output, AllOf(HasSubstr("OPEN AT"), HasSubstr(runtimeFolder() + "/tvservice.sock  ")));
    for (const auto& process : {&host, &mm, &tv})
        EXPECT_EQ((*process)->terminate().error, "") << "the doctor left no trace in its log";
    EXPECT_EQ(doctor({"--quiet"}).output.find("wrong"), std::string::npos);
}

// Without the library that it names, the receiver works again.
TEST_F(TvctlDoctor, NamesTheLibraryWhoseNotificationNeverReturns) {
    const auto tv = serving({program("tvserviced")});
    const auto mm = serving({program("mmserviced")});
    const Words receiver{program("frame-host"), library("libapp-tvservice-adapter.so"),
                         library("libcontrol-application.so")};
    Words wrong = receiver;
    wrong.push_back(library("libremoving-application.so"));
    auto host = serving(wrong);
    const auto asks = [&](const Words& words) {
        Words command{program("tvctl")};
        command.insert(command.end(), words.begin(), words.end());
        return run(command).exitCode == done;
    };
    ASSERT_TRUE(eventually([&] { return asks({"play", "0:0", "dvb://1.1.1"}); }));
    EXPECT_THAT(doctor({"--quiet"}).output, Not(HasSubstr("notification")));
    ASSERT_TRUE(asks({"--target", "tvserviced", "emit", "TvServiceMtsAudioTrackInfoNotify"}));
    Outcome outcome;
    ASSERT_TRUE(eventually([&] { return (outcome = doctor({"--quiet"})).exitCode == failed; }));
#ifdef __SANITIZE_THREAD__ // which delivers no signal to a thread that waits for a mutex
    const std::string reason = "its calls are unknown";
#else
    const std::string reason = "libremoving-application.so calls removeClient in it, which is forbidden";
#endif
    EXPECT_THAT(outcome.output, ContainsRegex("wrong +frame-host +a client has not returned from the notification "
                                              "TvServiceMtsAudioTrackInfoNotify for half a second: " +
                                              reason + "; .* -> correct that library"));
    host->terminate(SIGKILL);
    host = serving(receiver);
    EXPECT_TRUE(eventually([&] { return asks({"play", "0:0", "dvb://1.1.1"}); }));
    EXPECT_EQ(doctor({"--quiet"}).exitCode, done);
}

// At the latest when their own short limit has passed, and not after ten seconds. Following the advice mends it.
TEST_F(TvctlDoctor, AndReadingCommandsAnswerSoonWhenAProcessIsStopped) {
    std::map<std::string, std::unique_ptr<Running>> processes;
    processes["tvserviced"] = serving({program("tvserviced")});
    processes["mmserviced"] = serving({program("mmserviced")});
    processes["frame-host"] =
        serving({program("frame-host"), library("libapp-tvservice-adapter.so"), library("libcontrol-application.so")});
    const std::map<std::string, std::vector<Words>> reading{
        {"frame-host",
         {{"help"},
          {"terminals"},
          {"requests"},
          {"bundles"},
          {"answers"},
          {"stats"},
          {"runlog"},
          {"notifications"},
          {"handling"},
          {"log", "adapter=warning"},
          {"watch", "--once"}}},
        {"tvserviced", {{"help"}, {"terminals"}, {"stats"}, {"faults"}, {"channels"}, {"health"}}},
        {"mmserviced", {{"help"}, {"terminals"}, {"stats"}, {"faults"}, {"health"}}}};
    for (const auto& [name, process] : processes) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(eventually([&] { return doctor({"--quiet"}).exitCode == done; }));
        process->signal(SIGSTOP);
        const auto begin = std::chrono::steady_clock::now();
        for (const Words& command : reading.at(name)) {
            Words words{program("tvctl"), "--target", name};
            words.insert(words.end(), command.begin(), command.end());
            const Outcome outcome = run(words);
            EXPECT_EQ(outcome.exitCode, 4) << command[0];
            EXPECT_THAT(outcome.error, ContainsRegex("process [0-9]+ is stopped: continue it with: kill -CONT [0-9]+"))
                << command[0];
        }
        const Outcome found = doctor({"--quiet"});
        const auto each = (std::chrono::steady_clock::now() - begin) / (reading.at(name).size() + 1);
        EXPECT_LT(each, std::chrono::seconds(5));
        EXPECT_EQ(found.exitCode, failed);
        EXPECT_THAT(found.output, ContainsRegex("wrong +" + name + " +process [0-9]+ is stopped"));
        const auto advice = found.output.find("kill -CONT ");
        ASSERT_NE(advice, std::string::npos);
        const std::string command = found.output.substr(advice, found.output.find('\n', advice) - advice);
        EXPECT_EQ(run({"/bin/sh", "-c", command}).exitCode, done) << command;
    }
    EXPECT_TRUE(eventually([&] { return doctor({"--quiet"}).exitCode == done; }));
}

TEST_F(TvctlDoctor, FailsWhenSomethingIsWrong) {
    std::filesystem::create_directory(runtimeFolder());
    std::filesystem::permissions(runtimeFolder(), std::filesystem::perms(0755));
    const Outcome outcome = doctor({"--quiet"});
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.output, ContainsRegex("wrong +" + runtimeFolder() + " +.*open to other users.* -> "));
    EXPECT_THAT(outcome.output, Not(HasSubstr("ok  ")));
}

TEST_F(TvctlDoctor, FailsForAStaleSocket) {
    const auto service = serving({program("tvserviced")});
    EXPECT_EQ(doctor().exitCode, done);
    service->terminate(SIGKILL);
    const Outcome outcome = doctor({"--quiet"});
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.output,
                ContainsRegex("wrong +tvservice +" + runtimeFolder() + "/tvservice.sock is stale.* -> "));
}

TEST_F(TvctlDoctor, RunsWithAConfigurationThatOtherProgramsReject) {
    configure("queue.messages = 0\n");
    const Outcome outcome = doctor({"--json"});
    EXPECT_EQ(outcome.exitCode, failed);
    const json finding = json::parse(outcome.output)["findings"][0];
    EXPECT_EQ(finding["severity"], "wrong");
    EXPECT_EQ(json::parse(outcome.output)["wrong"], 1) << outcome.output;
    EXPECT_THAT(finding["what"], HasSubstr("config.toml:1: queue.messages"));
}

TEST_F(TvctlDoctor, RejectsWrongUsage) {
    EXPECT_EQ(doctor({"--fast"}).exitCode, usage);
    EXPECT_EQ(doctor({"tvservice"}).exitCode, usage);
    EXPECT_EQ(doctor({"--target", "frame-host"}).exitCode, usage);
    EXPECT_THAT(doctor({"--help"}).output, HasSubstr("Exit codes: 0 nothing is wrong"));
    const Outcome full = run({program("tvctl"), "doctor"}, R"(exec "$0" "$@" </dev/null >/dev/full)");
    EXPECT_EQ(full, (Outcome{failed, "", "tvctl: cannot write to standard output\n"}));
}

} // namespace
