// tvctl as users and scripts run it, against a shell in this process.
#include "integration/program-run.h"
#include "shell/shell-server.h"
#include "sockets/local-socket.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace program_run;
using host::io::FileDescriptor;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

// Exit codes as docs/tvctl.md lists them.
constexpr int done = 0, failed = 1, usage = 2, noProcess = 3, timedOut = 4, refused = 5, malformed = 6, notShown = 7,
              givenUp = 8, interrupted = 130;

class Tvctl : public Programs {
protected:
    Tvctl() {
        mkdir(runtimeFolder().c_str(), 0700);
        shell->registerCommand("say ...", "prints it", say, shell.get());
        shell->registerCommand("show :s", "prints it and whether JSON is wanted", show, shell.get());
        shell->registerCommand("fail :d", "STATUS - fails with a reason", fail, shell.get());
        shell->registerCommand("fail-silently :d", "STATUS - fails", failSilently, shell.get());
    }

    void serve(uid_t user = geteuid()) {
        shell->open(shellPath(), user);
        shell->start();
    }
    std::string shellPath() const { return runtimeFolder() + "/frame-host.shell"; }

    Outcome tvctl(const Words& arguments) const { return run(commandOf(arguments)); }
    Outcome tvctl(const Words& arguments, const std::string& script) const { return run(commandOf(arguments), script); }
    // tvctl's interactive shell, fed with text from a pipe.
    Outcome interactive(const std::string& text, Words options = {}) const {
        std::ofstream(folder / "input") << text;
        options.push_back("shell");
        return tvctl(options, "cat '" + (folder / "input").string() + R"(' | "$0" "$@" >"$OUTPUT")");
    }
    Words commandOf(const Words& arguments) const {
        Words command{program("tvctl")};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
    }
    nlohmann::json errorOf(const Outcome& outcome) const {
        return nlohmann::json::parse(outcome.error, nullptr, false);
    }

    // A connection to a shell that answers only what the test sends.
    static FileDescriptor clientOf(const FileDescriptor& listener) {
        pollfd waiting{listener.get(), POLLIN, 0};
        EXPECT_EQ(poll(&waiting, 1, 20000), 1);
        return FileDescriptor(accept(listener.get(), nullptr, nullptr));
    }

    std::unique_ptr<appovshell::ShellServer> shell = std::make_unique<appovshell::ShellServer>();

private:
    static appovshell::ShellServer& shellOf(void* context) { return *static_cast<appovshell::ShellServer*>(context); }
    static int say(void* context) {
        shellOf(context).print(shellOf(context).getArgument(0) + "\n");
        return 0;
    }
    static int show(void* context) {
        auto& server = shellOf(context);
        const std::string text = server.getArgument(0);
        server.print(server.wantsJson() ? nlohmann::json{{"text", text}}.dump() : '<' + text + '>');
        return 0;
    }
    static int fail(void* context) {
        shellOf(context).print("no tuner\n");
        return failSilently(context);
    }
    static int failSilently(void* context) { return -std::stoi(shellOf(context).getArgument(0)); }
};

TEST_F(Tvctl, PrintsWhatTheCommandPrints) {
    serve();
    EXPECT_EQ(tvctl({"say", "two", "words"}), (Outcome{done, "two words\n", ""}));
    EXPECT_EQ(tvctl({"show", "no line feed"}), (Outcome{done, "<no line feed>\n", ""}));
}

TEST_F(Tvctl, PassesOnWordsUnchanged) {
    serve();
    for (const char* word : {"", " ", "\"", "\\", "a b", "--fast", "-x", "-7", "@file", "x=1", "\xC3\xA4"})
        EXPECT_EQ(tvctl({"show", word}), (Outcome{done, std::string("<") + word + ">\n", ""})) << word;
    EXPECT_EQ(tvctl({"say", "a", "--help", "--", "--json", "--"}), (Outcome{done, "a --help --json --\n", ""}));
}

TEST_F(Tvctl, PassesOnAnArgumentOfFourKibibytes) {
    serve();
    const std::string text(4096, 'x');
    EXPECT_EQ(tvctl({"show", text}), (Outcome{done, "<" + text + ">\n", ""}));
}

TEST_F(Tvctl, RejectsACommandThatIsTooLongForTheShell) {
    serve();
    const Outcome outcome = tvctl({"show", std::string(100000, 'x')});
    EXPECT_EQ(outcome.exitCode, usage);
    EXPECT_THAT(outcome.error, HasSubstr("longer than 65536 bytes"));
}

TEST_F(Tvctl, RequestsJsonAndConvertsTextToIt) {
    serve();
    EXPECT_EQ(tvctl({"--json", "show", "x"}), (Outcome{done, "{\"text\":\"x\"}\n", ""}));
    EXPECT_EQ(tvctl({"--json", "say", "x"}), (Outcome{done, "{\"output\":\"x\\n\"}\n", ""}));
}

TEST_F(Tvctl, LooksForTheReceiverOfTheWholeMachineWhenAsked) {
    if (std::filesystem::exists("/run/tv-receiver")) GTEST_SKIP() << "this machine has such a receiver";
    serve();
    for (const Words& words : {Words{"--system", "show", "x"}, Words{"show", "x", "--system"}}) {
        const Outcome outcome = tvctl(words);
        EXPECT_EQ(outcome.exitCode, noProcess);
        EXPECT_THAT(outcome.error, HasSubstr("start it with: systemctl start tv-receiver.target"));
    }
}

TEST_F(Tvctl, TakesItsOptionsInAnyPlace) {
    serve();
    EXPECT_EQ(tvctl({"show", "x", "--json"}), (Outcome{done, "{\"text\":\"x\"}\n", ""}));
    EXPECT_EQ(tvctl({"show", "--json", "--timeout", "5", "x", "--target=frame-host"}),
              (Outcome{done, "{\"text\":\"x\"}\n", ""}));
    EXPECT_EQ(tvctl({"show", "x", "--quiet"}), (Outcome{done, "", ""}));
    EXPECT_EQ(tvctl({"show", "x", "--target", "nobody"}).exitCode, noProcess);
    EXPECT_EQ(tvctl({"show", "x", "--timeout", "soon"}).exitCode, usage);
    EXPECT_EQ(tvctl({"show", "x", "--timeout"}).exitCode, usage);
    EXPECT_EQ(interactive("show x --json\nsay  --json  y\n").output, "{\"text\":\"x\"}\n{\"output\":\"y\\n\"}\n");
}

TEST_F(Tvctl, ReportsWhyACommandFailed) {
    serve();
    EXPECT_EQ(tvctl({"fail", "16"}), (Outcome{failed, "", "tvctl: no tuner\n"}));
    EXPECT_EQ(tvctl({"fail-silently", "16"}), (Outcome{failed, "", "tvctl: failed: EBUSY, Device or resource busy\n"}));
    const Outcome json = tvctl({"--json", "fail", "16"});
    EXPECT_EQ(json.exitCode, failed);
    EXPECT_EQ(json.output, "");
    EXPECT_EQ(errorOf(json), nlohmann::json({{"error", "no tuner"}, {"status", -16}}));
}

TEST_F(Tvctl, PrintsNothingButFailuresWhenQuiet) {
    serve();
    EXPECT_EQ(tvctl({"--quiet", "say", "x"}), (Outcome{done, "", ""}));
    EXPECT_EQ(tvctl({"--quiet", "fail", "16"}), (Outcome{failed, "", "tvctl: no tuner\n"}));
}

TEST_F(Tvctl, RejectsWrongUsageOfACommand) {
    serve();
    EXPECT_EQ(tvctl({"fail"}), (Outcome{usage, "", "tvctl: usage: fail STATUS\n"}));
    EXPECT_EQ(tvctl({"fail", "often"}), (Outcome{usage, "", "tvctl: usage: fail STATUS\n"}));
    EXPECT_EQ(tvctl({"fly"}), (Outcome{usage, "", "tvctl: unknown command: fly (help lists the commands)\n"}));
}

TEST_F(Tvctl, RejectsWrongUsageOfItself) {
    const std::vector<Words> wrong{{},
                                   {"--fast", "help"},
                                   {"--target"},
                                   {"--timeout", "0", "help"},
                                   {"--timeout", "-1", "help"},
                                   {"--timeout", "soon", "help"},
                                   {"--timeout", "nan", "help"},
                                   {"--timeout", "1e9", "help"},
                                   {"--timeout", "", "help"}};
    for (const Words& arguments : wrong) {
        const Outcome outcome = tvctl(arguments);
        EXPECT_EQ(outcome.exitCode, usage) << testing::PrintToString(arguments);
        EXPECT_EQ(outcome.output, "") << testing::PrintToString(arguments);
        EXPECT_NE(outcome.error, "") << testing::PrintToString(arguments);
    }
    EXPECT_EQ(tvctl({"--fast", "help"}).error, "tvctl: unknown option: --fast (--help lists them)\n");
}

TEST_F(Tvctl, HasHelp) {
    const Outcome help = tvctl({"--help"});
    EXPECT_EQ(help.exitCode, done);
    EXPECT_THAT(help.output, AllOf(HasSubstr("--timeout"), HasSubstr("Exit codes: 0 done")));
    EXPECT_THAT(tvctl({"--version"}).output, StartsWith("tvctl "));
}

TEST_F(Tvctl, ReportsThatThereIsNoSuchProcess) {
    const Outcome none = tvctl({"help"});
    EXPECT_EQ(none.exitCode, noProcess);
    EXPECT_EQ(none.output, "");
    EXPECT_THAT(none.error, AllOf(HasSubstr(shellPath()), HasSubstr("No such file")));

    close(host::io::listenAt(shellPath())); // as a killed process leaves it
    const Outcome dead = tvctl({"--json", "help"});
    EXPECT_EQ(dead.exitCode, noProcess);
    EXPECT_EQ(errorOf(dead).value("status", 0), -ENOTCONN);
    EXPECT_THAT(errorOf(dead).value("error", ""), HasSubstr("Connection refused"));
}

TEST_F(Tvctl, ConnectsToTheNamedProcess) {
    shell->open(runtimeFolder() + "/tvserviced.shell", geteuid());
    shell->start();
    EXPECT_EQ(tvctl({"--target", "tvserviced", "say", "x"}), (Outcome{done, "x\n", ""}));
    EXPECT_EQ(tvctl({"say", "x"}).exitCode, noProcess);
    const Outcome tooLong = tvctl({"--target", std::string(200, 'x'), "say", "x"});
    EXPECT_EQ(tooLong.exitCode, noProcess);
    EXPECT_THAT(tooLong.error, HasSubstr("too long"));
}

TEST_F(Tvctl, DoesNotTrustARuntimeFolderThatIsOpenToOthers) {
    serve();
    ASSERT_EQ(chmod(runtimeFolder().c_str(), 0755), 0);
    const Outcome outcome = tvctl({"help"});
    EXPECT_EQ(outcome.exitCode, noProcess);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr(runtimeFolder()), HasSubstr("open to other users")));
}

TEST_F(Tvctl, GivesUpOnAShellThatDoesNotAnswer) {
    const FileDescriptor silent(host::io::listenAt(shellPath()));
    const Outcome outcome = tvctl({"--timeout", "0.05", "help"});
    EXPECT_EQ(outcome.exitCode, timedOut);
    EXPECT_THAT(outcome.error, AllOf(StartsWith("tvctl: " + shellPath()), HasSubstr("timed out"),
                                     HasSubstr("process " + std::to_string(getpid()) + " does not answer")));
    EXPECT_EQ(errorOf(tvctl({"--json", "--timeout", "0.05", "help"})).value("status", 0), -ETIMEDOUT);
}

TEST_F(Tvctl, IsRejectedByAShellOfAnotherUser) {
    serve(geteuid() + 1);
    const Outcome outcome = tvctl({"help"});
    EXPECT_EQ(outcome.exitCode, refused);
    EXPECT_THAT(outcome.error, HasSubstr("serves its own user only"));
}

TEST_F(Tvctl, ReportsAMalformedAnswer) {
    const FileDescriptor listener(host::io::listenAt(shellPath()));
    const auto running = start(commandOf({"help"}));
    const auto client = clientOf(listener);
    ASSERT_EQ(send(client.get(), "nonsense\n", 9, MSG_NOSIGNAL), 9);
    const Outcome outcome = running->wait();
    EXPECT_EQ(outcome.exitCode, malformed);
    EXPECT_THAT(outcome.error, HasSubstr("malformed: nonsense"));
}

TEST_F(Tvctl, PrintsNoTerminalControlSequences) {
    serve();
    EXPECT_EQ(tvctl({"say", "a\x1b[2J\tb\nc"}), (Outcome{done, "a\\x1b[2J\\x09b\nc\n", ""}));
}

TEST_F(Tvctl, ReportsThatTheProcessEnded) {
    const FileDescriptor listener(host::io::listenAt(shellPath()));
    const auto running = start(commandOf({"help"}));
    clientOf(listener).reset();
    EXPECT_EQ(running->wait().exitCode, noProcess);
}

TEST_F(Tvctl, EndsAtOnceWhenInterrupted) {
    const FileDescriptor silent(host::io::listenAt(shellPath()));
    const auto running = start(commandOf({"help"}));
    const auto client = clientOf(silent); // tvctl now waits for the answer
    EXPECT_EQ(running->terminate(SIGINT).exitCode, interrupted);
}

TEST_F(Tvctl, WritesIntoPipes) {
    serve();
    EXPECT_EQ(tvctl({"say", "x"}, R"("$0" "$@" | cat >"$OUTPUT")"), (Outcome{done, "x\n", ""}));
}

TEST_F(Tvctl, FailsWhenItsOutputCannotBeWritten) {
    serve();
    const Outcome full = tvctl({"say", "x"}, R"(exec "$0" "$@" >/dev/full)");
    EXPECT_EQ(full, (Outcome{failed, "", "tvctl: cannot write to standard output\n"}));
    const Outcome unread =
        tvctl({"say", "x"}, R"(mkfifo "$OUTPUT" && exec 3<>"$OUTPUT" 4>"$OUTPUT" 3<&- && rm "$OUTPUT" &&
                               exec "$0" "$@" >&4)");
    EXPECT_EQ(unread, (Outcome{failed, "", "tvctl: cannot write to standard output\n"}));
}

TEST_F(Tvctl, ReadsLinesFromAPipe) {
    serve();
    EXPECT_EQ(interactive("say  one\n\n   \n\tshow \"t w o\"\r\nsay three"),
              (Outcome{done, "one\n<t w o>\nthree\n", ""}));
    EXPECT_EQ(interactive("show x\n", {"--json"}), (Outcome{done, "{\"text\":\"x\"}\n", ""}));
    EXPECT_EQ(interactive(""), (Outcome{done, "", ""}));
}

TEST_F(Tvctl, EndsAScriptAtTheFirstFailureWithItsCode) {
    serve();
    EXPECT_EQ(interactive("say on\nfail 16\nsay off\n"), (Outcome{failed, "on\n", "tvctl: no tuner\n"}));
    EXPECT_EQ(interactive("say \"open\nshow \"open\n"),
              (Outcome{usage, "\"open\n", "tvctl: a double quote is not closed\n"}));
}

TEST_F(Tvctl, ContinuesAScriptIfTold) {
    serve();
    const std::string read = R"(cat ')" + (folder / "input").string() + R"(' | "$0" "$@" >"$OUTPUT")";
    std::ofstream(folder / "input") << "fail 16\nsay on\nfly\n";
    EXPECT_EQ(tvctl({"shell", "--keep-going"}, read),
              (Outcome{failed, "on\n", "tvctl: no tuner\ntvctl: unknown command: fly (help lists the commands)\n"}));
}

TEST_F(Tvctl, RunsItsOwnCommandsInAScript) {
    serve();
    EXPECT_THAT(interactive("say on\nschema --json\n").output, StartsWith("on\n{"));
    EXPECT_THAT(interactive("schema --fast\n").exitCode, usage);
    EXPECT_EQ(interactive("watch \"open\n"), (Outcome{usage, "", "tvctl: a double quote is not closed\n"}));
    EXPECT_EQ(interactive("shell\n"), (Outcome{usage, "", "tvctl: this is a shell already; \"exit\" ends it\n"}));
}

TEST_F(Tvctl, TakesOptionsBeforeTheCommandInALineOfAScript) {
    serve();
    EXPECT_EQ(interactive("--json say on\n").output, "{\"output\":\"on\\n\"}\n");
    EXPECT_EQ(interactive("--target nobody say on\n").exitCode, noProcess);
    EXPECT_EQ(interactive("--quiet schema --fast\n").exitCode, usage);
    EXPECT_EQ(interactive("--fast say on\n"), (Outcome{usage, "", "tvctl: unknown option: --fast\n"}));
    EXPECT_EQ(interactive("--json\n"), (Outcome{usage, "", "{\"error\":\"a command is missing\",\"status\":-22}\n"}));
}

// It would apply to all later lines.
TEST_F(Tvctl, DoesNotChangeTheReceiverInAScript) {
    serve();
    for (const char* line : {"--system say on\n", "say on --system\n", "watch --once --system\n"})
        EXPECT_EQ(interactive(line), (Outcome{usage, "",
                                              "tvctl: --system: the shell stays with one receiver; begin it with: "
                                              "tvctl --system shell\n"}))
            << line;
}

TEST_F(Tvctl, RejectsATargetForAVerbThatHasNone) {
    serve();
    for (const char* verb : {"doctor", "schema", "config", "keygen", "check-service"})
        EXPECT_EQ(
            tvctl({"--target", "tvserviced", verb}),
            (Outcome{usage, "", "tvctl: --target: " + std::string(verb) + " asks no process; leave the option out\n"}));
    EXPECT_EQ(interactive("--target nobody doctor\n").exitCode, usage);
}

// What a receiver knows of a request, one after the other; the last one remains.
class Playing : public Tvctl {
protected:
    using Json = nlohmann::ordered_json;

    Playing() {
        shell->registerCommand("play :s :s [:s]", "queues it", queue, this);
        shell->registerCommand("stop :s", "queues it", queue, this);
        shell->registerCommand("request :s", "what is known of it", tell, this);
        shell->registerCommand("terminals", "lists them", list, this);
        shell->registerCommand("touch :s", "TERMINAL[,TERMINAL...] - does nothing", touch, this);
        serve();
    }
    static Json known(const char* state, const std::vector<int>& results, const std::vector<std::string>& lines) {
        Json terminals = Json::array();
        for (const int result : results) terminals.push_back({{"terminal", "0:0"}, {"result", result}});
        return {{"request", "control-1"}, {"state", state}, {"terminals", terminals}, {"lines", lines}};
    }

    ~Playing() override { shell.reset(); } // its thread uses the members

    void know(std::vector<Json> states) {
        const std::lock_guard lock(mutex_);
        states_ = std::move(states);
    }
    std::string queued() {
        const std::lock_guard lock(mutex_);
        return queued_;
    }

    std::atomic<int> asked{0};

private:
    static int queue(void* context) {
        auto& self = *static_cast<Playing*>(context);
        const std::lock_guard lock(self.mutex_);
        self.queued_ =
            self.server_.getArgument(0) + "|" + self.server_.getArgument(1) + "|" + self.server_.getArgument(2);
        self.server_.print("{\"queued\":1,\"request\":\"control-1\"}\n");
        return 0;
    }
    static int list(void* context) {
        static_cast<Playing*>(context)->server_.print(R"([{"terminal":"10:7"},{"terminal":"10:8"}])");
        return 0;
    }
    static int touch(void* context) {
        auto& self = *static_cast<Playing*>(context);
        self.server_.print("touched " + self.server_.getArgument(0) + "\n");
        return 0;
    }
    static int tell(void* context) {
        auto& self = *static_cast<Playing*>(context);
        EXPECT_EQ(self.server_.getArgument(0), "control-1");
        ++self.asked;
        const std::lock_guard lock(self.mutex_);
        self.server_.print(Json::array({self.states_.front()}).dump());
        if (self.states_.size() > 1) self.states_.erase(self.states_.begin());
        return 0;
    }

    appovshell::ShellServer& server_ = *shell;
    std::mutex mutex_;
    std::vector<Json> states_;
    std::string queued_;
};

TEST_F(Playing, WaitsUntilItIsShown) {
    const auto waiting = known("queued", {}, {"0:0 queued"});
    const auto shown = known("answered", {0}, {"0:0 shown dvb://1"});
    know({waiting, waiting, known("sent", {}, {"0:0 waits"}), shown});
    EXPECT_EQ(tvctl({"play", "0:0", "dvb://1"}), (Outcome{done, "0:0 shown dvb://1\n", ""}));
    EXPECT_EQ(queued(), "0:0|dvb://1|");
    EXPECT_EQ(tvctl({"--quiet", "play", "0:0", "dvb://1", "uuid"}), (Outcome{done, "", ""}));
    EXPECT_EQ(queued(), "0:0|dvb://1|uuid");
    EXPECT_EQ(tvctl({"stop", "1:0"}), (Outcome{done, "0:0 shown dvb://1\n", ""}));
    EXPECT_EQ(Json::parse(tvctl({"play", "0:0", "dvb://1", "--json"}).output), shown);
}

TEST_F(Playing, FailsWhenATerminalDoesNotShowIt) {
    const auto answered = known("answered", {0, 6}, {"0:0 shown dvb://1", "1:0 refused: locked (6)"});
    know({answered});
    EXPECT_EQ(tvctl({"play", "0:0,1:0", "dvb://1"}),
              (Outcome{notShown, "", "0:0 shown dvb://1\n1:0 refused: locked (6)\n"}));
    const Outcome json = tvctl({"--json", "play", "0:0,1:0", "dvb://1"});
    EXPECT_EQ(json.exitCode, notShown);
    EXPECT_EQ(Json::parse(json.output), answered);
}

TEST_F(Playing, FailsWhenItIsGivenUp) {
    know({known("given up", {}, {"0:0 given up after 5 s"})});
    EXPECT_EQ(tvctl({"stop", "0:0"}), (Outcome{givenUp, "", "0:0 given up after 5 s\n"}));
}

TEST_F(Playing, DoesNotWaitIfTold) {
    EXPECT_EQ(tvctl({"play", "--no-wait", "0:0", "dvb://1"}), (Outcome{done, "queued 1 (request control-1)\n", ""}));
    EXPECT_EQ(tvctl({"play", "0:0", "dvb://1", "--no-wait", "--json"}),
              (Outcome{done, "{\"queued\":1,\"request\":\"control-1\"}\n", ""}));
}

TEST_F(Playing, StopsWaitingAtItsTimeLimit) {
    know({known("sent", {}, {"0:0 waits"})});
    EXPECT_EQ(tvctl({"play", "0:0", "dvb://1", "--timeout", "0.05"}),
              (Outcome{timedOut, "", "tvctl: timed out; the request goes on: 0:0 waits\n"}));
}

TEST_F(Playing, SaysThatTheRequestGoesOnWhenItIsInterrupted) {
    know({known("sent", {}, {"0:0 waits"})});
    const auto running = start(commandOf({"play", "0:0", "dvb://1"}));
    ASSERT_TRUE(eventually([&] { return asked > 0; }));
    EXPECT_EQ(running->terminate(SIGINT),
              (Outcome{interrupted, "", "tvctl: interrupted; request control-1 goes on\n"}));
}

TEST_F(Playing, RejectsMissingArguments) {
    for (const Words& wrong : {Words{"play"},
                               {"play", "0:0"},
                               {"play", "0:0", "dvb://1", "uuid", "more"},
                               {"stop"},
                               {"stop", "0:0", "1:0"},
                               {"play", "--fast", "0:0", "dvb://1"}})
        EXPECT_EQ(tvctl(wrong).exitCode, usage) << testing::PrintToString(wrong);
}

TEST_F(Playing, ReportsAnAnswerThatItDoesNotUnderstand) {
    know({Json{{"request", 1}}});
    const Outcome outcome = tvctl({"play", "0:0", "dvb://1"});
    EXPECT_EQ(outcome.exitCode, malformed);
    EXPECT_THAT(outcome.error, HasSubstr("the answer is malformed"));
}

TEST_F(Tvctl, StopsReadingLinesAtExit) {
    serve();
    for (const char* exit : {"exit", "  exit", "exit \t", "exit\r"})
        EXPECT_EQ(interactive("say on\n" + std::string(exit) + "\nsay off\n"), (Outcome{done, "on\n", ""})) << exit;
    EXPECT_EQ(interactive("fail 16\nexit\n").exitCode, failed);
}

TEST_F(Tvctl, ReconnectsBetweenLines) {
    const FileDescriptor listener(host::io::listenAt(shellPath()));
    std::ofstream(folder / "input") << "say one\nsay two\n";
    const auto running =
        start(commandOf({"shell", "--keep-going"}), R"("$0" "$@" <)" + (folder / "input").string() + R"( >"$OUTPUT")");
    clientOf(listener).reset();
    const auto second = clientOf(listener);
    const std::string answer = "{\"output\":\"2\"}\n{\"status\":0}\n";
    ASSERT_EQ(send(second.get(), answer.data(), answer.size(), MSG_NOSIGNAL), static_cast<ssize_t>(answer.size()));
    const Outcome outcome = running->wait();
    EXPECT_EQ(outcome.exitCode, noProcess);
    EXPECT_EQ(outcome.output, "2\n");
    EXPECT_THAT(outcome.error, HasSubstr("the connection"));
}

// A program at a terminal.
class AtATerminal {
public:
    AtATerminal(const Words& command, const std::map<std::string, std::string>& environment) {
        Words variables{"TERM=dumb"};
        for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
        const auto pointersTo = [](const Words& words) {
            std::vector<char*> pointers;
            for (const auto& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
            pointers.push_back(nullptr);
            return pointers;
        };
        const auto arguments = pointersTo(command), values = pointersTo(variables);
        child_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
        EXPECT_GE(child_, 0);
        if (child_ == 0) { // only system calls are safe here: the test has threads
            execve(arguments[0], arguments.data(), values.data());
            _exit(127);
        }
    }
    ~AtATerminal() {
        if (child_ > 0) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
        close(terminal_);
    }

    void type(const std::string& keys) { EXPECT_EQ(write(terminal_, keys.data(), keys.size()), ssize_t(keys.size())); }
    // Whether the text is shown after everything that was waited for before.
    bool shows(const std::string& text) {
        for (;;) {
            if (const auto at = shown_.find(text); at != std::string::npos) {
                shown_.erase(0, at + text.size());
                return true;
            }
            pollfd waiting{terminal_, POLLIN, 0};
            char bytes[4096];
            const ssize_t count = poll(&waiting, 1, 20000) == 1 ? read(terminal_, bytes, sizeof bytes) : 0;
            if (count <= 0) {
                ADD_FAILURE() << "no " << text << " in: " << shown_;
                return false;
            }
            shown_.append(bytes, static_cast<std::size_t>(count));
        }
    }
    int exitCode() {
        int status = 0;
        EXPECT_EQ(waitpid(child_, &status, 0), child_);
        child_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    int terminal_ = -1;
    pid_t child_ = -1;
    std::string shown_;
};

constexpr const char* prompt = "frame-host> ";
constexpr const char* controlC = "\x03";

TEST_F(Playing, LeavesALineOrACommandAtCtrlCButNotTheShell) {
    know({known("sent", {}, {"0:0 waits"})});
    AtATerminal terminal(commandOf({"shell"}), environment);
    ASSERT_TRUE(terminal.shows(prompt));
    terminal.type("say hal");
    ASSERT_TRUE(terminal.shows("say hal"));
    terminal.type(controlC);
    ASSERT_TRUE(terminal.shows(prompt));
    terminal.type("say on\n");
    ASSERT_TRUE(terminal.shows("say on"));
    EXPECT_TRUE(terminal.shows("\non")) << "the line before is gone";
    ASSERT_TRUE(terminal.shows(prompt));
    terminal.type("play 0:0 dvb://1\n");
    ASSERT_TRUE(eventually([&] { return asked > 0; }));
    terminal.type(controlC);
    EXPECT_TRUE(terminal.shows("interrupted; request control-1 goes on"));
    ASSERT_TRUE(terminal.shows(prompt));
    terminal.type("exit\n");
    EXPECT_EQ(terminal.exitCode(), interrupted);
}

TEST_F(Playing, CompletesCommandsTerminalsProcessesAndSettingsAtTab) {
    AtATerminal terminal(commandOf({"shell"}), environment);
    ASSERT_TRUE(terminal.shows(prompt));
    terminal.type("tou\t1\t7\n");
    EXPECT_TRUE(terminal.shows("touched 10:7"));
    terminal.type("--target frame\ttou\t1\t8\n");
    EXPECT_TRUE(terminal.shows("touched 10:8"));
    terminal.type("config queue.m\t\n");
    EXPECT_TRUE(terminal.shows("queue.messages  1024"));
    terminal.type("exit\n");
    EXPECT_EQ(terminal.exitCode(), done);
}

} // namespace
