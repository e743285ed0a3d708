// Errors in a configuration file are reported with their line. Also: what a process does if it cannot use the file.
#include "support/configuration-folder.h"
#include "support/test-where.h"

#include <host/configuration.h>
#include <host/marshaller.h>
#include <lrt/run-log-agent.h>
#include <vdl/debug.h>

#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <utility>

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::uint32_t module = 0x0300;

class ConfigurationFile : public ConfigurationFolder {
protected:
    static std::string error() {
        try {
            host::checkConfiguration();
            return "no error";
        } catch (const host::ConfigurationError& error) {
            return error.what();
        }
    }
    void expectErrors(const std::vector<std::pair<std::string, std::string>>& wrong) const {
        for (const auto& [text, problem] : wrong) {
            const std::string path = configure(text);
            EXPECT_EQ(error(), path + ':' + problem) << text;
        }
    }
};

TEST_F(ConfigurationFile, IsRejectedUnlessItIsToml) {
    for (const auto& [text, line] :
         std::vector<std::pair<std::string, std::string>>{{"[queue", ":1: "},
                                                          {"[queue]\nmessages = \n", ":2: "},
                                                          {"\n\n[queue]\nbytes = 1\nbytes = 2\n", ":5: "},
                                                          {"a = \"\x1B[2J", ":1: "},
                                                          {"\n\xFF\xFE", ":2: "}}) {
        const std::string path = configure(text);
        EXPECT_THAT(error(), StartsWith(path + line)) << text;
        EXPECT_EQ(error().find_first_of("\n\x1B\xFF"), std::string::npos) << error();
    }
}

TEST_F(ConfigurationFile, ListsTheKnownNamesWhenOneIsUnknown) {
    const std::string tables = "; known: endpoints, keys, remote, queue, run_log, flat_heap, recorder, media, log";
    expectErrors({
        {"\n[queues]\nmessages = 1\n", "2: unknown table \"queues\"" + tables},
        {"messages = 1\n", "1: unknown table \"messages\"" + tables},
        {"\"\" = 1\n", "1: unknown table \"\"" + tables},
        {"\"queue.messages\" = 1\n", "1: unknown table \"queue.messages\"" + tables},
        {"\"\\u001b\\n\" = 1\n", R"(1: unknown table "\x1b\x0a")" + tables},
        {"[queue]\nbytes = 1\nmesages = 1\n",
         "3: queue has no \"mesages\"; known: messages, bytes, wait_ms, unfinished_ms"},
        {"[queue.messages]\nmore = 1\n", "1: queue.messages: not a number from 1 to 2147483647: \"a table\""},
        {"[keys]\nservers = 1\n", "2: keys has no \"servers\"; known: file, clients, services"},
        {"[keys]\n\"services.tv\" = 1\n", "2: keys has no \"services.tv\"; known: file, clients, services"},
        {"queue = 1\n", "1: queue: not a table"},
        {"[keys]\nservices = \"key\"\n", "2: keys.services: not a table"},
        {"[[queue]]\nbytes = 1\n", "1: queue: not a table"},
    });
}

TEST_F(ConfigurationFile, RejectsInvalidNumbers) {
    const std::string wanted = "queue.messages: not a number from 1 to 2147483647: ";
    expectErrors({
        {"[queue]\nmessages = \"many\"\n", "2: " + wanted + "\"many\""},
        {"[queue]\nmessages = 0\n", "2: " + wanted + "\"0\""},
        {"[queue]\nmessages = -1\n", "2: " + wanted + "\"-1\""},
        {"[queue]\nmessages = 2147483648\n", "2: " + wanted + "\"2147483648\""},
        {"[queue]\nmessages = 1.5\n", "2: " + wanted + "\"1.5\""},
        {"[queue]\nmessages = true\n", "2: " + wanted + "\"true\""},
        {"[queue]\nmessages = [1]\n", "2: " + wanted + "\"a list\""},
        {"[queue]\nmessages = 2026-01-01\n", "2: " + wanted + "\"2026-01-01\""},
        {"remote.heartbeat_ms = 9\n", "1: remote.heartbeat_ms: not a number from 10 to 60000: \"9\""},
        {"[run_log]\nqueue = 0\n", "2: run_log.queue: \"0\" is not a number above 0"},
        {"[flat_heap]\nmegabytes = 31\n", "2: flat_heap.megabytes: not a number from 32 to 2048: \"31\""},
    });
}

TEST_F(ConfigurationFile, RejectsANumberInQuotes) {
    expectErrors({{"[queue]\nmessages = \"12\"\n", "2: queue.messages: a string, not a number: \"12\""}});
}

TEST_F(ConfigurationFile, RejectsInvalidTexts) {
    expectErrors({
        {"[endpoints]\ntv = 7\n", "2: endpoints.tv: not a string: 7"},
        {"[endpoints]\ntv = \"\"\n", "2: endpoints.tv: not a string: \"\""},
        {"[endpoints]\ntv = { path = \"/x\" }\n", "2: endpoints.tv: not a string: a table"},
        {"[endpoints]\ntv = \"/a\\u0000b\"\n", R"(2: endpoints.tv: not a string of printable characters: "/a\x00b")"},
        {"[endpoints]\nTV = \"/x\"\n",
         "2: \"TV\" is not a service name in endpoints (lower-case letters, digits, - and _)"},
        {"keys.services.\"a b\" = \"k\"\n",
         "1: \"a b\" is not a service name in keys.services (lower-case letters, digits, - and _)"},
        {"[keys]\nclients = \"one\"\n", "2: keys.clients: not a list of strings: \"one\""},
        {"[keys]\nclients = [\n\"one\",\n2]\n", "4: keys.clients: not a string: 2"},
        {"[keys]\nclients = [\"one,two\"]\n", "2: keys.clients: not a string without commas: \"one,two\""},
        {"[keys]\nclients = [\"\"]\n", "2: keys.clients: not a string without commas: \"\""},
        {"[log]\nformat = \"xml\"\n", "2: log.format: \"xml\" is neither text nor json"},
        {"[log]\nformat = false\n", "2: log.format: not a string: false"},
    });
    const std::string path = configure("[log]\nlevels = \"info,loud\"\n");
    EXPECT_THAT(error(), StartsWith(path + ":2: log.levels: \"loud\": \"loud\" is not a level"));
}

TEST_F(ConfigurationFile, MayNameEndpointsAndKeysOnlyWhenOnlyItsOwnerCanWriteIt) {
    for (const char* text : {"[queue]\n[endpoints]\ntv = \"/x\"\n", "\n\nkeys.file = \"/key\"\n",
                             "\n\nkeys.clients = []\n", "\n[keys.services]\ntv = \"k\"\n"})
        for (const mode_t mode : {0664U, 0646U, 0666U}) {
            const std::string path = configure(text, mode);
            EXPECT_THAT(error(), AllOf(StartsWith(path + ":3: "),
                                       HasSubstr(": other users may write to this file (expected: mode 0644)")))
                << text;
            configure(text, 0644);
            EXPECT_EQ(error(), "no error") << text;
        }
    configure("[queue]\nmessages = 1\n", 0666);
    EXPECT_EQ(error(), "no error");
}

TEST_F(ConfigurationFile, IsRejectedWhenItCannotBeRead) {
    setenv("TVSA_CONFIG", folder.c_str(), 1);
    EXPECT_EQ(error(), folder + ": not a file");
    const std::string pipe = folder + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    setenv("TVSA_CONFIG", pipe.c_str(), 1);
    EXPECT_EQ(error(), pipe + ": not a file");
    const std::string loop = folder + "/loop";
    std::filesystem::create_symlink(loop, loop);
    setenv("TVSA_CONFIG", loop.c_str(), 1);
    EXPECT_EQ(error(), loop + ": cannot be read: Too many levels of symbolic links");
    setenv("TVSA_CONFIG", "/dev/zero", 1);
    EXPECT_EQ(error(), "/dev/zero: longer than 1048576 bytes");
    setenv("TVSA_CONFIG", "/dev/null", 1);
    EXPECT_EQ(error(), "no error");
}

// Each level of the parser's tree uses stack.
TEST_F(ConfigurationFile, IsRejectedWhenNestedTooDeeply) {
    const auto repeated = [](const std::string& text, int times) {
        std::string all;
        for (int i = 0; i < times; ++i) all += text;
        return all;
    };
    const std::string problem = "nested more than 16 levels deep";
    for (const int levels : {17, 60000})
        expectErrors({
            {"\na" + repeated(".a", levels) + " = 1\n", "2: " + problem},
            {"[" + repeated("a.", levels) + "a]\n", "1: " + problem},
            {"[[" + repeated("\"a\".", levels) + "a]]\n", "1: " + problem},
            {"a = " + repeated("[", levels) + repeated("]", levels) + "\n", "1: " + problem},
            {"a = " + repeated("[\n", levels) + repeated("]", levels) + "\n", "17: " + problem},
            {"a = " + repeated("{ a = ", levels) + "1" + repeated("}", levels) + "\n", "1: " + problem},
            {"a = { a" + repeated(" . a", levels) + " = 1 }\n", "1: " + problem},
            {"a = \"\"\"\n\\\"\"\"\"\"\" # \"\nb" + repeated(".b", levels) + " = 1\n", "3: " + problem},
            {"a = { a = \"\"\"\"\"\", b" + repeated(".b", levels) + " = 1 }\n", "1: " + problem},
            {"a = { a = \"\"\"b\"\"\"\"\", b" + repeated(".b", levels) + " = 1 }\n", "1: " + problem},
            {"a = { a = '''b\\'''Q, b" + repeated(".b", levels) + " = 1 }\n", "1: " + problem},
        });
}

TEST_F(ConfigurationFile, CountsOnlyNestedLevels) {
    const std::string many = std::string(40, '.') + std::string(40, '[');
    configure("# " + many + "\nlog.levels = \"warning\" # " + many + "\n[endpoints]\ntv = \"/\\\"" + many +
              "\"\nmm = '/" + many + "'\n[keys]\nclients = [\n\"\"\"\n" + many + "\"\"\"\"\", '''" + many +
              "''']\n[keys.services]\na.b = 1\n");
    EXPECT_THAT(error(), testing::EndsWith(":11: keys.services.a: not a string: a table"))
        << "everything before it was accepted";
}

TEST_F(ConfigurationFile, IsQuotedOnlyInPartWhenAValueIsLong) {
    std::string umlauts;
    for (int i = 0; i < 150; ++i) umlauts += "\u00e4"; // two bytes each
    const std::string rest = " bytes) is neither text nor json";
    expectErrors(
        {{"log.format = \"" + std::string(900000, 'x') + "\"\n",
          "1: log.format: \"" + std::string(200, 'x') + "...\" (900000" + rest},
         {"log.format = \"x" + umlauts + "\"\n", "1: log.format: \"x" + umlauts.substr(0, 198) + "...\" (301" + rest}});
}

TEST_F(ConfigurationFile, MayBeMissingBelowAPathThatIsNotAFolder) {
    setenv("XDG_CONFIG_HOME", write("file", "").c_str(), 1);
    EXPECT_EQ(error(), "no error");
}

// A process reads these settings once, so each test starts a new process.
class WrongConfigurationFile : public ConfigurationFile {
protected:
    WrongConfigurationFile() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    // Removes the folder, which the new process created for itself.
    [[noreturn]] void end(bool asExpected = true) const {
        std::filesystem::remove_all(folder);
        std::exit(asExpected ? 0 : 1);
    }
    static void print(const char* text) {
        vdlDebugChunk chunk;
        if (vdlDebugCheckLevelGetFrameAndChunk(module << 16 | vdlDebugWarning, chunk))
            vdlDebugOutput0(chunk, "%s", text);
    }
};

TEST_F(WrongConfigurationFile, IsReportedWithTheFirstLogLineAndLoggingContinues) {
    configure("[log]\nlevels = \"off\"\nformat = \"xml\"\n");
    EXPECT_EXIT(
        {
            print("first");
            print("second");
            end();
        },
        testing::ExitedWithCode(0),
        ContainsRegex("^[^\n]*vdl warning: [^\n]*config.toml:3: log.format: \"xml\" is neither text nor json; text is "
                      "used\n[^\n]*warning: first\n[^\n]*warning: second\n$"));
}

TEST_F_WHERE(support::flatMemoryIsLimited, WrongConfigurationFile, LeavesFlatHeapAndRunLogAtTheirBuiltInSizes) {
    configure("[queue]\nmessages = \"many\"\n[flat_heap]\nmegabytes = 32\n");
    setenv("STATE_DIRECTORY", (folder + "/state").c_str(), 1);
    EXPECT_EXIT(
        {
            const auto megabytes = host::flatHeapUsage().limit >> 20;
            lrt::RunLogAgentImpl::getInstance();
            end(megabytes == 256);
        },
        testing::ExitedWithCode(0),
        ContainsRegex(
            "config.toml:2: queue.messages: [^\n]*\"many\"; 256 is used\n[^\n]*config.toml:2: [^\n]*; 1024 is "
            "used\n"));
}

TEST_F(WrongConfigurationFile, IsNotReportedWhenItIsValid) {
    configure("[log]\nlevels = \"off,0x0300=warning\"\nformat = \"json\"\n[flat_heap]\nmegabytes = 32\n");
    EXPECT_EXIT(
        {
            print("a line");
            end(host::flatHeapUsage().limit >> 20 == 32 || sizeof(void*) == 4);
        },
        testing::ExitedWithCode(0), ContainsRegex("^\\{[^\n]*\"module\":\"0x0300\"[^\n]*\"text\":\"a line\"\\}\n$"));
}

} // namespace
