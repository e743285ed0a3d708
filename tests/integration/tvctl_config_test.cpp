// tvctl config, which needs no receiver.
#include "integration/program-run.h"

#include <nlohmann/json.hpp>

namespace {

using namespace program_run;
using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

constexpr int done = 0, failed = 1, usage = 2, badData = 6;

class TvctlConfig : public Programs {
protected:
    TvctlConfig() {
        file = (folder / "config.toml").string();
        environment["TVSA_CONFIG"] = file;
    }
    void configure(const std::string& text) const { std::ofstream(file) << text; }
    Outcome config(const Words& before = {}, const Words& after = {}) const {
        Words words{program("tvctl")};
        words.insert(words.end(), before.begin(), before.end());
        words.push_back("config");
        words.insert(words.end(), after.begin(), after.end());
        return run(words);
    }
    static json named(const json& settings, const std::string& name) {
        for (const json& setting : settings)
            if (setting["name"] == name) return setting;
        return {};
    }

    std::string file;
};

TEST_F(TvctlConfig, PrintsTheOriginOfEachValue) {
    configure("[endpoints]\ntvservice = \"tcp://192.0.2.7:7401\"\n\n[queue]\nmessages = 12\nbytes = 13\n");
    environment["TVSA_QUEUE_BYTES"] = "4711";
    const Outcome outcome = config();
    EXPECT_EQ(outcome.exitCode, done);
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.output,
              "SETTING              VALUE                 FROM\n"
              "endpoints.tvservice  tcp://192.0.2.7:7401  " +
                  file +
                  ":2\n"
                  "keys.file            -                     -\n"
                  "keys.clients         -                     -\n"
                  "remote.heartbeat_ms  1000                  built in\n"
                  "queue.messages       12                    " +
                  file +
                  ":5\n"
                  "queue.bytes          4711                  TVSA_QUEUE_BYTES\n"
                  "queue.wait_ms        5000                  built in\n"
                  "queue.unfinished_ms  5000                  built in\n"
                  "run_log.queue        1024                  built in\n"
                  "flat_heap.megabytes  256                   built in\n"
                  "recorder.megabytes   8                     built in\n"
                  "media.engine         simulated             TVSA_MEDIA_ENGINE\n"
                  "media.output         auto                  built in\n"
                  "media.sound          auto                  built in\n"
                  "media.tuners         4                     built in\n"
                  "log.levels           warning               built in\n"
                  "log.format           text                  built in\n"
                  "\n"
                  "read     " +
                  file + "\n");
    EXPECT_FALSE(std::filesystem::exists(runtimeFolder())) << "it needs no receiver";
}

TEST_F(TvctlConfig, PrintsJsonForPrograms) {
    configure("keys.clients = [\"one\", \"two\"]\n");
    for (const Outcome& outcome : {config({"--json"}), config({}, {"--json"})}) {
        ASSERT_EQ(outcome.exitCode, done) << outcome.error;
        const json answer = json::parse(outcome.output);
        EXPECT_EQ(named(answer["settings"], "keys.clients"),
                  (json{{"name", "keys.clients"},
                        {"variable", "TVSA_CLIENT_KEYS"},
                        {"help", "public keys of the clients that may connect from other hosts"},
                        {"value", "one,two"},
                        {"origin", file + ":1"}}));
        EXPECT_TRUE(named(answer["settings"], "keys.file")["value"].is_null());
        EXPECT_TRUE(named(answer["settings"], "keys.file")["origin"].is_null());
        EXPECT_EQ(answer["files"], json::array({{{"path", file}, {"found", true}}}));
    }
}

TEST_F(TvctlConfig, ListsTheFilesThatItSearchedFor) {
    environment["TVSA_CONFIG"] = "";
    environment["XDG_CONFIG_HOME"] = folder.string();
    const std::string users = (folder / "tvservice-adapter" / "config.toml").string();
    EXPECT_THAT(config().output,
                ContainsRegex("\n\nmissing  " + users + "\n[a-z ]+/etc/tvservice-adapter/config.toml\n$"));
    std::filesystem::create_directory(folder / "tvservice-adapter");
    std::ofstream(users) << "log.levels = \"info\"\n";
    EXPECT_THAT(config().output, AllOf(HasSubstr("log.levels           info       " + users + ":1\n"),
                                       HasSubstr("\n\nread     " + users + "\n")));
}

TEST_F(TvctlConfig, RejectsAWrongConfiguration) {
    configure("\n[queue]\nmessages = 0\n");
    const std::string problem = file + ":3: queue.messages: not a number from 1 to 2147483647: \"0\"";
    EXPECT_EQ(config(), (Outcome{badData, "", "tvctl: " + problem + "\n"}));
    const Outcome inJson = config({"--json"});
    EXPECT_EQ(inJson.exitCode, badData);
    EXPECT_EQ(json::parse(inJson.error).at("error"), problem);
    configure("endpoints.mmservice = \"tcp://services.example\"\n");
    EXPECT_EQ(config(), (Outcome{badData, "",
                                 "tvctl: " + file +
                                     ":1: endpoints.mmservice: not tcp://HOST:PORT: \"tcp://services.example\"\n"}));
    configure("");
    environment["TVSA_FLAT_HEAP_MB"] = "much"; // other programs start without it
    EXPECT_EQ(config(), (Outcome{badData, "", "tvctl: TVSA_FLAT_HEAP_MB: not a number from 32 to 2048: \"much\"\n"}));
}

TEST_F(TvctlConfig, PrintsNoTerminalControlSequences) {
    file = (folder / "\x1b[2J.toml").string();
    environment["TVSA_CONFIG"] = file;
    configure("queue.messages = 7\n");
    const Outcome outcome = config();
    EXPECT_EQ(outcome.output.find_first_of("\x1b\x9b"), std::string::npos) << outcome.output;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("/\\x1b[2J.toml:1\n"), HasSubstr("/\\x1b[2J.toml\n")));
    EXPECT_THAT(run({program("tvctl"), "config", "--\x1b[2J"}).error, testing::Not(HasSubstr("\x1b")));
    EXPECT_THAT(run({program("tvctl"), "--\x1b[2J", "config"}).error, testing::Not(HasSubstr("\x1b")));
    EXPECT_THAT(run({program("tvctl"), "--timeout", "\x1b[2J", "help"}).error, testing::Not(HasSubstr("\x1b")));
}

TEST_F(TvctlConfig, PrintsOnlyTheNamedSettings) {
    configure("queue.messages = 17\n");
    const auto answer = json::parse(config({}, {"queue.messages", "log.format", "--json"}).output);
    ASSERT_EQ(answer["settings"].size(), 2U);
    EXPECT_EQ(answer["settings"][0]["value"], "17");
    EXPECT_EQ(answer["settings"][1]["name"], "log.format");
}

TEST_F(TvctlConfig, RejectsWrongUsage) {
    configure("");
    EXPECT_EQ(config({}, {"--fast"}).exitCode, usage);
    EXPECT_EQ(config({}, {"queue.message"}), (Outcome{usage, "",
                                                      "tvctl: there is no setting queue.message, or it is not set; "
                                                      "tvctl config lists all\n"}));
    EXPECT_THAT(config({}, {"--help"}).output, StartsWith("Prints each setting"));
    const Outcome full = run({program("tvctl"), "config"}, R"(exec "$0" "$@" </dev/null >/dev/full)");
    EXPECT_EQ(full, (Outcome{failed, "", "tvctl: cannot write to standard output\n"}));
}

} // namespace
