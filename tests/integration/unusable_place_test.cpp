// What the programs report, and what remains, when their sockets, channel list or options cannot be used.
#include "integration/program-run.h"

#include <cstring>
#include <sys/stat.h>

namespace {

using namespace program_run;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr int endedAsAsked = 0, failed = 1, usage = 2, badData = 6;

// Runs each program with arguments that make it open sockets.
class AProgram : public Programs, public testing::WithParamInterface<const char*> {
protected:
    Words command() const {
        Words words{program(GetParam())};
        if (words[0].ends_with("frame-host"))
            for (const char* name : {"libapp-tvservice-adapter.so", "libcontrol-application.so"})
                words.push_back(library(name));
        return words;
    }
    void expectError(const std::string& reason) const {
        const Outcome outcome = run(command());
        EXPECT_EQ(outcome.exitCode, failed);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(outcome.error, AllOf(HasSubstr(std::string(GetParam()) + ": "),
                                         HasSubstr("folder " + runtimeFolder() + ": " + reason)));
    }
};

INSTANTIATE_TEST_SUITE_P(EndsCleanly, AProgram, testing::Values("tvserviced", "mmserviced", "frame-host"),
                         [](const auto& test) {
                             std::string name = test.param;
                             std::erase(name, '-');
                             return name;
                         });

TEST_P(AProgram, RejectsARuntimeFolderThatIsAFile) {
    std::ofstream(runtimeFolder()) << "kept";
    expectError("not a folder");
    EXPECT_EQ(contentOf(runtimeFolder()), "kept");
}

TEST_P(AProgram, RejectsARuntimeFolderThatIsOpenToOthers) {
    ASSERT_EQ(mkdir(runtimeFolder().c_str(), 0700), 0);
    ASSERT_EQ(chmod(runtimeFolder().c_str(), 0750), 0);
    expectError("open to other users (expected: mode 0700)");
    EXPECT_THAT(filesIn(runtimeFolder()), IsEmpty());
}

TEST_P(AProgram, RejectsALinkToARuntimeFolder) {
    ASSERT_EQ(mkdir((folder / "real").c_str(), 0700), 0);
    std::filesystem::create_symlink(folder / "real", runtimeFolder());
    expectError("not a folder");
    EXPECT_THAT(filesIn(folder / "real"), IsEmpty());
}

TEST_P(AProgram, RejectsUnknownDebugLevels) {
    Words words = command();
    words.insert(words.begin() + 1, {"--log", "io=loud"});
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.exitCode, usage);
    EXPECT_THAT(outcome.error, StartsWith(std::string(GetParam()) + ": --log: "));
    EXPECT_FALSE(std::filesystem::exists(runtimeFolder()));
}

TEST_P(AProgram, ContinuesAfterHangUpBrokenPipeAndFileSizeSignals) {
    const auto running = start(command());
    const auto answers = [&] { return run({program("tvctl"), "--target", GetParam(), "help"}).exitCode == 0; };
    ASSERT_TRUE(eventually(answers));
    for (const int signal : {SIGHUP, SIGPIPE, SIGXFSZ}) {
        running->signal(signal);
        EXPECT_TRUE(answers()) << strsignal(signal);
    }
    EXPECT_EQ(running->terminate().exitCode, endedAsAsked);
    EXPECT_THAT(filesIn(runtimeFolder()), IsEmpty());
}

class AService : public AProgram {
protected:
    Outcome serve(const Words& arguments) const {
        Words words{program(GetParam())};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return run(words);
    }
};

INSTANTIATE_TEST_SUITE_P(EndsCleanly, AService, testing::Values("tvserviced", "mmserviced"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(AService, RejectsWrongOptions) {
    for (const Words& arguments : std::vector<Words>{{"--fast"},
                                                     {"extra"},
                                                     {"--log"},
                                                     {"--ready-fd", "-1"},
                                                     {"--ready-fd", "x"},
                                                     {"--fault", "lazy=1"},
                                                     {"--fault", "silent"}}) {
        const Outcome outcome = serve(arguments);
        EXPECT_EQ(outcome.exitCode, usage) << testing::PrintToString(arguments);
        EXPECT_EQ(outcome.output, "") << testing::PrintToString(arguments);
        EXPECT_NE(outcome.error, "") << testing::PrintToString(arguments);
    }
    EXPECT_FALSE(std::filesystem::exists(runtimeFolder()));
}

TEST_P(AService, LeavesNothingBehindWhenItCannotReportThatItIsReady) {
    const Outcome outcome = serve({"--ready-fd", "77"});
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.error, HasSubstr(std::string(GetParam()) + ": --ready-fd 77: Bad file descriptor\n"));
    EXPECT_THAT(filesIn(runtimeFolder()), IsEmpty());
}

TEST_P(AService, RemovesItsSocketsWhenItEnds) {
    const auto running = start({program(GetParam()), "--ready-fd", "1"});
    const auto ready = [&] { return filesIn(runtimeFolder()).size() == 2; };
    EXPECT_TRUE(eventually(ready));
    const Outcome outcome = running->terminate();
    EXPECT_EQ(outcome.exitCode, endedAsAsked);
    EXPECT_THAT(filesIn(runtimeFolder()), IsEmpty());
}

TEST_P(AService, DoesNotReplaceARunningService) {
    const auto running = start({program(GetParam()), "--ready-fd", "3"}, R"(exec "$0" "$@" </dev/null 3>"$OUTPUT")");
    const auto answers = [&] { return run({program("tvctl"), "--target", GetParam(), "stats"}).exitCode == 0; };
    ASSERT_TRUE(eventually(answers));
    const Outcome second = serve({});
    EXPECT_EQ(second.exitCode, failed);
    EXPECT_THAT(second.error, AllOf(StartsWith(GetParam()), HasSubstr("is already offered at " + runtimeFolder())));
    EXPECT_TRUE(answers());
    EXPECT_EQ(running->terminate(), (Outcome{endedAsAsked, "ready\n", ""}));
}

class ChannelFile : public Programs {
protected:
    Outcome serve(const std::string& channels) const { return run({program("tvserviced"), "--channels", channels}); }
    std::string write(const std::string& text) const {
        std::ofstream(folder / "channels.toml") << text;
        return (folder / "channels.toml").string();
    }
};

TEST_F(ChannelFile, IsRejectedWhenMissingOrAFolder) {
    const std::string missing = (folder / "missing.toml").string();
    EXPECT_EQ(serve(missing), (Outcome{badData, "", "tvserviced: " + missing + ": there is no such file\n"}));
    EXPECT_EQ(serve(folder), (Outcome{badData, "", "tvserviced: " + folder.string() + ": not a file\n"}));
    EXPECT_FALSE(std::filesystem::exists(runtimeFolder()));
}

TEST_F(ChannelFile, IsRejectedWhenItNeverEnds) {
    EXPECT_EQ(serve("/dev/zero"), (Outcome{badData, "", "tvserviced: /dev/zero: longer than 1048576 bytes\n"}));
    const std::string pipe = (folder / "pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(serve(pipe), (Outcome{badData, "", "tvserviced: " + pipe + ": not a file\n"}));
}

TEST_F(ChannelFile, IsRejectedWhenNestedTooDeeply) {
    std::string key = "a";
    for (int i = 0; i < 60000; ++i) key += ".a";
    const std::string path = write(key + " = 1\n");
    EXPECT_EQ(serve(path), (Outcome{badData, "", "tvserviced: " + path + ":1: nested more than 16 levels deep\n"}));
}

TEST_F(ChannelFile, IsNamedInPrintableText) {
    EXPECT_EQ(serve("/\x1b[2J"), (Outcome{badData, "", "tvserviced: /\\x1b[2J: there is no such file\n"}));
    EXPECT_THAT(run({program("tvserviced"), "--fault", "\x1b[2J"}).error, testing::Not(HasSubstr("\x1b")));
}

TEST_F(ChannelFile, IsRejectedWithTheLineOfTheError) {
    const std::string good = "[[channel]]\nuri = \"dvb://1.1.1\"\nname = \"One\"\n";
    const std::vector<std::pair<std::string, std::string>> wrong{
        {good + "name = ", ":4: "},
        {good + "[[channel]]\nuri = \"http://x\"\nname = \"Two\"\n", ":5: \"http://x\" is not a dvb:// URI\n"},
        {good + good, ":5: \"dvb://1.1.1\" is the URI of \"One\" already\n"},
        {"volume = 1\n", ":1: unknown key \"volume\"\n"},
    };
    for (const auto& [text, problem] : wrong) {
        const std::string path = write(text);
        const Outcome outcome = serve(path);
        EXPECT_EQ(outcome.exitCode, badData) << text;
        EXPECT_THAT(outcome.error, StartsWith("tvserviced: " + path + problem));
        EXPECT_EQ(outcome.error.find('\n'), outcome.error.size() - 1) << outcome.error;
    }
    EXPECT_FALSE(std::filesystem::exists(runtimeFolder()));
}

} // namespace
