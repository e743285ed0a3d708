// The control application's list of terminals.
#include "control/src/log.h"
#include "control/src/state-commands.h"
#include "shell/command-table.h"

#include <genrpc/json.h>
#include <host/log-capture.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using genrpc::Json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tvservice::TvServiceTerminal_t;

namespace {

struct Terminals : testing::Test {
    void SetUp() override { ASSERT_EQ(commands.registerAll(), 0); }

    void answer(const std::string& reqId, const std::string& uri, int result = 0, TvServiceTerminal_t terminal = {}) {
        frame::MsgIds ids;
        view.tvServiceInfo(ids, {}, {{terminal, result, uri, "uuid of " + uri, "", reqId}});
    }
    std::string run(const char* command, bool json) {
        std::string output;
        std::istringstream lines(shell.answer(Json{{"line", command}, {"json", json}}.dump()));
        for (std::string line; std::getline(lines, line);) output += Json::parse(line).value("output", "");
        return output;
    }
    // "terminal uri lastResult" each.
    std::vector<std::string> shown() {
        std::vector<std::string> result;
        for (const auto& terminal : Json::parse(run("terminals", true)))
            result.push_back(terminal["terminal"].get<std::string>() + " " + terminal["uri"].get<std::string>() + " " +
                             std::to_string(terminal["lastResult"].get<int>()));
        return result;
    }

    const tvservice::ModelTvServiceAdapter adapter;
    control::TerminalView view;
    control::NotificationLog notifications;
    appovshell::CommandTable shell;
    control::RequestLog requests;
    control::StateCommands commands{adapter, view, notifications, requests, shell};
};

TEST_F(Terminals, AreEmptyBeforeAnAnswer) { EXPECT_THAT(shown(), IsEmpty()); }

TEST_F(Terminals, ShowWhatWasPlayedLastInOrderOfTerminal) {
    answer("1", "dvb://1", 0, {1, 0});
    answer("2", "dvb://2", 0, {0, 1});
    answer("3", "dvb://3", 0, {1, 0});
    EXPECT_THAT(shown(), ElementsAre("0:1 dvb://2 0", "1:0 dvb://3 0"));
}

TEST_F(Terminals, ShowTheNullSourceAfterAStop) {
    answer("1", "dvb://1");
    answer("2", tvservice::stopUri);
    EXPECT_THAT(shown(), ElementsAre(std::string("0:0 ") + tvservice::stopUri + " 0"));
}

TEST_F(Terminals, KeepTheirChannelWhenAnotherOneCannotBeShown) {
    answer("1", "dvb://1");
    answer("2", "dvb://9", 2);
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://1 2"));
}

// Something was stopped first: both services before the MM service plays, the MM service before the TV service does.
TEST_F(Terminals, AreDarkAfterAPlayThatFailedAfterAStop) {
    answer("1", "dvb://1");
    answer("2", "file://missing", 3);
    EXPECT_THAT(shown(), ElementsAre(std::string("0:0 ") + tvservice::stopUri + " 3"));
    answer("3", "http://film");
    answer("4", "dvb://9", 2);
    EXPECT_THAT(shown(), ElementsAre(std::string("0:0 ") + tvservice::stopUri + " 2"));
    answer("5", "dvb://1");
    answer("6", "file:///PVR+/missing", 3); // a recording, which the TV service plays
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://1 3"));
}

TEST_F(Terminals, KeepTheirUriWhileANewerRequestIsQueued) {
    answer("1", "dvb://1");
    answer("2", "dvb://2", 1);
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://1 1"));
    answer("3", "dvb://3");
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://3 0"));
}

TEST_F(Terminals, ShowNothingAfterAFailureAlone) {
    answer("1", "dvb://9", 2);
    EXPECT_THAT(shown(), ElementsAre("0:0  2"));
}

TEST_F(Terminals, IgnoreAnAnswerThatArrivesAfterThatToANewerRequest) {
    answer("10", "dvb://10");
    answer("9", "dvb://9");
    answer("9", tvservice::stopUri, -3);
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://10 0"));
    answer("9", "dvb://9", 0, {1, 0});
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://10 0", "1:0 dvb://9 0")) << "each terminal on its own";
}

TEST_F(Terminals, IgnoreALateAnswerToAnOlderZap) {
    answer("zap-5-1-10", "dvb://10");
    answer("zap-5-1-9", "dvb://9");
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://10 0"));
    answer("zap-5-1-11", "dvb://11");
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://11 0"));
}

TEST_F(Terminals, IgnoreALateAnswerToAnOlderRequestOfTheShell) {
    answer("control-10", "dvb://10");
    answer("control-9", "dvb://9");
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://10 0"));
}

TEST_F(Terminals, FollowZapsOfAnotherQueueAndRequestsOfNoQueueInTheOrderOfTheAnswers) {
    answer("zap-5-1-10", "dvb://10");
    answer("zap-5-2-9", "dvb://9");
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://9 0"));
    answer("8", "dvb://8");
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://8 0"));
    answer("zap-5-1-7", "dvb://7");
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://7 0"));
}

TEST_F(Terminals, FollowAnAnswerThatNoNewerOneHasOvertaken) {
    answer("9", "dvb://9");
    answer("10", "dvb://10");
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://10 0"));
}

TEST_F(Terminals, FollowRequestsWithIdsOfApplicationsInTheOrderOfTheAnswers) {
    answer("channel-2", "dvb://2");
    answer("channel-1", "dvb://1");
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://1 0"));
    answer("1", "dvb://3");
    EXPECT_THAT(shown(), ElementsAre("0:0 dvb://3 0"));
}

TEST_F(Terminals, IgnoreUnrequestedAnswersOfTheTvService) {
    answer("1", "http://film");
    answer("", tvservice::stopUri);
    answer("", tvservice::stopUri, 0, {1, 0});
    EXPECT_THAT(shown(), ElementsAre("0:0 http://film 0"));
}

TEST_F(Terminals, AreListedWithBothAnswersInFull) {
    answer("1", "dvb://1");
    answer("2", "dvb://2", -5);
    const auto list = Json::parse(run("terminals", true));
    ASSERT_EQ(list.size(), 1U);
    auto terminal = list[0];
    for (const char* time : {"since", "lastTime"}) {
        EXPECT_THAT(terminal[time].get<std::string>(), testing::EndsWith("Z"));
        terminal[time] = "then";
    }
    EXPECT_EQ(terminal.dump(),
              R"({"terminal":"0:0","typeName":"main","uri":"dvb://1","uuid":"uuid of dvb://1","reqId":"1",)"
              R"("asker":"application","since":"then","lastResult":-5,"lastResultName":"unknown","lastUri":"dvb://2",)"
              R"("lastReqId":"2","lastTime":"then","queued":0,"state":"idle"})");
    EXPECT_THAT(
        run("terminals", false),
        HasSubstr(
            "terminal 0:0  typeName main  uri dvb://1  uuid uuid of dvb://1  reqId 1  asker application  since "));
    EXPECT_THAT(run("terminals", false),
                HasSubstr("  lastResult -5  lastResultName unknown  lastUri dvb://2  lastReqId 2  lastTime "));
}

TEST_F(Terminals, DropTheLeastRecentlyAnsweredOneWhenThereAreTooMany) {
    const host::LogCapture log({control::controlLog});
    const int most = static_cast<int>(control::TerminalView::mostTerminals);
    for (int id = 0; id < most; ++id) answer("1", "dvb://1", 0, {0, id});
    answer("2", "dvb://2", 0, {0, 0}); // no longer the oldest
    answer("3", "dvb://3", 0, {1, 0});
    const auto all = shown();
    EXPECT_EQ(all.size(), control::TerminalView::mostTerminals);
    EXPECT_EQ(all.front(), "0:0 dvb://2 0");
    EXPECT_EQ(all[1], "0:2 dvb://1 0");
    EXPECT_EQ(all.back(), "1:0 dvb://3 0");
}

TEST_F(Terminals, HoldABoundedNumberOfBytesWhateverServicesSend) {
    const host::LogCapture log({control::controlLog});
    constexpr std::size_t mebibyte = 1024 * 1024;
    const std::string uri(mebibyte / 16, 'x');
    frame::MsgIds ids;
    for (int id = 0; id < 750; ++id) {
        const auto reqId = std::to_string(id);
        view.tvServiceInfo(ids, {}, {{{9, id}, 0, uri, uri, uri, reqId}});
    }
    for (const auto& table : view.tables()) {
        EXPECT_GT(table.dropped, 0U) << table.name;
        EXPECT_LE(table.held, table.most) << table.name;
        EXPECT_LE(table.bytes, table.mostBytes) << table.name;
        EXPECT_LE(table.mostBytes, 20 * mebibyte) << table.name;
    }
    const std::string cut = view.newest(1).at(0).info.uri;
    EXPECT_EQ(cut.size(), control::TerminalView::longestText);
    EXPECT_THAT(cut, testing::EndsWith("xxx... (65536 bytes)"));
}

TEST_F(Terminals, AreCountedWithThoseDropped) {
    answer("1", "dvb://1");
    const auto tables = Json::parse(run("stats tables", true));
    EXPECT_EQ(tables[0].dump(),
              R"({"table":"terminals","held":1,"most":256,"bytes":46,"mostBytes":16777216,"dropped":0})");
    EXPECT_EQ(tables[1]["table"], "answers");
    EXPECT_EQ(tables[2]["table"], "notifications");
}

TEST_F(Terminals, DoNotHideAnswersFromTheListOfAnswers) {
    answer("10", "dvb://10");
    answer("9", "dvb://9", 1);
    answer("", tvservice::stopUri);
    std::vector<std::string> uris;
    for (const auto& entry : Json::parse(run("answers", true))) uris.push_back(entry["uri"]);
    EXPECT_THAT(uris, ElementsAre("dvb://10", "dvb://9", tvservice::stopUri));
}

} // namespace
