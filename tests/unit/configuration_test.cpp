// Where the value of a setting comes from, and which values are valid.
#include "settings/file.h"
#include "settings/known-settings.h"
#include "settings/number.h"
#include "support/configuration-folder.h"

#include <host/configuration.h>
#include <host/environment.h>
#include <host/message-queue.h>
#include <vdl/debug.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

namespace host {

inline bool operator==(const Setting& a, const Setting& b) { return a.text == b.text && a.origin == b.origin; }
inline void PrintTo(const Setting& setting, std::ostream* out) { *out << setting.text << " from " << setting.origin; }

} // namespace host

namespace {

using host::setting;
using host::Setting;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

using Configuration = ConfigurationFolder;

template <typename Call> std::string errorOf(const Call& call) {
    try {
        call();
        return "no error";
    } catch (const host::ConfigurationError& error) {
        return error.what();
    }
}

std::string valueOf(const std::string& name) {
    const auto value = setting(name);
    return value ? value->text : "none";
}

TEST_F(Configuration, HasTheBuiltInValuesWithoutFileAndVariables) {
    const host::QueueLimits usual, limits = host::QueueLimits::fromConfiguration();
    EXPECT_EQ(limits.messages, usual.messages);
    EXPECT_EQ(limits.bytes, usual.bytes);
    EXPECT_EQ(limits.wait, usual.wait);
    EXPECT_EQ(limits.unfinished, usual.unfinished);
    EXPECT_THAT(setting("remote.heartbeat_ms"), Optional(Setting{"1000", "built in"}));
    EXPECT_THAT(setting("run_log.queue"), Optional(Setting{"1024", "built in"}));
    EXPECT_THAT(setting("flat_heap.megabytes"), Optional(Setting{"256", "built in"}));
    EXPECT_THAT(setting("log.levels"), Optional(Setting{"warning", "built in"}));
    EXPECT_THAT(setting("log.format"), Optional(Setting{"text", "built in"}));
    for (const char* name : {"endpoints.tvservice", "keys.file", "keys.clients", "keys.services.tvservice"})
        EXPECT_EQ(setting(name), std::nullopt) << name;
}

TEST_F(Configuration, ReadsAValueFromTheFileWithItsLine) {
    const std::string path = configure("# limits\n[queue]\nmessages = 12\n\nbytes = 0x10_00\n");
    EXPECT_THAT(setting("queue.messages"), Optional(Setting{"12", path + ":3"}));
    EXPECT_THAT(setting("queue.bytes"), Optional(Setting{"4096", path + ":5"}));
    EXPECT_THAT(setting("queue.wait_ms"), Optional(Setting{"5000", "built in"}));
    EXPECT_EQ(host::QueueLimits::fromConfiguration().messages, 12U);
}

TEST_F(Configuration, PrefersAVariableToTheFile) {
    configure("[queue]\nmessages = 12\n");
    setenv("TVSA_QUEUE_MESSAGES", "13", 1);
    EXPECT_THAT(setting("queue.messages"), Optional(Setting{"13", "TVSA_QUEUE_MESSAGES"}));
}

TEST_F(Configuration, IgnoresAnEmptyVariable) {
    configure("[queue]\nmessages = 12\n");
    setenv("TVSA_QUEUE_MESSAGES", "", 1);
    EXPECT_EQ(valueOf("queue.messages"), "12");
    setenv("TVSA_CONFIG", "", 1);
    EXPECT_EQ(valueOf("queue.messages"), "1024");
}

TEST_F(Configuration, HasAnEndpointAndAKeyForEveryService) {
    const std::string path = configure(
        "[endpoints]\ntvservice = \"tcp://host:7\"\nframe-test_2 = \"/x\"\n[keys.services]\ntvservice = \"k\"\n");
    setenv("TVSA_ENDPOINT_MMSERVICE", "/there", 1);
    setenv("TVSA_SERVICE_KEY_MMSERVICE", "m", 1);
    EXPECT_THAT(setting("endpoints.tvservice"), Optional(Setting{"tcp://host:7", path + ":2"}));
    EXPECT_THAT(setting("endpoints.mmservice"), Optional(Setting{"/there", "TVSA_ENDPOINT_MMSERVICE"}));
    EXPECT_THAT(setting("endpoints.frame-test_2"), Optional(Setting{"/x", path + ":3"}));
    EXPECT_EQ(valueOf("keys.services.tvservice"), "k");
    EXPECT_EQ(valueOf("keys.services.mmservice"), "m");
    EXPECT_EQ(valueOf("keys.services.other"), "none");
    EXPECT_EQ(host::endpointOf("tvservice"), "tcp://host:7");
    EXPECT_EQ(host::endpointOf("frame-test_2"), "/x");
}

TEST_F(Configuration, LimitsOnlySocketPathsAndNamesTheirOrigin) {
    const std::string host = "tcp://" + std::string(200, 'x') + ":1";
    setenv("TVSA_ENDPOINT_TV", host.c_str(), 1);
    EXPECT_EQ(host::endpointOf("tv"), host);
    const std::string path = "/" + std::string(107, 'x');
    setenv("TVSA_ENDPOINT_TV", path.c_str(), 1);
    EXPECT_EQ(errorOf([] { host::endpointOf("tv"); }), "TVSA_ENDPOINT_TV: socket path too long (108 bytes): " + path);
}

TEST_F(Configuration, RejectsAMalformedEndpointAndNamesItsOrigin) {
    const std::string path = "/" + std::string(107, 'x');
    const std::array<std::array<std::string, 2>, 3> wrong{
        {{"tcp://host", "not tcp://HOST:PORT: \"tcp://host\""},
         {"tcp://[::1:7401", "not tcp://HOST:PORT: \"tcp://[::1:7401\""},
         {path, "socket path too long (108 bytes): " + path}}};
    for (const auto& [endpoint, problem] : wrong) {
        const std::string file = configure("[endpoints]\n\ntvservice = \"" + endpoint + "\"\n");
        EXPECT_EQ(errorOf(host::checkConfiguration), file + ":3: endpoints.tvservice: " + problem);
        EXPECT_EQ(errorOf(host::settings), file + ":3: endpoints.tvservice: " + problem);
        configure("");
        setenv("TVSA_ENDPOINT_MMSERVICE", endpoint.c_str(), 1);
        EXPECT_EQ(errorOf(host::checkConfiguration), "TVSA_ENDPOINT_MMSERVICE: " + problem);
        EXPECT_EQ(errorOf([] { host::endpointOf("mmservice"); }), "TVSA_ENDPOINT_MMSERVICE: " + problem);
        unsetenv("TVSA_ENDPOINT_MMSERVICE");
    }
    setenv("TVSA_ENDPOINT_MMSERVICE", "tcp://no-such-host:0",
           1); // whether the host exists is known only when connecting
    EXPECT_EQ(errorOf(host::checkConfiguration), "no error");
}

TEST_F(Configuration, JoinsTheItemsOfAListWithCommas) {
    const std::string path = configure("[keys]\nclients = [\n  \"one\",\n  \"two\",\n]\n");
    EXPECT_THAT(setting("keys.clients"), Optional(Setting{"one,two", path + ":2"}));
    configure("keys.clients = []");
    EXPECT_EQ(valueOf("keys.clients"), "");
    setenv("TVSA_CLIENT_KEYS", "three,four", 1);
    EXPECT_EQ(valueOf("keys.clients"), "three,four");
    EXPECT_THAT(itemsOf(*setting("keys.clients")), testing::ElementsAre("three", "four"));
    EXPECT_TRUE(host::itemsOf({}).empty());
    for (const char* wrong : {",", "three,", ",four", "three,,four"}) {
        setenv("TVSA_CLIENT_KEYS", wrong, 1);
        EXPECT_EQ(errorOf([] { setting("keys.clients"); }),
                  std::string("TVSA_CLIENT_KEYS: an empty item in \"") + wrong + '"');
    }
}

TEST_F(Configuration, SearchesForTheUsersFileAndTheSystems) {
    const auto places = [] {
        std::vector<std::string> paths;
        for (const auto& file : host::configurationFiles()) paths.push_back(file.path);
        return paths;
    };
    const std::string systems = "/etc/tvservice-adapter/config.toml";
    EXPECT_THAT(places(), ElementsAre(systems));
    setenv("HOME", folder.c_str(), 1);
    EXPECT_THAT(places(), ElementsAre(folder + "/.config/tvservice-adapter/config.toml", systems));
    setenv("XDG_CONFIG_HOME", (folder + "/xdg").c_str(), 1);
    EXPECT_THAT(places(), ElementsAre(folder + "/xdg/tvservice-adapter/config.toml", systems));
    EXPECT_FALSE(host::configurationFiles().front().found);
    write("xdg/tvservice-adapter/config.toml", "[queue]\nmessages = 77\n");
    EXPECT_TRUE(host::configurationFiles().front().found);
    EXPECT_EQ(valueOf("queue.messages"), "77");
    const std::string only = configure("");
    EXPECT_THAT(places(), ElementsAre(only));
    EXPECT_EQ(valueOf("queue.messages"), "1024");
}

TEST_F(Configuration, OverridesTheSystemsFileWithTheUsersValueByValue) {
    const std::string systems = write("system.toml", "[queue]\nmessages = 1\nbytes = 2\n[log]\nformat = \"json\"\n");
    const std::string users = write("user.toml", "[queue]\n\nbytes = 3\n");
    host::config::Values values;
    EXPECT_TRUE(host::config::addFile(systems, values));
    EXPECT_TRUE(host::config::addFile(users, values));
    EXPECT_FALSE(host::config::addFile(folder + "/none.toml", values));
    EXPECT_EQ(values.at("queue.messages"), (Setting{"1", systems + ":2"}));
    EXPECT_EQ(values.at("queue.bytes"), (Setting{"3", users + ":3"}));
    EXPECT_EQ(values.at("log.format"), (Setting{"json", systems + ":5"}));
    EXPECT_EQ(values.size(), 3U);
}

TEST_F(Configuration, RequiresTheFileThatTheVariableNames) {
    setenv("TVSA_CONFIG", (folder + "/none.toml").c_str(), 1);
    EXPECT_EQ(errorOf(host::checkConfiguration), folder + "/none.toml: there is no such file (set by TVSA_CONFIG)");
}

TEST_F(Configuration, ListsEverySettingAndThoseOfConfiguredServices) {
    configure("[endpoints]\ntvservice = \"/tv\"\n[log]\nlevels = \"info\"\n");
    setenv("TVSA_ENDPOINT_TVSERVICE", "/other", 1);
    setenv("TVSA_ENDPOINT_MMSERVICE", "/mm", 1);
    setenv("TVSA_ENDPOINT_EMPTY", "", 1);
    setenv("TVSA_SERVICE_KEY_MMSERVICE", "m", 1);
    std::map<std::string, std::string> listed;
    for (const auto& [name, variable, help, value] : host::settings()) {
        EXPECT_NE(help, "") << name;
        EXPECT_TRUE(listed.emplace(name, variable + " " + (value ? value->text : "none")).second) << name;
    }
    EXPECT_EQ(listed, (std::map<std::string, std::string>{
                          {"endpoints.mmservice", "TVSA_ENDPOINT_MMSERVICE /mm"},
                          {"endpoints.tvservice", "TVSA_ENDPOINT_TVSERVICE /other"},
                          {"keys.file", "TVSA_KEY_FILE none"},
                          {"keys.clients", "TVSA_CLIENT_KEYS none"},
                          {"keys.services.mmservice", "TVSA_SERVICE_KEY_MMSERVICE m"},
                          {"remote.heartbeat_ms", "TVSA_HEARTBEAT_MS 1000"},
                          {"queue.messages", "TVSA_QUEUE_MESSAGES 1024"},
                          {"queue.bytes", "TVSA_QUEUE_BYTES 67108864"},
                          {"queue.wait_ms", "TVSA_QUEUE_WAIT_MS 5000"},
                          {"queue.unfinished_ms", "TVSA_QUEUE_UNFINISHED_MS 5000"},
                          {"run_log.queue", "TVSA_RUNLOG_QUEUE 1024"},
                          {"flat_heap.megabytes", "TVSA_FLAT_HEAP_MB 256"},
                          {"recorder.megabytes", "TVSA_RECORDER_MB 8"},
                          {"media.engine", "TVSA_MEDIA_ENGINE auto"},
                          {"media.output", "TVSA_MEDIA_OUTPUT auto"},
                          {"media.sound", "TVSA_MEDIA_SOUND auto"},
                          {"media.tuners", "TVSA_MEDIA_TUNERS 4"},
                          {"log.levels", "TVSA_LOG info"},
                          {"log.format", "TVSA_LOG_FORMAT text"},
                      }));
}

TEST_F(Configuration, HasNoOtherSettings) {
    for (const char* name : {"", "queue", "queue.", "queue.message", "endpoints", "endpoints.", "keys.services."})
        EXPECT_THROW(setting(name), std::logic_error) << name;
}

TEST_F(Configuration, WarnsOfVariablesThatLookLikeSettings) {
    setenv("TVSA_LOG", "info", 1);
    setenv("TVSA_ENDPOINT_RADIO", "/radio", 1);
    setenv("TVSA_CONFIG", configure("").c_str(), 1);
    EXPECT_THAT(host::configurationWarnings(), testing::IsEmpty());
    setenv("TVSA_LOGS", "info", 1);
    EXPECT_THAT(host::configurationWarnings(),
                testing::ElementsAre("the environment variable TVSA_LOGS is not a setting; tvctl config lists all"));
    unsetenv("TVSA_LOGS");
}

TEST_F(Configuration, RejectsAWrongVariable) {
    const std::vector<std::array<std::string, 3>> wrong{
        {"TVSA_QUEUE_MESSAGES", "a dozen", "not a number from 1 to 2147483647: \"a dozen\""},
        {"TVSA_QUEUE_BYTES", "0", "not a number from 1 to 2147483647: \"0\""},
        {"TVSA_QUEUE_BYTES", "2147483648", "not a number from 1 to 2147483647: \"2147483648\""},
        {"TVSA_QUEUE_WAIT_MS", "-1", "not a number from 1 to 2147483647: \"-1\""},
        {"TVSA_QUEUE_WAIT_MS", "1 ", "not a number from 1 to 2147483647: \"1 \""},
        {"TVSA_QUEUE_UNFINISHED_MS", "99", "not a number from 100 to 2147483647: \"99\""},
        {"TVSA_HEARTBEAT_MS", "9", "not a number from 10 to 60000: \"9\""},
        {"TVSA_HEARTBEAT_MS", "60001", "not a number from 10 to 60000: \"60001\""},
        {"TVSA_HEARTBEAT_MS", "\x1B[2J\n\xFF", R"(not a number from 10 to 60000: "\x1b[2J\x0a\xff")"},
        {"TVSA_KEY_FILE", "/key\n", R"(not a string of printable characters: "/key\x0a")"},
        {"TVSA_ENDPOINT_TV", "\x07", R"(not a string of printable characters: "\x07")"},
    };
    for (const auto& [variable, value, problem] : wrong) {
        setenv(variable.c_str(), value.c_str(), 1);
        EXPECT_EQ(errorOf(host::checkConfiguration), variable + ": " + problem);
        EXPECT_EQ(errorOf(host::settings), variable + ": " + problem);
        unsetenv(variable.c_str());
    }
    for (const char* fits : {"10", "60000"}) {
        setenv("TVSA_HEARTBEAT_MS", fits, 1);
        EXPECT_EQ(valueOf("remote.heartbeat_ms"), fits);
    }
}

TEST_F(Configuration, LetsAProgramStartWithAnInvalidVariableThatHasADefault) {
    for (const char* variable : {"TVSA_RUNLOG_QUEUE", "TVSA_FLAT_HEAP_MB", "TVSA_LOG_FORMAT", "TVSA_LOG"})
        setenv(variable, "wrong", 1);
    EXPECT_EQ(errorOf(host::checkConfiguration), "no error");
    EXPECT_EQ(errorOf([] { setting("flat_heap.megabytes"); }),
              "TVSA_FLAT_HEAP_MB: not a number from 32 to 2048: \"wrong\"");
    std::string problem;
    EXPECT_EQ(host::config::numberOf("run_log.queue", problem), 1024U);
    EXPECT_EQ(problem, "TVSA_RUNLOG_QUEUE: \"wrong\" is not a number above 0; 1024 is used");
    EXPECT_EQ(valueOf("log.levels"), "wrong") << "the log uses the items that are valid";
}

TEST_F(Configuration, HasTheSameBuiltInLevelAsBeforeAnyCodeRuns) {
    const std::uint16_t before = vdlDebugLevels[0x3FF];
    EXPECT_EQ(vdlDebugSetLevels(valueOf("log.levels")), "");
    EXPECT_EQ(vdlDebugLevels[0x3FF], before);
}

// The example with its settings uncommented. Settings are commented out without a blank after the '#'.
std::string uncommented(std::istream& example) {
    std::string text, line;
    while (std::getline(example, line))
        text += (line.size() > 1 && line[0] == '#' && line[1] != ' ' ? line.substr(1) : line) + '\n';
    return text;
}

TEST_F(Configuration, HasAnExampleThatNamesEverySettingWithItsBuiltInValue) {
    host::config::Values none, all;
    ASSERT_TRUE(host::config::addFile(CONFIGURATION_EXAMPLE, none));
    EXPECT_TRUE(none.empty());
    std::ifstream example(CONFIGURATION_EXAMPLE);
    ASSERT_TRUE(host::config::addFile(write("example.toml", uncommented(example)), all));
    std::set<std::string_view> named;
    for (const auto& [name, value] : all) {
        const auto* const known = host::config::findKnown(name);
        named.insert(known->name);
        EXPECT_EQ(value.text, known->builtIn().value_or(value.text)) << value.origin;
    }
    EXPECT_EQ(named.size(), host::config::knownSettings().size());
    const std::string text = (std::ostringstream() << std::ifstream(CONFIGURATION_EXAMPLE).rdbuf()).str();
    for (const auto& known : host::config::knownSettings()) EXPECT_THAT(text, HasSubstr(std::string(known.variable)));
}

} // namespace
