// The control application's shell commands: what they send, reject and show.
#include "control/src/commands.h"
#include "control/src/request-syntax.h"
#include "shell/command-table.h"
#include "support/fake-shell.h"
#include "support/tv-doubles.h"
#include "support/tv-messages.h"

#include <frame/abstract-application.h>
#include <frame/process.h>

#include <boost/make_shared.hpp>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using genrpc::Json;
using testing::HasSubstr;
using testing::SizeIs;

namespace {

// The TV service that the adapter uses: the only one in the process, registered until the process ends.
class RegisteredService : public frame::AbstractApplication, public support::RecordingTvService {
public:
    static RegisteredService& get() {
        static RegisteredService& service = *[] {
            auto* made = new RegisteredService;
            made->attachProcess(*frame::Process::getInstance());
            made->registerInterface(static_cast<tvservice::ServiceInterface*>(made),
                                    tvservice::ServiceInterface::interfaceKey);
            return made;
        }();
        return service;
    }
};

// A started adapter for all tests, because there is one resource manager per process.
tvservice::ModelTvServiceAdapter& startedAdapter() {
    static auto& adapter = *[] {
        RegisteredService::get();
        support::FakeShell::get(); // instead of a socket in the user's runtime folder, which other tests use, too
        auto* made = new tvservice::ModelTvServiceAdapter;
        static_cast<frame::AbstractProcessMember*>(made)->attachProcess(*frame::Process::getInstance());
        EXPECT_EQ(made->performSetupDone(), 0);
        EXPECT_EQ(made->performStarting(), 0);
        return made;
    }();
    return adapter;
}

struct Reply {
    int status;
    std::string output;
    std::string error;
};

struct Control : testing::Test {
    void SetUp() override {
        ASSERT_EQ(commands.registerAll(), 0);
        service.calls.clear();
        service.result = 0;
    }

    Reply run(const std::vector<std::string>& words, bool json = false) {
        Reply reply{1, "", ""};
        std::istringstream lines(shell.answer(Json{{"words", words}, {"json", json}}.dump()));
        for (std::string line; std::getline(lines, line);) {
            const auto part = Json::parse(line);
            reply.output += part.value("output", "");
            reply.status = part.value("status", 1);
            reply.error = part.value("error", "");
        }
        return reply;
    }
    // Sends a notification of the service.
    void notify(std::int32_t number) {
        frame::MsgIds ids;
        log.tvServiceSwapWinInfo(ids, {}, {number});
    }
    std::vector<int> numbers(const std::vector<std::string>& words) {
        std::vector<int> result;
        for (const auto& notification : Json::parse(run(words, true).output)) result.push_back(notification["number"]);
        return result;
    }

    RegisteredService& service = RegisteredService::get();
    appovshell::CommandTable shell;
    control::TerminalView view;
    control::NotificationLog log;
    control::RequestLog requests;
    control::Commands commands{startedAdapter(), view, log, requests, shell};
};

struct Sent {
    std::vector<std::string> words;
    std::string message;
    std::string arguments;
};

const Sent sent[] = {
    {{"swap-win", "7"}, "TvServiceSwapWinReq", R"({"request":{"intParam1":7}})"},
    {{"stream-info", "2147483647"}, "TvServiceStreamInfoReq", R"({"request":{"intParam1":2147483647}})"},
    {{"audio", "0:1", "2", "3"},
     "TvServiceAudioReq",
     R"({"request":{"terminal":{"type":0,"id":1},"intParam1":2,"intParam2":3}})"},
    {{"subtitle", "2147483647:2", "0", "-2147483648"},
     "TvServiceSubtitleReq",
     R"({"request":{"terminal":{"type":2147483647,"id":2},"intParam1":0,"intParam2":-2147483648}})"},
    {{"video", "1:0", "4"},
     "TvServiceVideoReq",
     R"({"request":{"terminal":{"type":1,"id":0},"intParam1":4,"intParam2":0}})"},
    {{"teletext", "0:0", "100", "1"},
     "TvServiceTeletextReq",
     R"({"request":{"terminal":{"type":0,"id":0},"intParam1":100,"intParam2":1}})"},
    {{"info"}, "TvServiceInfoReq", "{}"},
    {{"ask-release", "5"}, "TvServiceAskReleaseReq", R"({"request":{"intParam1":5}})"},
    {{"send-key", "RED \"key\""}, "TvServiceSendKeyReq", R"({"key":"RED \"key\""})"},
    {{"slist-changed", "1"}, "TvServiceSListChangedInd", R"({"indication":{"intParam1":1}})"},
    {{"try-run", "6"}, "TvServiceTryRunReq", R"({"params":{"intParam1":6}})"},
    {{"parental-lock", "0:0", "1", "18"},
     "SetParentalLockInfo",
     R"({"info":{"terminal":{"type":0,"id":0},"intParam1":1,"intParam2":18}})"},
    {{"mts-audio", "2"}, "MtsAudioChangeReq", R"({"track":2})"},
    {{"cas-service", "3"}, "SetCasService", R"({"type":3})"},
    {{"request-packages", "1", "a,b"}, "RequestPackagesReq", R"({"type":1,"packages":"a,b"})"},
    {{"source-changed", "satellite"}, "TvServiceSourceChanged", R"({"source":"satellite"})"},
};

TEST_F(Control, SendsEveryRequestWithItsArguments) {
    for (const auto& [words, message, arguments] : sent) {
        service.calls.clear();
        const auto reply = run(words);
        EXPECT_EQ(reply.status, 0) << message << ": " << reply.output << reply.error;
        EXPECT_EQ(reply.output, "sent " + message + "\n");
        ASSERT_THAT(service.calls, SizeIs(1)) << message;
        EXPECT_EQ(service.calls[0].message, message);
        EXPECT_EQ(service.calls[0].arguments, Json::parse(arguments)) << message;
    }
}

// The words that a user types to send a message, with arbitrary values.
template <class Message> std::vector<std::string> typed() {
    const auto [command, arguments, help] = control::syntaxOf<Message>();
    std::vector<std::string> words{command};
    std::istringstream names(arguments);
    for (std::string name; names >> name;)
        words.push_back(name == "TERMINAL" ? "1:2" : name == "N" || name == "[N]" || name == "TYPE" ? "1" : "text");
    return words;
}

TEST_F(Control, HasACommandForEveryRequestThatCanBeTyped) {
    support::forEach(support::TvRequests{}, [&]<class Message>() {
        service.calls.clear();
        if constexpr (control::canBeTyped<typename Message::Body::Arguments>) {
            EXPECT_EQ(run(typed<Message>()).output, std::string("sent ") + Message::name + "\n");
            ASSERT_THAT(service.calls, SizeIs(1));
            EXPECT_EQ(service.calls[0].message, Message::name);
        } else {
            EXPECT_STREQ(Message::name, "TvServiceReq") << "sent by the commands play and stop";
        }
    });
}

// A request without words of its own.
struct TvServiceNewThingReq {
    static constexpr const char* name = "TvServiceNewThingReq";
    using Body = genrpc::Body<tvservice::TvServiceParentalLockInfo_t, std::string, tvservice::MtsAudioTrack_t>;
};

TEST(RequestSyntax, FollowsFromTheNamesOfAMessageThatHasNone) {
    const auto [command, arguments, help] = control::syntaxOf<TvServiceNewThingReq>();
    EXPECT_EQ(command, "new-thing");
    EXPECT_EQ(arguments, "TERMINAL N N TEXT N");
    EXPECT_EQ(help, "sends TvServiceNewThingReq");
    EXPECT_TRUE(control::canBeTyped<TvServiceNewThingReq::Body::Arguments>);
    EXPECT_FALSE(control::canBeTyped<std::tuple<tvservice::TvServiceInstalledInfo_t>>);
}

TEST_F(Control, TakesTheNamesOfNumbers) {
    EXPECT_EQ(run({"parental-lock", "0:0", "locked", "12"}).status, 0);
    EXPECT_EQ(run({"mts-audio", "second programme"}).status, 0);
    ASSERT_THAT(service.calls, SizeIs(2));
    EXPECT_EQ(service.calls[0].arguments["info"]["intParam1"], 1);
    EXPECT_EQ(service.calls[1].arguments["track"], 1);
    EXPECT_EQ(run({"parental-lock", "0:0", "99"}).output, "N must be 0 (unlocked) or 1 (locked), not '99'\n");
}

TEST_F(Control, PrintsWhatItSentAsJson) {
    EXPECT_EQ(run({"audio", "0:0", "1"}, true).output, "{\"sent\":\"TvServiceAudioReq\"}\n");
}

TEST_F(Control, ReportsThatARequestCouldNotBeSent) {
    service.result = -105;
    const auto reply = run({"send-key", "RED"});
    EXPECT_EQ(reply.status, -105);
    EXPECT_THAT(reply.output, HasSubstr("TvServiceSendKeyReq could not be sent: "));
}

TEST_F(Control, RejectsWrongArgumentsAndSendsNothing) {
    const std::string fourKiB(4096, '7');
    const std::vector<std::vector<std::string>> wrong = {
        {"swap-win", ""},
        {"swap-win"},
        {"swap-win", "x"},
        {"swap-win", "1x"},
        {"swap-win", "+1"},
        {"swap-win", "-1"},
        {"swap-win", "2147483648"},
        {"swap-win", "-2147483649"},
        {"swap-win", fourKiB},
        {"audio", "0", "1"},
        {"audio", "0:", "1"},
        {"audio", "0:0:0", "1"},
        {"audio", "0:2147483648", "1"},
        {"audio", "0:-1", "1"},
        {"audio", "-1:0", "1"},
        {"play", "0:-1", "dvb://1"},
        {"play", "0:0,", "dvb://1"},
        {"play", "0:0,,1:0", "dvb://1"},
        {"play", "", "dvb://1"},
        {"play", "0:0", ""},
        {"play", "0:0"},
        {"stop", "0"},
        {"stop", "0:0,-1:0"},
        {"requests", "-1"},
        {"requests", "x"},
        {"requests", "0"},
        {"answers", "0"},
        {"bundles", "0"},
        {"runlog", "0"},
        {"play", "0:0,1:0,0:0", "dvb://1"},
        {"stop", "0:0,0:0"},
        {"log"},
        {"log", "nosuch=info"},
        {"request"},
        {"request", "control-17"},
        {"audio", fourKiB, "1"},
        {"audio", "0:0", "1", "x"},
        {"audio", "0:0", "1", "99999999999"},
        {"audio", "0:0"},
        {"audio", "0:0", "-5"},
        {"subtitle", "0:0", "-1"},
        {"stream-info", "0"},
        {"try-run", "-1"},
        {"ask-release", "-1"},
        {"slist-changed", "-1"},
        {"cas-service", "-1"},
        {"mts-audio", "-1"},
        {"mts-audio", "3"},
        {"mts-audio", "none"},
        {"parental-lock", "0:0", "99"},
        {"parental-lock", "0:0", "1", "-18"},
        {"audio", "0:0", "1", "2", "3"},
        {"info", "1"},
        {"send-key"},
        {"send-key", fourKiB},
        {"request-packages", "1"},
        {"request-packages", "x", "a"},
        {"request-packages", "1", fourKiB},
        {"source-changed", fourKiB},
    };
    for (const auto& words : wrong) {
        const auto reply = run(words);
        EXPECT_EQ(reply.status, -22) << words[0] << " " << words.back();
        EXPECT_NE(reply.output + reply.error, "") << words[0];
        EXPECT_LT((reply.output + reply.error).size(), 200U) << words[0];
    }
    EXPECT_THAT(service.calls, SizeIs(0));
}

TEST_F(Control, TakesTheNameOfATerminalsType) {
    EXPECT_EQ(run({"audio", "main:1", "2"}).status, 0);
    ASSERT_THAT(service.calls, SizeIs(1));
    EXPECT_EQ(service.calls[0].arguments["request"]["terminal"].dump(), R"({"type":0,"id":1})");
    EXPECT_EQ(run({"audio", "unknown:1", "2"}).status, -22);
    EXPECT_EQ(run({"audio", "none:1", "2"}).status, -22) << "a negative type";
    EXPECT_EQ(run({"audio", "main:", "2"}).status, -22);
    EXPECT_EQ(run({"audio", "main", "2"}).status, -22);
}

TEST_F(Control, NamesTheArgumentThatIsWrong) {
    EXPECT_EQ(run({"audio", "one", "1"}).output,
              "TERMINAL must be TYPE:ID, such as 0:1 or main:1, with numbers from 0 to 2147483647, not 'one'\n");
    EXPECT_EQ(run({"audio", "0:0", "x"}).output, "N must be a decimal number of 32 bits, not 'x'\n");
    EXPECT_EQ(run({"send-key"}).output, "KEY is missing\n");
    EXPECT_EQ(run({"audio"}).error, "usage: audio TERMINAL N [N]");
    for (const char* command : {"play", "zap"})
        EXPECT_EQ(run({command, "x", "dvb://1"}).output,
                  "terminal 'x': expected TYPE:ID, such as 0:1 or main:1, with numbers from 0 to 2147483647\n");
    EXPECT_EQ(run({"zap", "0:0"}).output, "no URI given\n");
    EXPECT_EQ(run({"zap"}).error, "usage: zap TERMINAL URI...");
}

TEST_F(Control, ListsEveryKindOfNotificationOnce) {
    std::vector<std::string> names;
    const auto listed = [&] {
        std::vector<std::string> messages;
        for (const auto& notification : Json::parse(run({"notifications", "0"}, true).output))
            messages.push_back(notification["message"]);
        return messages;
    };
#define NOTIFY(service_, direction, Name, method, id, ...)                                                             \
    {                                                                                                                  \
        frame::MsgIds ids;                                                                                             \
        const tvservice::messages::Name::Body::Arguments arguments;                                                    \
        std::apply([&](const auto&... argument) { log.method(ids, frame::TransportInfo{}, argument...); }, arguments); \
        names.emplace_back(#Name);                                                                                     \
    }
    TVSERVICE_NOTIFICATIONS(NOTIFY)
#undef NOTIFY
    EXPECT_EQ(listed(), names);
    EXPECT_THAT(names, SizeIs(support::TvNotifications::size));
}

TEST_F(Control, ListsANotificationWithEveryFieldByItsName) {
    frame::MsgIds ids;
    log.tvServiceConflictInfo(ids, {}, {{1, 2}, {}, -3});
    const auto list = Json::parse(run({"notifications"}, true).output);
    ASSERT_THAT(list, SizeIs(1));
    EXPECT_EQ(list[0]["number"], 1);
    EXPECT_THAT(list[0]["time"].get<std::string>(), testing::EndsWith("Z"));
    EXPECT_EQ(list[0]["message"], "TvServiceConflictInfo");
    EXPECT_EQ(list[0]["arguments"].dump(), R"({"info":{"uintList1":[1,2],"uintList2":[],"intParam1":-3}})");
    EXPECT_EQ(run({"notifications"}).output, "1 " + list[0]["time"].get<std::string>() + " TvServiceConflictInfo " +
                                                 list[0]["arguments"].dump() + "\n");
}

TEST_F(Control, ListsTheNamesOfNumbersBesideThem) {
    frame::MsgIds ids;
    log.tvServiceMtsAudioTrackInfoNotify(ids, {}, tvservice::MtsAudioTrack_t{1});
    log.tvServiceTunerStatusMessage(ids, {}, {1, 7, {0, 2}, 482000, 6875, 8});
    log.tvServiceBroadcastApplictionInfo(ids, {}, 9);
    log.tvServiceInfo(ids, {}, {{{3, 0}, 6, "dvb://1", "", "", "a"}});
    const auto list = Json::parse(run({"notifications"}, true).output);
    const auto arguments = [&](std::size_t index) { return list.at(index).at("arguments").dump(); };
    EXPECT_EQ(arguments(0), R"({"track":1,"trackName":"second programme"})");
    EXPECT_EQ(arguments(1), R"({"message":{"byteParam1":1,"byteParam1Name":"tuning","intParam1":7,)"
                            R"("terminal":{"type":0,"typeName":"main","id":2},)"
                            R"("intParam2":482000,"intParam3":6875,"intParam4":8}})");
    EXPECT_EQ(arguments(2), R"({"application":9,"applicationName":"unknown"})");
    EXPECT_EQ(arguments(3), R"({"infos":[{"terminal":{"type":3,"typeName":"unknown","id":0},"result":6,)"
                            R"("resultName":"locked","uri":"dvb://1","uuid":"","uuidAncestor":"","reqId":"a"}]})");
    EXPECT_THAT(run({"notifications"}).output, HasSubstr(R"( {"track":1,"trackName":"second programme"})"));
}

TEST_F(Control, ListsTheNewestTenNotificationsUnlessAskedForMore) {
    EXPECT_EQ(run({"notifications"}, true).output, "[]\n");
    EXPECT_EQ(run({"notifications"}).output, "");
    for (int i = 1; i <= 250; ++i) notify(i);
    EXPECT_THAT(numbers({"notifications"}), testing::ElementsAre(241, 242, 243, 244, 245, 246, 247, 248, 249, 250));
    EXPECT_THAT(numbers({"notifications", "247"}), testing::ElementsAre(248, 249, 250));
    EXPECT_THAT(numbers({"notifications", "250"}), SizeIs(0));
    EXPECT_THAT(numbers({"notifications", "18446744073709551615"}), SizeIs(0));
    const auto first = numbers({"notifications", "0"});
    ASSERT_THAT(first, SizeIs(100));
    EXPECT_EQ(first.front(), 1);
    EXPECT_EQ(first.back(), 100);
}

TEST_F(Control, KeepsTheNewestThousandNotifications) {
    for (int i = 1; i <= 1003; ++i) notify(i);
    EXPECT_EQ(numbers({"notifications", "0"}).front(), 4);
}

TEST_F(Control, KeepsTheNewestNotificationsThatFitIntoSixteenMebibytes) {
    frame::MsgIds ids;
    const auto table = [&] { return log.table(); };
    const std::string text(200 * 1024, 'x');
    log.tvServicePlayInfo(ids, {}, {text});
    const std::size_t each = table().bytes;
    ASSERT_GE(each, text.size());
    const std::size_t most = 16 * 1024 * 1024 / each;
    for (std::size_t i = 1; i < most; ++i) log.tvServicePlayInfo(ids, {}, {text});
    EXPECT_EQ(table().held, most);
    EXPECT_EQ(table().dropped, 0U);
    for (int i = 0; i < 3; ++i) log.tvServicePlayInfo(ids, {}, {text});
    EXPECT_EQ(table().held, most);
    EXPECT_EQ(table().dropped, 3U);
    EXPECT_EQ(table().bytes, most * each);
    EXPECT_EQ(numbers({"notifications", "0"}).front(), 4);
    notify(1); // fits into the remaining space
    EXPECT_EQ(table().dropped, 3U);
}

TEST_F(Control, RejectsANumberThatNoNotificationCanHave) {
    for (const char* after : {"-1", "x", "1.5", "18446744073709551616"})
        EXPECT_EQ(run({"notifications", after}).status, -22) << after;
}

TEST_F(Control, DoesNotConvertATooLongNotificationToJson) {
    frame::MsgIds ids;
    const std::size_t least = control::NotificationLog::longestArguments;
    log.tvServicePlayInfo(ids, {}, {std::string(least, '"')});
    const std::vector<tvservice::TvServiceInfo_t> infos(10000);
    log.tvServiceInfo(ids, {}, infos);
    const auto list = Json::parse(run({"notifications", "0"}, true).output);
    for (const auto& notification : list) EXPECT_EQ(notification["arguments"], Json::object());
    // With escapes it would be twice as long.
    EXPECT_EQ(list[0]["omittedBytes"], least + 18);
    EXPECT_GT(list[1]["omittedBytes"], infos.size() * 50);
}

TEST_F(Control, ListsLongNotificationsInSeveralCalls) {
    frame::MsgIds ids;
    for (int i = 0; i < 5; ++i) log.tvServicePlayInfo(ids, {}, {std::string(200 * 1024, '"')});
    log.tvServicePlayInfo(ids, {}, {std::string(100 * 1024, '"')});
    log.tvServicePlayInfo(ids, {}, {"short"});
    const auto list = Json::parse(run({"notifications", "0"}, true).output);
    EXPECT_EQ(list[0]["omittedBytes"], 400 * 1024 + 25);
    EXPECT_EQ(list[0]["arguments"], Json::object());
    EXPECT_THAT(run({"notifications", "0"}).output, HasSubstr("TvServicePlayInfo (409625 bytes left out)\n"));
    for (int i = 0; i < 5; ++i) log.tvServicePlayInfo(ids, {}, {std::string(250 * 1024, 'x')});
    EXPECT_THAT(numbers({"notifications", "7"}), testing::ElementsAre(8, 9));
    EXPECT_THAT(numbers({"notifications", "9"}), testing::ElementsAre(10, 11));
    EXPECT_THAT(numbers({"notifications"}), testing::ElementsAre(11, 12));
}

TEST_F(Control, EscapesTextThatForgesALineOrControlsATerminal) {
    frame::MsgIds ids;
    tvservice::TvServiceInfo_t info;
    info.uri = "dvb://1\nforged\x1b[2J\x7f\xc2\x9b";
    log.tvServiceInfo(ids, {}, {info});
    log.tvServicePlayInfo(ids, {}, {info.uri});
    EXPECT_THAT(run({"notifications"}).output,
                HasSubstr(R"({"info":{"strParam1":"dvb://1\nforged\u001b[2J\x7f\xc2\x9b"}})"));
    view.tvServiceInfo(ids, {}, {info});
    EXPECT_THAT(run({"answers"}).output, HasSubstr("  uri dvb://1\\x0aforged\\x1b[2J\\x7f\\xc2\\x9b  uuid "));
}

TEST_F(Control, ListsTextThatIsNotUtf8) {
    frame::MsgIds ids;
    log.tvServicePlayInfo(ids, {}, {"\xff\n"});
    EXPECT_EQ(Json::parse(run({"notifications"}, true).output)[0]["arguments"]["info"]["strParam1"], "\xEF\xBF\xBD\n");
}

// The adapter's queue, which serves both play and zap, with a service that answers when the test wants.
struct ControlOfTheQueue : Control {
    static constexpr auto timeout = std::chrono::seconds(60);

    void TearDown() override {
        while (!startedAdapter().bundles().empty()) answerFirst();
    }
    // Waits until the active request is sent, and answers it.
    void answerFirst() {
        const auto end = std::chrono::steady_clock::now() + timeout;
        auto bundles = startedAdapter().bundles();
        const auto sent = [&] {
            return !bundles.empty() && bundles.front().steps.front().operation == "ResOperation::WaitingStart";
        };
        while (!sent() && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
            bundles = startedAdapter().bundles();
        }
        ASSERT_TRUE(sent());
        frame::MsgIds ids;
        const std::vector<tvservice::TvServiceInfo_t> infos{
            {bundles.front().terminals.front(), 0, "u", "", "", bundles.front().reqId}};
        service.clients.front()->tvServiceInfo(ids, {}, infos);
    }
    Json queue() { return Json::parse(run({"bundles"}, true).output); }
};

TEST_F(ControlOfTheQueue, ZapsWithOneRequestAtATime) {
    EXPECT_EQ(run({"zap", "1:0", "dvb://1", "dvb://2", "dvb://3"}).output, "wanted 3\n");
    EXPECT_THAT(queue(), SizeIs(1));
    answerFirst();
    EXPECT_THAT(queue(), SizeIs(1));
    answerFirst();
    EXPECT_THAT(queue(), SizeIs(0));
    EXPECT_EQ(run({"zap", "1:0", "dvb://1"}, true).output, "{\"wanted\":1}\n");
}

TEST_F(ControlOfTheQueue, DropsZapsWhenSomethingNewerIsPlayedOrStopped) {
    for (const auto& newer : {std::vector<std::string>{"play", "5:0,2:0", "dvb://9"}, {"stop", "5:0"}}) {
        run({"zap", "5:0", "dvb://1", "dvb://2"});
        EXPECT_EQ(run(newer).status, 0);
        EXPECT_THAT(queue(), SizeIs(2));
        answerFirst();
        EXPECT_THAT(queue(), SizeIs(1)) << newer.front(); // the older zap to dvb://2 is gone
        answerFirst();
    }
}

TEST_F(ControlOfTheQueue, PrintsTheIdByWhichARequestIsKnown) {
    const auto played = run({"play", "0:0", "dvb://1"});
    EXPECT_EQ(played.output, "queued 1 (request control-1)\n");
    EXPECT_EQ(queue()[0]["reqId"], "control-1");
    EXPECT_EQ(run({"play", "1:0,2:0", "dvb://2"}, true).output, "{\"queued\":2,\"request\":\"control-2\"}\n");
    const auto known = Json::parse(run({"request", "control-2"}, true).output);
    ASSERT_THAT(known, SizeIs(1));
    EXPECT_EQ(known[0]["lines"], Json{"1:0,2:0 queued (request control-2)"});
    EXPECT_THAT(run({"requests"}).output, HasSubstr(" shell: 0:0 queued (request control-1)\n"));
    EXPECT_THAT(Json::parse(run({"requests", "1"}, true).output), SizeIs(1));
    answerFirst();
    answerFirst();
}

TEST_F(ControlOfTheQueue, ShowsWhatIsQueuedForEachTerminal) {
    run({"play", "1:0,2:0", "dvb://1"});
    run({"play", "2:0", "dvb://2"});
    const auto list = queue();
    ASSERT_THAT(list, SizeIs(2));
    EXPECT_EQ(list[0]["terminals"], (Json{"1:0", "2:0"}));
    EXPECT_EQ(list[0]["overdueMs"], 0);
    EXPECT_THAT(list[0]["state"].get<std::string>(), HasSubstr(" awaits its answers for "));
    EXPECT_EQ(list[1]["waitedMs"], 0);
    EXPECT_THAT(list[1]["state"].get<std::string>(), HasSubstr(" waits behind: request "));
    EXPECT_THAT(Json::parse(run({"bundles", "1"}, true).output), SizeIs(1));
    EXPECT_EQ(run({"bundles", "-1"}).status, -22);

    frame::MsgIds ids;
    view.tvServiceInfo(ids, {}, {{{0, 0}, 0, "dvb://0", "", "", "1"}, {{2, 0}, 0, "dvb://0", "", "", "1"}});
    const auto terminals = Json::parse(run({"terminals"}, true).output);
    ASSERT_THAT(terminals, SizeIs(3));
    EXPECT_EQ(terminals[0]["terminal"], "0:0");
    EXPECT_EQ(terminals[0]["queued"], 0);
    EXPECT_EQ(terminals[0]["state"], "idle");
    EXPECT_EQ(terminals[1]["terminal"], "2:0");
    EXPECT_EQ(terminals[1]["queued"], 2);
    EXPECT_EQ(terminals[1]["typeName"], "unknown");
    EXPECT_THAT(terminals[1]["state"].get<std::string>(), HasSubstr(" awaits its answers for "));
    EXPECT_EQ(terminals[2]["terminal"], "1:0");
    EXPECT_EQ(terminals[2]["queued"], 1);
    EXPECT_EQ(terminals[2]["uri"], "");
}

TEST_F(Control, SaysThatNobodyKnowsWhatATerminalShowsAfterARequestWasGivenUp) {
    frame::MsgIds ids;
    view.tvServiceInfo(ids, {}, {{{0, 0}, 0, "dvb://1", "", "", "1"}});
    const auto state = [&] { return Json::parse(run({"terminals"}, true).output)[0]["state"].get<std::string>(); };
    EXPECT_EQ(state(), "idle");
    std::vector<tvservice::TvServiceReq_t> film(1);
    film[0].uri = "file:///film";
    const std::string id = requests.begin(film);
    for (const auto later : {std::chrono::minutes(1), std::chrono::minutes(2)})
        requests.look({}, std::chrono::steady_clock::now() + later);
    EXPECT_EQ(state(), "unknown since request " + id + " was given up");
    view.tvServiceInfo(ids, {}, {{{0, 0}, 0, "file:///film", "", "", id}});
    EXPECT_EQ(state(), "idle") << "the answer has come late";
}

} // namespace
