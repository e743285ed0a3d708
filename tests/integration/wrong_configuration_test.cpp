// Programs with a wrong configuration report it and exit.
#include "integration/program-run.h"

namespace {

using namespace program_run;
using testing::HasSubstr;

constexpr int badData = 6;

class AConfiguredProgram : public Programs, public testing::WithParamInterface<const char*> {
protected:
    Words command() const {
        const std::string name = GetParam();
        Words words{program(name)};
        if (name == "frame-host") words.push_back(library("libapp-tvservice-adapter.so"));
        if (name == "tvctl") words.push_back("help");
        return words;
    }
    std::string configure(const std::string& place, const std::string& text) const {
        const std::filesystem::path path = folder / place;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
        return path.string();
    }
    void expectError(const std::string& problem) const {
        EXPECT_EQ(run(command()), (Outcome{badData, "", GetParam() + (": " + problem) + '\n'}));
        EXPECT_FALSE(std::filesystem::exists(runtimeFolder()));
    }
};

INSTANTIATE_TEST_SUITE_P(IsRejected, AConfiguredProgram,
                         testing::Values("tvserviced", "mmserviced", "frame-host", "tvctl", "tvsa-demo"),
                         [](const auto& test) {
                             std::string name = test.param;
                             std::erase(name, '-');
                             return name;
                         });

TEST_P(AConfiguredProgram, RejectsAWrongFileThatTheVariableNames) {
    const std::string path = configure("some.toml", "[log]\nformat = \"text\"\n\n[queue]\nmessages = \"many\"\n");
    environment["TVSA_CONFIG"] = path;
    expectError(path + ":5: queue.messages: not a number from 1 to 2147483647: \"many\"");
}

TEST_P(AConfiguredProgram, RejectsAWrongFileOfTheUser) {
    environment["TVSA_CONFIG"] = "";
    environment["XDG_CONFIG_HOME"] = folder.string();
    const std::string path = configure("tvservice-adapter/config.toml", "[queues]\n");
    expectError(path +
                ":1: unknown table \"queues\"; known: endpoints, keys, remote, queue, run_log, flat_heap, recorder, "
                "media, log");
}

TEST_P(AConfiguredProgram, RejectsAFileThatIsNestedTooDeeply) {
    std::string key = "a";
    for (int i = 0; i < 60000; ++i) key += ".a";
    const std::string path = configure("some.toml", "[" + key + "]\n");
    environment["TVSA_CONFIG"] = path;
    expectError(path + ":1: nested more than 16 levels deep");
}

TEST_P(AConfiguredProgram, RejectsAFileThatIsMissing) {
    environment["TVSA_CONFIG"] = (folder / "none.toml").string();
    expectError((folder / "none.toml").string() + ": there is no such file (set by TVSA_CONFIG)");
}

TEST_P(AConfiguredProgram, RejectsAWrongVariable) {
    environment["TVSA_HEARTBEAT_MS"] = "often";
    expectError("TVSA_HEARTBEAT_MS: not a number from 10 to 60000: \"often\"");
}

TEST_P(AConfiguredProgram, RejectsAMalformedEndpoint) {
    const std::string path = configure("some.toml", "[endpoints]\ntvservice = \"tcp://127.0.0.1\"\n");
    environment["TVSA_CONFIG"] = path;
    expectError(path + ":2: endpoints.tvservice: not tcp://HOST:PORT: \"tcp://127.0.0.1\"");
    environment["TVSA_CONFIG"] = "/dev/null";
    const std::string tooLong = "/" + std::string(107, 'x');
    environment["TVSA_ENDPOINT_TVSERVICE"] = tooLong;
    expectError("TVSA_ENDPOINT_TVSERVICE: socket path too long (108 bytes): " + tooLong);
}

TEST_P(AConfiguredProgram, PrintsItsHelp) {
    environment["TVSA_CONFIG"] = configure("some.toml", "[queue");
    const Outcome outcome = run({program(GetParam()), "--help"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.output, HasSubstr("--help"));
    EXPECT_EQ(outcome.error, "");
}

using AServiceInTheFile = Programs;

TEST_F(AServiceInTheFile, UsesTheEndpointInTheFile) {
    const std::string socket = (folder / "elsewhere.sock").string(), file = (folder / "config.toml").string();
    std::ofstream(file) << "[endpoints]\ntvservice = \"" << socket
                        << "\"\n[log]\nlevels = \"info\"\nformat = \"json\"\n";
    environment["TVSA_CONFIG"] = file;
    const auto service = start({program("tvserviced")});
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(socket); }));
    const auto client = start({program("frame-host"), library("libapp-tvservice-adapter.so")});
    EXPECT_TRUE(eventually([&] {
        return client->error().find("\"text\":\"service tvservice: connected") != std::string::npos;
    })) << client->error();
    EXPECT_EQ(client->terminate().exitCode, 0);
    EXPECT_EQ(service->terminate().exitCode, 0);
}

class AProcessOfAReceiver : public AConfiguredProgram {
protected:
    // Runs the program until it serves, and returns what it has reported.
    std::string reportsWith(const std::string& levels) {
        environment["TVSA_LOG"] = levels;
        const auto running = start(command());
        const std::string shell = runtimeFolder() + '/' + GetParam() + ".shell";
        EXPECT_TRUE(eventually([&] { return std::filesystem::exists(shell); })) << running->error();
        const Outcome asked = run({program("tvctl"), "--target", GetParam(), "--timeout", "20", "help"});
        EXPECT_EQ(asked.exitCode, 0) << asked.error;
        return running->terminate().error;
    }
};

INSTANTIATE_TEST_SUITE_P(WarnsOfLogModules, AProcessOfAReceiver,
                         testing::Values("tvserviced", "mmserviced", "frame-host"), [](const auto& test) {
                             std::string name = test.param;
                             std::erase(name, '-');
                             return name;
                         });

TEST_P(AProcessOfAReceiver, ThatNoneOfItsProcessesHas) {
    EXPECT_THAT(
        reportsWith("off,nosuch=info"),
        testing::ContainsRegex(std::string("^") + GetParam() +
                               ": warning: log levels: no module of this process has the name nosuch; it has .*io"));
}

TEST_P(AProcessOfAReceiver, ButNotOfThoseOfOtherProcesses) {
    EXPECT_EQ(reportsWith("off,adapter=off,resource-manager=off,registrar=off,tv-proxy=off,mm-proxy=off,service=off,"
                          "control=off,frame=off,io=off,vdl=off,runlog=off,shell=off"),
              "");
}

class AService : public Programs, public testing::WithParamInterface<const char*> {
protected:
    void expectEngineError(const std::string& engine, const std::string& problem) {
        environment["TVSA_MEDIA_ENGINE"] = engine;
        const Outcome outcome = run({program(GetParam())});
        EXPECT_EQ(outcome.exitCode, badData) << engine;
        EXPECT_THAT(outcome.error, testing::StartsWith(std::string(GetParam()) + ": media.engine " + engine + ": "));
        EXPECT_THAT(outcome.error, HasSubstr(problem));
    }
};

INSTANTIATE_TEST_SUITE_P(Rejects, AService, testing::Values("tvserviced", "mmserviced"));

TEST_P(AService, AMediaEngineThatCannotBeLoaded) {
    expectEngineError("engine.so", "not auto, simulated, gstreamer or an absolute path");
    expectEngineError("/nowhere/engine.so", "cannot open shared object file");
    expectEngineError(library("libshell-application.so"), "has no engine");
    expectEngineError(library("libold-engine.so"), "is of version 1, not ");
    expectEngineError(library("libabsent-engine.so"), "made no engine");
}

} // namespace
