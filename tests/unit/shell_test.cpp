// The debug shell: commands, the socket and the client.
#include "shell/shell-server.h"
#include "sockets/local-socket.h"
#include "support/test-where.h"

#include <host/log-capture.h>
#include <host/shell-client.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using appovshell::CommandTable;
using appovshell::ShellServer;
using host::ShellClient;
using host::ShellError;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

// A command that records its arguments and prints, returns or throws what the test sets.
struct Recorder {
    explicit Recorder(appovshell::Server& shell) : server(shell) {}

    static int run(void* context) {
        auto& self = *static_cast<Recorder*>(context);
        ++self.calls;
        self.arguments.clear();
        for (unsigned i = 0; i < self.wanted; ++i) self.arguments.push_back(self.server.get().getArgument(i));
        self.askedForJson = self.server.get().wantsJson();
        self.server.get().print(self.text);
        if (!self.exception.empty()) throw std::runtime_error(self.exception);
        return self.status;
    }

    std::reference_wrapper<appovshell::Server> server;
    unsigned wanted = 3;
    std::string text, exception;
    int status = 0;
    int calls = 0;
    bool askedForJson = false;
    std::vector<std::string> arguments;
};

struct ShellCommands : testing::Test {
    int add(const std::string& specification, const std::string& help = "") {
        return table.registerCommand(specification, help, &Recorder::run, &recorder);
    }
    // The last line of the answer to a command line.
    json status(const std::string& line) { return answers(json{{"line", line}}.dump()).back(); }
    std::vector<json> answers(const std::string& request) {
        std::vector<json> lines;
        std::istringstream stream(table.answer(request));
        for (std::string line; std::getline(stream, line);) lines.push_back(json::parse(line));
        return lines;
    }

    CommandTable table;
    Recorder recorder{table};
};

TEST_F(ShellCommands, RejectAWordThatIsTaken) {
    EXPECT_EQ(add("play :s"), 0);
    EXPECT_EQ(add("play :d"), -EEXIST);
    EXPECT_EQ(add("help"), -EEXIST);
}

TEST_F(ShellCommands, RejectAMalformedSpecification) {
    for (const char* specification : {"", "  ", ":s", "a :x", "a s", "a [:s] :s", "a [:s] [:s]", "a ... :s",
                                      "a [:s] ...", "\"a\" :s", "...", "a :", "a :ss"})
        EXPECT_EQ(add(specification), -EINVAL) << specification;
    EXPECT_EQ(table.registerCommand("a", "", nullptr, nullptr), -EINVAL);
}

TEST_F(ShellCommands, ReceiveTheirArguments) {
    add("play :s :d [:s]");
    EXPECT_EQ(status(" play\tdvb://1  -7 "), json({{"status", 0}}));
    EXPECT_THAT(recorder.arguments, ElementsAre("dvb://1", "-7", ""));
    EXPECT_EQ(status("play dvb://1 9223372036854775807 third"), json({{"status", 0}}));
    EXPECT_THAT(recorder.arguments, ElementsAre("dvb://1", "9223372036854775807", "third"));
}

TEST_F(ShellCommands, KeepBlanksInQuotedAndEscapedWords) {
    add("say :s :s :s");
    EXPECT_EQ(status(R"(say "two words" a\ b\"c pre"x \" \\"post)"), json({{"status", 0}}));
    EXPECT_THAT(recorder.arguments, ElementsAre("two words", "a b\"c", "prex \" \\post"));
    EXPECT_EQ(status(R"(say "" "" x)"), json({{"status", 0}}));
    EXPECT_THAT(recorder.arguments, ElementsAre("", "", "x"));
}

TEST_F(ShellCommands, RejectALineThatEndsInsideAWord) {
    add("say :s");
    EXPECT_EQ(status("say \"open"), json({{"status", -EINVAL}, {"error", "a double quote is not closed"}}));
    EXPECT_EQ(status("say end\\"), json({{"status", -EINVAL}, {"error", "the line ends in a backslash"}}));
    EXPECT_EQ(recorder.calls, 0);
}

TEST_F(ShellCommands, ReceiveTheRestOfTheLineVerbatim) {
    add("log :d ...");
    EXPECT_EQ(status("log 1  say \"it\\  now"), json({{"status", 0}}));
    EXPECT_THAT(recorder.arguments, ElementsAre("1", "say \"it\\  now", ""));
    EXPECT_EQ(status("log 1"), json({{"status", 0}}));
    EXPECT_THAT(recorder.arguments, ElementsAre("1", "", ""));
    EXPECT_EQ(answers(R"({"words":["log","2","a b","c"]})").back(), json({{"status", 0}}));
    EXPECT_THAT(recorder.arguments, ElementsAre("2", "a b c", ""));
}

TEST_F(ShellCommands, AnswerWrongArgumentsWithTheirUsage) {
    add("play :s :s [:s]", "TERMINAL URI [UUID] - plays a channel");
    add("seek :d [:d]", "seeks");
    add("log :s ...");
    const json play{{"status", -EINVAL}, {"error", "usage: play TERMINAL URI [UUID]"}};
    for (const char* line : {"play", "play a", "play a b c d"}) EXPECT_EQ(status(line), play) << line;
    const json seek{{"status", -EINVAL}, {"error", "usage: seek NUMBER [NUMBER]"}};
    for (const char* line :
         {"seek", "seek x", "seek 1x", "seek 1 2.5", "seek \"\"", "seek 9223372036854775808", "seek 1 2 3"})
        EXPECT_EQ(status(line), seek) << line;
    EXPECT_EQ(status("log"), json({{"status", -EINVAL}, {"error", "usage: log STRING TEXT..."}}));
    EXPECT_EQ(status("help me"), json({{"status", -EINVAL}, {"error", "usage: help"}}));
    EXPECT_EQ(recorder.calls, 0);
}

TEST_F(ShellCommands, RunWithAnEmptyArgumentWhenTheirOnlyOneIsAString) {
    add("list :s");
    add("count :d");
    recorder.wanted = 1;
    EXPECT_EQ(status("list"), json({{"status", 0}}));
    EXPECT_THAT(recorder.arguments, ElementsAre(""));
    EXPECT_EQ(status("count").at("status"), -EINVAL);
}

TEST_F(ShellCommands, AreReportedWhenTheyAreUnknown) {
    EXPECT_EQ(status("fly high"),
              json({{"status", -ENOSYS}, {"error", "unknown command: fly (help lists the commands)"}}));
    EXPECT_EQ(status("  ").at("status"), -EINVAL);
}

TEST_F(ShellCommands, ReturnTheirResultAndOutput) {
    add("go");
    recorder.text = "line 1\nline \"2\"\n";
    recorder.status = -16;
    EXPECT_THAT(answers(R"({"line":"go","json":true})"),
                ElementsAre(json({{"output", recorder.text}}), json({{"status", -16}})));
    EXPECT_TRUE(recorder.askedForJson);
    EXPECT_THAT(answers(R"({"line":"go"})"), testing::SizeIs(2));
    EXPECT_FALSE(recorder.askedForJson);
}

TEST_F(ShellCommands, FailWithTheTextOfAnException) {
    add("go");
    recorder.text = "so far";
    recorder.exception = "no tuner";
    EXPECT_THAT(answers(R"({"line":"go"})"),
                ElementsAre(json({{"output", "so far"}}), json({{"status", -EIO}, {"error", "no tuner"}})));
    table.registerCommand(
        "odd", "", [](void*) -> int { throw 1; }, nullptr);
    EXPECT_EQ(status("odd").at("status"), -EIO);
}

TEST_F(ShellCommands, HaveTheirOutputCutAtTheLimit) {
    add("go");
    recorder.text.assign(CommandTable::maximumOutput + 1, 'x');
    const auto lines = answers(R"({"line":"go"})");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].at("output").get<std::string>().size(), CommandTable::maximumOutput);
    EXPECT_EQ(lines[1].at("status"), -EMSGSIZE);
}

TEST_F(ShellCommands, MayPrintInvalidUtf8) {
    add("go");
    recorder.text =
        "a\xff"
        "b";
    EXPECT_EQ(answers(R"({"line":"go"})").front().at("output"),
              "a\xEF\xBF\xBD"
              "b");
}

TEST_F(ShellCommands, HaveNeitherArgumentsNorOutputOutsideACall) {
    add("go :s");
    recorder.text = "in time";
    status("go argument");
    table.print("too late");
    EXPECT_EQ(table.getArgument(0), "");
    EXPECT_FALSE(table.wantsJson());
    EXPECT_EQ(answers(R"({"line":"go"})").front(), json({{"output", "in time"}}));
}

TEST_F(ShellCommands, MayRegisterFurtherCommands) {
    table.registerCommand(
        "grow", "", [](void* self) { return static_cast<ShellCommands*>(self)->add("grown"); }, this);
    EXPECT_EQ(status("grow"), json({{"status", 0}}));
    EXPECT_EQ(status("grown"), json({{"status", 0}}));
}

TEST_F(ShellCommands, AreListedByHelp) {
    add("play :s [:s]", "URI [UUID] - plays a channel");
    add("stop :d", "Stops it");
    EXPECT_EQ(answers(R"({"line":"help"})").front().at("output"),
              "help             lists the commands\n"
              "play URI [UUID]  plays a channel\n"
              "stop NUMBER      Stops it\n");
    const auto list = json::parse(answers(R"({"line":"help","json":true})").front().at("output").get<std::string>());
    EXPECT_EQ(list, json::parse(R"([{"command":"help","arguments":"","help":"lists the commands"},
                                    {"command":"play","arguments":"URI [UUID]","help":"plays a channel"},
                                    {"command":"stop","arguments":"NUMBER","help":"Stops it"}])"));
}

TEST_F(ShellCommands, AnswerAMalformedRequest) {
    for (const char* request : {"", "help", "[]", "{}", "{\"line\":1}", "{\"line\":\"help\",\"json\":1}",
                                "{\"words\":1}", "{\"words\":[1]}", "{\"line\":\"help\"", "\xff\xfe", "null"}) {
        const auto lines = answers(request);
        ASSERT_EQ(lines.size(), 1U) << request;
        EXPECT_EQ(lines[0].at("status"), -EINVAL) << request;
        EXPECT_THAT(lines[0].at("error").get<std::string>(), HasSubstr("malformed request: ")) << request;
    }
}

struct Shell : testing::Test {
    void SetUp() override {
        char name[] = "/tmp/shell-test-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
        path = folder + "/test.shell";
    }
    void TearDown() override {
        server.reset();
        unlink(path.c_str());
        unlink((path + ".lock").c_str()); // the lock file remains
        EXPECT_EQ(rmdir(folder.c_str()), 0);
    }

    void start() {
        server->registerCommand("echo :s", "", &Recorder::run, &recorder);
        server->open(path, geteuid());
        server->start();
    }
    // A raw connection, without the checks of the client class.
    host::io::FileDescriptor connectRaw() {
        host::io::FileDescriptor made(host::io::connectTo(path));
        EXPECT_TRUE(made);
        fcntl(made.get(), F_SETFL, 0); // it blocks
        const timeval timeout{10, 0};
        setsockopt(made.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        setsockopt(made.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        return made;
    }
    static bool sendRaw(const host::io::FileDescriptor& socket, const std::string& text) {
        return send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }
    void makeServer(std::chrono::milliseconds answerTimeout) {
        server = std::make_unique<ShellServer>(answerTimeout);
        recorder.server = *server;
    }
    std::vector<host::io::FileDescriptor> busyClients();
    // One line without its line feed; empty if the connection has ended.
    static std::string receiveLine(const host::io::FileDescriptor& socket) {
        std::string line;
        for (char c = 0; recv(socket.get(), &c, 1, 0) == 1 && c != '\n';) line += c;
        return line;
    }
    ShellError::Kind failure(ShellClient& client, const std::string& line,
                             std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        try {
            client.run(line, false, timeout);
        } catch (const ShellError& error) {
            EXPECT_FALSE(client.isConnected());
            return error.kind();
        }
        ADD_FAILURE() << "no error for " << line;
        return {};
    }

    std::string folder, path;
    std::unique_ptr<ShellServer> server = std::make_unique<ShellServer>();
    Recorder recorder{*server};
};

TEST_F(Shell, RunsTheCommandsOfAClient) {
    start();
    recorder.text = "done\n";
    recorder.wanted = 1;
    ShellClient client;
    client.connect(path);
    auto reply = client.run("echo \"a b\"");
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.output, "done\n");
    EXPECT_EQ(reply.error, "");
    EXPECT_THAT(recorder.arguments, ElementsAre("a b"));
    reply = client.run(std::vector<std::string>{"echo", "c \"d\\"}, true);
    EXPECT_EQ(reply.status, 0);
    EXPECT_THAT(recorder.arguments, ElementsAre("c \"d\\"));
    EXPECT_TRUE(recorder.askedForJson);
    reply = client.run("fly");
    EXPECT_EQ(reply.status, -ENOSYS);
    EXPECT_EQ(reply.error, "unknown command: fly (help lists the commands)");
}

TEST_F_WHERE(support::isRoot(), Shell, IsNotTrustedWhenItBelongsToAnotherUser) {
    const host::io::FileDescriptor listener(host::io::listenAt(path));
    ASSERT_EQ(seteuid(1), 0); // the socket belongs to the user that listens
    ASSERT_EQ(listen(listener.get(), 1), 0);
    ASSERT_EQ(seteuid(0), 0);
    ShellClient client;
    try {
        client.connect(path);
        ADD_FAILURE() << "connected";
    } catch (const ShellError& error) {
        EXPECT_EQ(error.kind(), ShellError::Kind::Refused);
        EXPECT_EQ(error.what(), "the shell at " + path + " belongs to another user");
    }
    EXPECT_FALSE(client.isConnected());
}

TEST_F(Shell, DeliversTheLargestOutput) {
    start();
    recorder.text.assign(CommandTable::maximumOutput, '\n');
    ShellClient client;
    client.connect(path);
    EXPECT_EQ(client.run("echo").output, recorder.text);
}

TEST_F(Shell, ServesTwoClientsAtOnce) {
    start();
    ShellClient first, second;
    first.connect(path);
    second.connect(path);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(first.run("echo 1").status, 0);
        EXPECT_EQ(second.run("echo 2").status, 0);
    }
    EXPECT_EQ(recorder.calls, 40);
}

TEST_F(Shell, AcceptsPiecemealAndPipelinedRequests) {
    start();
    const auto client = connectRaw();
    ASSERT_TRUE(sendRaw(client, "{\"line\":\"ec"));
    ASSERT_TRUE(sendRaw(client, "ho 1\"}\n{\"line\":\"echo 2\"}\n{\"line\":"));
    EXPECT_EQ(receiveLine(client), "{\"status\":0}");
    EXPECT_EQ(receiveLine(client), "{\"status\":0}");
    ASSERT_TRUE(sendRaw(client, "\"echo 3\"}\n"));
    EXPECT_EQ(receiveLine(client), "{\"status\":0}");
}

TEST_F(Shell, AnswersAClientThatHasShutDownItsSendingSide) {
    start();
    const auto client = connectRaw();
    ASSERT_TRUE(sendRaw(client, "{\"line\":\"echo 1\"}\n{\"line\":\"echo 2\"}\n"));
    shutdown(client.get(), SHUT_WR);
    EXPECT_EQ(receiveLine(client), "{\"status\":0}");
    EXPECT_EQ(receiveLine(client), "{\"status\":0}");
    EXPECT_EQ(receiveLine(client), "");
}

// A command that records its sender, and blocks the shell for the first one.
struct Turns {
    static int run(void* context) {
        auto& self = *static_cast<Turns*>(context);
        self.senders.push_back(self.server.getArgument(0));
        if (self.senders.back() == "first") {
            self.started.set_value();
            self.mayContinue.get_future().wait();
        }
        return 0;
    }
    appovshell::Server& server;
    std::vector<std::string> senders; // used by the shell's thread until the shell has answered all requests
    std::promise<void> started, mayContinue;
};

TEST_F(Shell, ServesOneRequestPerClientInTurn) {
    Turns turns{*server, {}, {}, {}};
    server->registerCommand("turn :s", "", &Turns::run, &turns);
    start();
    const auto flooder = connectRaw(), other = connectRaw();
    ASSERT_TRUE(sendRaw(other, "{\"line\":\"echo\"}\n"));
    EXPECT_EQ(receiveLine(other), "{\"status\":0}");
    std::string requests = "{\"line\":\"turn first\"}\n";
    for (int i = 0; i < 50; ++i) requests += "{\"line\":\"turn flooder\"}\n";
    ASSERT_TRUE(sendRaw(flooder, requests));
    turns.started.get_future().wait();
    ASSERT_TRUE(sendRaw(other, "{\"line\":\"turn other\"}\n"));
    turns.mayContinue.set_value();
    EXPECT_EQ(receiveLine(other), "{\"status\":0}");
    for (int i = 0; i < 51; ++i) EXPECT_EQ(receiveLine(flooder), "{\"status\":0}");
    const auto turn = std::find(turns.senders.begin(), turns.senders.end(), "other") - turns.senders.begin();
    EXPECT_LE(turn, 2);
}

TEST_F(Shell, StaysConnectedAfterGarbage) {
    start();
    const auto client = connectRaw();
    ASSERT_TRUE(sendRaw(client, std::string("\0\xff{{\n", 5)));
    EXPECT_THAT(receiveLine(client), HasSubstr("malformed request"));
    ASSERT_TRUE(sendRaw(client, "{\"line\":\"echo 1\"}\n"));
    EXPECT_EQ(receiveLine(client), "{\"status\":0}");
}

TEST_F(Shell, EndsTheConnectionAfterAnOversizeRequest) {
    start();
    const auto client = connectRaw();
    sendRaw(client, std::string(ShellServer::maximumLine + 1, 'x'));
    EXPECT_THAT(receiveLine(client), HasSubstr("longer than 65536 bytes"));
    EXPECT_EQ(receiveLine(client), "");

    ShellClient other;
    other.connect(path);
    EXPECT_THAT(other.run("echo " + std::string(100000, 'x')).error, HasSubstr("longer than 65536 bytes"));
}

TEST_F(Shell, DropsAClientThatDoesNotReadAndServesTheOthers) {
    start();
    recorder.text.assign(100 * 1000, 'x');
    const auto stalled = connectRaw();
    // More answers than its socket and the shell's buffer hold. The shell then disconnects it.
    for (int i = 0; i < 30; ++i) sendRaw(stalled, "{\"line\":\"echo\"}\n");
    ShellClient other;
    other.connect(path);
    EXPECT_EQ(other.run("echo").status, 0);
    int answers = 0;
    while (!receiveLine(stalled).empty()) ++answers;
    EXPECT_LT(answers, 60);
    EXPECT_EQ(other.run("echo").status, 0);
}

TEST_F(Shell, EvictsTheLongestIdleClientWhenAllSlotsAreTaken) {
    const host::LogCapture log({0x0205});
    start();
    std::vector<ShellClient> clients(ShellServer::maximumClients);
    for (auto& client : clients) {
        client.connect(path);
        EXPECT_EQ(client.run("echo").status, 0);
    }
    EXPECT_EQ(clients[0].run("echo").status, 0); // now the second client has been idle the longest
    ShellClient late;
    late.connect(path);
    EXPECT_EQ(late.run("echo").status, 0);
    EXPECT_TRUE(log.waitFor("evicted the shell client that was idle the longest", std::chrono::seconds(10)));
    EXPECT_EQ(clients[0].run("echo").status, 0);
    const auto reply = clients[1].run("echo");
    EXPECT_EQ(reply.status, -EAGAIN);
    EXPECT_EQ(reply.error, "the shell already has 16 clients, and this one was idle the longest");
    EXPECT_EQ(clients[2].run("echo").status, 0);
}

TEST_F(Shell, DoesNotEvictAClientWhoseRequestIsArriving) {
    start();
    const auto slow = connectRaw();
    ASSERT_TRUE(sendRaw(slow, "{\"line\":\"echo\"}\n"));
    EXPECT_EQ(receiveLine(slow), "{\"status\":0}");
    std::vector<ShellClient> others(ShellServer::maximumClients - 1);
    for (auto& client : others) {
        client.connect(path);
        EXPECT_EQ(client.run("echo").status, 0);
    }
    ASSERT_TRUE(sendRaw(slow, "{\"line\":"));
    EXPECT_EQ(others.back().run("echo").status, 0); // by now the shell has read that request
    ShellClient late;
    late.connect(path);
    EXPECT_EQ(late.run("echo").status, 0);
    ASSERT_TRUE(sendRaw(slow, "\"echo\"}\n"));
    EXPECT_EQ(receiveLine(slow), "{\"status\":0}");
    EXPECT_EQ(others.front().run("echo").status, -EAGAIN);
}

TEST_F(Shell, EvictsAClientWhoseRequestTakesTooLongToArrive) {
    server = std::make_unique<ShellServer>(std::chrono::milliseconds(0));
    recorder.server = *server;
    start();
    std::vector<host::io::FileDescriptor> slow;
    for (std::size_t i = 0; i < ShellServer::maximumClients; ++i) {
        slow.push_back(connectRaw());
        ASSERT_TRUE(sendRaw(slow.back(), "{\"line\":\"echo\"}\n{\"line\":"));
        EXPECT_EQ(receiveLine(slow.back()), "{\"status\":0}");
    }
    ShellClient late;
    late.connect(path);
    EXPECT_EQ(late.run("echo").status, 0);
}

TEST_F(Shell, ServesANewClientBesideAnyNumberOfIdleOnes) {
    start();
    std::vector<ShellClient> idle(100);
    for (auto& client : idle) {
        client.connect(path);
        EXPECT_EQ(client.run("echo").status, 0);
    }
}

TEST_F(Shell, DoesNotEvictAnIdleClientForOneThatSendsNoRequest) {
    start();
    std::vector<ShellClient> clients(ShellServer::maximumClients);
    for (auto& client : clients) {
        client.connect(path);
        EXPECT_EQ(client.run("echo").status, 0);
    }
    const auto other = connectRaw();
    ASSERT_TRUE(sendRaw(other, "garbage\n"));
    EXPECT_THAT(receiveLine(other), HasSubstr("malformed request"));
    for (auto& client : clients) EXPECT_EQ(client.run("echo").status, 0);
}

// A slow machine takes long to make busy clients. They are not evicted meanwhile.
constexpr std::chrono::minutes whileBusy(10);

// As many clients as a shell accepts. None of them reads its answer.
std::vector<host::io::FileDescriptor> Shell::busyClients() {
    recorder.text.assign(600 * 1000, 'x'); // more than a socket holds, less than the shell buffers
    std::vector<host::io::FileDescriptor> busy;
    for (std::size_t i = 0; i < ShellServer::maximumClients; ++i) {
        busy.push_back(connectRaw());
        EXPECT_TRUE(sendRaw(busy.back(), "{\"line\":\"echo\"}\n"));
        char first = 0; // waits until the answer has started
        EXPECT_EQ(recv(busy.back().get(), &first, 1, 0), 1);
    }
    return busy;
}

TEST_F(Shell, RejectsANewClientWhenNoneIsIdle) {
    makeServer(whileBusy);
    start();
    const auto busy = busyClients();
    ShellClient late;
    late.connect(path);
    const auto reply = late.run("echo");
    EXPECT_EQ(reply.status, -EAGAIN);
    EXPECT_EQ(reply.error, "the shell already has 16 clients");
    EXPECT_GT(receiveLine(busy.front()).size(), recorder.text.size());
}

TEST_F(Shell, EvictsAClientThatHasNotReadItsAnswersForLong) {
    makeServer(std::chrono::milliseconds(1));
    start();
    const auto busy = busyClients();
    ShellClient late;
    late.connect(path);
    EXPECT_EQ(late.run("echo").status, 0);
}

TEST_F(Shell, EvictsAClientThatHasSentNoRequestForANewOne) {
    const host::LogCapture log({0x0205});
    start();
    ShellClient first;
    first.connect(path);
    EXPECT_EQ(first.run("echo").status, 0);
    std::vector<host::io::FileDescriptor> silent;
    for (std::size_t i = 0; i < ShellServer::maximumSilent; ++i) {
        silent.push_back(connectRaw());
        sendRaw(silent.back(), "{\"line\":");
    }
    ShellClient late;
    late.connect(path);
    EXPECT_EQ(late.run("echo").status, 0);
    EXPECT_THAT(receiveLine(silent[0]), HasSubstr("it sent no request while 64 others connected"));
    EXPECT_EQ(receiveLine(silent[0]), "");
    EXPECT_TRUE(
        log.waitFor("evicted a shell client: it sent no request while 64 others connected", std::chrono::seconds(10)));
    EXPECT_EQ(first.run("echo").status, 0);
}

TEST_F(Shell, RejectsAClientThatSendsARequestWhenAllSlotsAreTaken) {
    makeServer(whileBusy);
    start();
    const auto slow = connectRaw();
    sendRaw(slow, "garbage\n");
    EXPECT_THAT(receiveLine(slow), HasSubstr("malformed request"));
    sendRaw(slow, "{\"line\":");
    const auto busy = busyClients();
    sendRaw(slow, "\"echo\"}\n");
    EXPECT_THAT(receiveLine(slow), HasSubstr("the shell already has 16 clients"));
    EXPECT_EQ(receiveLine(slow), "");
}

TEST_F(Shell, WritesFewLinesAboutManyClientsOfAnotherUser) {
    constexpr unsigned crowd = 500;
    server->open(path, geteuid() + 1);
    server->start();
    const host::LogCapture log({0x0205});
    for (unsigned i = 0; i < crowd; ++i) EXPECT_THAT(receiveLine(connectRaw()), HasSubstr("its own user only"));
    unsigned clients, suppressed;
    // The suppressed lines of each second are counted in one line at its end.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    do {
        std::this_thread::yield();
        clients = suppressed = 0;
        for (const auto& line : log.lines())
            if (unsigned count = 0; std::sscanf(line.text.c_str(), "... and %u more", &count) == 1)
                suppressed += count;
            else
                ++clients;
    } while (suppressed <= crowd / 2 && std::chrono::steady_clock::now() < deadline);
    server->stop();
    EXPECT_EQ(clients, crowd) << "every client is logged or counted as suppressed";
    EXPECT_GT(suppressed, crowd / 2);
    EXPECT_LT(suppressed, crowd);
}

TEST_F(Shell, RejectsOtherUsers) {
    server->open(path, geteuid() + 1);
    server->start();
    ShellClient client;
    client.connect(path);
    EXPECT_EQ(client.run("help").status, -EACCES);
}

TEST_F(Shell, KeepsItsSocketPrivateAndRemovesIt) {
    start();
    struct stat status {};
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFSOCK | 0600));
    server->stop();
    EXPECT_NE(lstat(path.c_str(), &status), 0);
    server->stop();
}

TEST_F(Shell, ReplacesAStaleSocket) {
    close(host::io::listenAt(path));
    struct stat status {};
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    start();
    ShellClient client;
    client.connect(path);
    EXPECT_EQ(client.run("echo").status, 0);
}

TEST_F(Shell, DoesNotReplaceASocketInUse) {
    start();
    ShellServer second;
    try {
        second.open(path, geteuid());
        ADD_FAILURE();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EADDRINUSE);
        EXPECT_THAT(error.what(), HasSubstr(path));
    }
    second.stop();
    ShellClient client;
    client.connect(path);
    EXPECT_EQ(client.run("echo").status, 0);
}

TEST_F(Shell, DoesNotReplaceASocketThatAnotherShellIsTaking) {
    close(host::io::listenAt(path));
    {
        const host::io::SocketLock other("other", path);
        try {
            server->open(path, geteuid());
            ADD_FAILURE();
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), EADDRINUSE);
            EXPECT_THAT(error.what(), HasSubstr("debug shell at " + path));
        }
        EXPECT_EQ(access(path.c_str(), F_OK), 0);
    }
    start();
    ShellClient client;
    client.connect(path);
    EXPECT_EQ(client.run("echo").status, 0);
}

TEST_F(Shell, DoesNotReplaceAFileThatIsNotASocket) {
    std::ofstream(path) << "content";
    EXPECT_THROW(server->open(path, geteuid()), std::system_error);
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
}

TEST_F(Shell, ServesClientsThatConnectedBeforeItsStart) {
    server->registerCommand("echo :s", "", &Recorder::run, &recorder);
    server->open(path, geteuid());
    const auto client = connectRaw();
    ASSERT_TRUE(sendRaw(client, "{\"line\":\"echo 1\"}\n"));
    server->start();
    EXPECT_EQ(receiveLine(client), "{\"status\":0}");
}

TEST_F(Shell, ClientReportsThatNoShellServes) {
    ShellClient client;
    EXPECT_EQ(failure(client, "echo"), ShellError::Kind::NotAvailable);
    EXPECT_THROW(client.connect(path), ShellError);
    start();
    client.connect(path);
    server->stop();
    EXPECT_EQ(failure(client, "echo"), ShellError::Kind::NotAvailable);
    EXPECT_THROW(client.connect(path), ShellError);
}

TEST_F(Shell, ClientTimesOut) {
    const host::io::FileDescriptor silent(host::io::listenAt(path));
    ShellClient client;
    client.connect(path);
    EXPECT_EQ(failure(client, "echo", std::chrono::milliseconds(20)), ShellError::Kind::TimedOut);
}

TEST_F(Shell, ClientRejectsAMalformedAnswer) {
    const host::io::FileDescriptor listener(host::io::listenAt(path));
    for (const char* answer : {"nonsense\n", "{}\n", "{\"status\":\"0\"}\n", "{\"output\":1}\n", "[]\n",
                               "{\"status\":0}\n{\"status\":0}\n"}) {
        ShellClient client;
        client.connect(path);
        const host::io::FileDescriptor peer(accept(listener.get(), nullptr, nullptr));
        ASSERT_TRUE(sendRaw(peer, answer));
        EXPECT_EQ(failure(client, "echo"), ShellError::Kind::BadData) << answer;
    }
}

} // namespace
