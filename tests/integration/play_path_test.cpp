// Requests through a whole receiver: real processes, real sockets.
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <kit/receiver-kit.h>
#include <ostream>

namespace receiver {

bool operator==(const Answer& a, const Answer& b) {
    return a.reqId == b.reqId && a.terminal == b.terminal && a.result == b.result && a.uri == b.uri;
}

void PrintTo(const Answer& answer, std::ostream* out) {
    *out << "request " << answer.reqId << ", " << answer.terminal << ", result " << answer.result << ", " << answer.uri;
}

} // namespace receiver

namespace {

using namespace receiver;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* live = "dvb://1.1.1";
constexpr const char* stopped = "rec://plain/null";
constexpr const char* dropMark = "timeout 5s, erase it";
constexpr int done = 0, unknownChannel = 2, cannotOpen = 3, wrongResult = 5;
constexpr std::chrono::microseconds answerLimit{5000000};
constexpr Milliseconds dropLimit{20000}; // dropped after 5 s; the check runs once a second

class PlayPath : public testing::Test {
protected:
    void SetUp() override {
        std::ofstream(kit.folder() / "film.ts") << "a film";
        film = fileUri("film.ts");
        kit.start();
    }

    void TearDown() override {
        EXPECT_EQ(kit.stop(), "");
        if (HasFailure()) std::cerr << kit.logTails(30);
    }

    std::string fileUri(const char* name) const { return "file://" + (kit.folder() / name).string(); }

    // The log texts of a request's sending, receiving and finishing steps, without their source locations.
    std::vector<std::string> operationsOf(const std::string& reqId) const {
        std::vector<std::string> result;
        for (const LogLine& line : kit.stepsOf(reqId))
            for (const char* mark : {"Sending reqid", "Receiving req_id", "finished"})
                if (const auto at = line.text.find(mark); at != std::string::npos)
                    result.push_back(line.text.substr(at));
        return result;
    }

    // Waits until a request is dropped. Returns the time from its last sending to the drop.
    std::chrono::microseconds waitUntilDropped(const std::string& reqId) {
        const Time dropped = kit.waitForStep(reqId, dropMark, dropLimit).time;
        Time sent{};
        for (const LogLine& line : kit.stepsOf(reqId))
            if (line.text.find("Sending") != std::string::npos) sent = line.time;
        return dropped - sent;
    }

    // Plays and waits until the request is done.
    std::string playNow(const std::string& terminals, const std::string& uri) {
        std::string reqId = kit.play(terminals, uri);
        kit.waitForStep(reqId, "finished");
        return reqId;
    }

    ReceiverKit kit;
    std::string film;
};

TEST_F(PlayPath, ALiveChannelIsStartedWithoutAnyStop) {
    const std::string id = kit.play("0:0", live);
    EXPECT_THAT(kit.waitForAnswers(id, 1), ElementsAre(Answer{id, "0:0", done, live}));
    EXPECT_THAT(operationsOf(id),
                ElementsAre(HasSubstr("SendingStart"), HasSubstr("WaitingStart,ResResponse::ResponseTV"),
                            HasSubstr("finished")));
}

TEST_F(PlayPath, AFileIsPlayedOnceBothServicesHaveStopped) {
    playNow("0:0", live);
    const std::string id = kit.play("0:0", film);
    EXPECT_THAT(kit.waitForAnswers(id, 1), ElementsAre(Answer{id, "0:0", done, film}));
    EXPECT_THAT(operationsOf(id),
                ElementsAre(HasSubstr("SendingStop"), HasSubstr("WaitingStop"), HasSubstr("WaitingStop"),
                            HasSubstr("SendingStart"), HasSubstr("WaitingStart,ResResponse::ResponseMM"),
                            HasSubstr("finished")));
}

TEST_F(PlayPath, TheLiveChannelAfterAFileStopsTheMediaServiceFirst) {
    playNow("0:0", film);
    const std::string id = kit.play("0:0", live);
    EXPECT_THAT(kit.waitForAnswers(id, 1), ElementsAre(Answer{id, "0:0", done, live}));
    EXPECT_THAT(operationsOf(id),
                ElementsAre(HasSubstr("SendingStop"),
                            HasSubstr("WaitingStop,ResResponse::ResponseMM, all ResResponse::ResponseMM"),
                            HasSubstr("SendingStart"), HasSubstr("WaitingStart,ResResponse::ResponseTV"),
                            HasSubstr("finished")));
}

TEST_F(PlayPath, AStopIsAnsweredAndLeavesNoTerminalPlaying) {
    playNow("0:0", film);
    const std::string id = kit.stopTerminals("0:0");
    EXPECT_THAT(kit.waitForAnswers(id, 1), ElementsAre(Answer{id, "0:0", done, stopped}));
    for (const Part service : {Part::tvService, Part::mmService})
        for (const auto& terminal : kit.ask(service, {"terminals"})) EXPECT_EQ(terminal.at("uri"), stopped);
}

TEST_F(PlayPath, FiveTerminalsInOneListAreAnsweredTogether) {
    const std::string id = kit.play("0:0,1:0,2:0,3:0,4:0", live);
    EXPECT_THAT(kit.waitForAnswers(id, 5),
                ElementsAre(Answer{id, "0:0", done, live}, Answer{id, "1:0", done, live}, Answer{id, "2:0", done, live},
                            Answer{id, "3:0", done, live}, Answer{id, "4:0", done, live}));
}

TEST_F(PlayPath, AServicesReasonReachesTheClient) {
    const std::string missing = fileUri("missing.ts");
    const std::string file = kit.play("0:0", missing);
    EXPECT_THAT(kit.waitForAnswers(file, 1), ElementsAre(Answer{file, "0:0", cannotOpen, missing}));
    const std::string channel = kit.play("1:0", "dvb://9.9.9");
    EXPECT_THAT(kit.waitForAnswers(channel, 1), ElementsAre(Answer{channel, "1:0", unknownChannel, "dvb://9.9.9"}));
    kit.ask(Part::tvService, {"fault", "wrong", "on"});
    const std::string wrong = kit.play("1:0", live);
    EXPECT_THAT(kit.waitForAnswers(wrong, 1), ElementsAre(Answer{wrong, "1:0", wrongResult, live}));
}

TEST_F(PlayPath, ASilentMediaServiceDropsItsBundleAndTheNextOneProceeds) {
    kit.freeze(Part::mmService);
    const std::string hanging = kit.play("0:0", film);
    const std::string next = kit.play("2:0", live);
    EXPECT_EQ(kit.ask(Part::frameHost, {"bundles"}).size(), 2U);
    EXPECT_GT(waitUntilDropped(hanging), answerLimit);
    EXPECT_THAT(kit.waitForAnswers(next, 1), ElementsAre(Answer{next, "2:0", done, live}));
    EXPECT_THAT(kit.answersTo(hanging), IsEmpty());

    kit.thaw(Part::mmService);
    EXPECT_THAT(kit.waitForAnswers(hanging, 1), ElementsAre(Answer{hanging, "0:0", done, stopped}));
}

TEST_F(PlayPath, AMainTerminalWithoutItsPictureIsRecordedInTheRunLogAndTheNextBundleProceeds) {
    kit.freeze(Part::tvService);
    const std::string hanging = kit.play("0:0", live);
    const std::string next = kit.play("2:0", live);
    EXPECT_GT(waitUntilDropped(hanging), answerLimit);
    nlohmann::json records;
    ASSERT_TRUE(kit.waitFor(
        [&] {
            return !(records = kit.ask(Part::frameHost, {"runlog", "10"})).empty();
        },
        defaultTimeout));
    ASSERT_EQ(records.size(), 1U);
    const auto& record = records.front();
    EXPECT_EQ(record.at("logCode"), "004001");
    EXPECT_EQ(record.at("errorCode"), "00400109");
    EXPECT_EQ(record.at("eventId"), 9301);
    EXPECT_EQ(record.at("logKind"), 4);
    EXPECT_EQ(record.at("logText"),
              "Waiting for response of ResOperation::WaitingStart, ResResponse::ResponseTV, Uri: dvb://1.1.1");

    kit.thaw(Part::tvService);
    EXPECT_THAT(kit.waitForAnswers(hanging, 1), ElementsAre(Answer{hanging, "0:0", done, live}));
    EXPECT_THAT(kit.waitForAnswers(next, 1), ElementsAre(Answer{next, "2:0", done, live}));
}

TEST_F(PlayPath, AKilledServiceIsUsedAgainOnceItRestarts) {
    for (const auto& [service, uri] : {std::pair{Part::tvService, std::string(live)}, {Part::mmService, film}}) {
        kit.kill(service);
        kit.start(service);
        const std::string id = kit.play("0:0", uri);
        EXPECT_THAT(kit.waitForAnswers(id, 1), ElementsAre(Answer{id, "0:0", done, uri}));
    }
    for (const auto& service : kit.ask(Part::frameHost, {"stats"})) {
        EXPECT_EQ(service.at("connected"), true) << service;
        EXPECT_EQ(service.at("reconnects"), 1) << service;
    }
}

TEST_F(PlayPath, ARequestMadeWhileTheServiceIsDownIsExecutedWhenItRestarts) {
    kit.kill(Part::tvService);
    const auto away = [&] {
        const auto services = kit.ask(Part::frameHost, {"stats"});
        return services[0].at("connected") != services[1].at("connected");
    };
    ASSERT_TRUE(kit.waitFor(away, defaultTimeout));
    const std::string id = kit.play("0:0", live);
    kit.start(Part::tvService);
    EXPECT_THAT(kit.waitForAnswers(id, 1), ElementsAre(Answer{id, "0:0", done, live}));
}

TEST_F(PlayPath, ADuplicateOfAFinalAnswerIsPassedOnAsItIs) {
    kit.ask(Part::tvService, {"fault", "duplicate", "on"});
    const std::string id = kit.play("0:0", live);
    EXPECT_THAT(kit.waitForAnswers(id, 2), ElementsAre(Answer{id, "0:0", done, live}, Answer{id, "0:0", done, live}));
}

TEST_F(PlayPath, TwoAnswersOfOneServiceNeverCountAsTheOtherOnes) {
    kit.freeze(Part::tvService);
    kit.ask(Part::mmService, {"fault", "duplicate", "on"});
    const std::string id = kit.play("0:0", film);
    EXPECT_GT(waitUntilDropped(id), answerLimit);
    EXPECT_THAT(kit.answersTo(id), IsEmpty());
    EXPECT_THAT(operationsOf(id),
                ElementsAre(HasSubstr("SendingStop"), HasSubstr("WaitingStop,ResResponse::ResponseMM"),
                            HasSubstr("WaitingStop,ResResponse::ResponseMM")));
    kit.thaw(Part::tvService);
}

TEST_F(PlayPath, AnAnswerToAnotherRequestIsPassedOnUnchanged) {
    kit.ask(Part::tvService, {"fault", "other-id", "on"});
    const std::string id = kit.play("0:0", live);
    nlohmann::json answers;
    ASSERT_TRUE(
        kit.waitFor([&] { return !(answers = kit.ask(Part::frameHost, {"answers"})).empty(); }, defaultTimeout));
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_NE(answers[0].at("reqId"), id);
    EXPECT_EQ(answers[0].at("uri"), live);
    EXPECT_EQ(answers[0].at("result"), done);
    EXPECT_EQ(kit.ask(Part::frameHost, {"bundles"}).size(), 1U); // the request itself is still unanswered
}

TEST_F(PlayPath, ZapsWhileAnAnswerIsLostEndOnTheLastChannel) {
    kit.ask(Part::tvService, {"fault", "mute", "on"});
    kit.ask(Part::frameHost, {"zap", "0:0", live});
    const auto underWay = [&] { return kit.ask(Part::frameHost, {"bundles"}); };
    const std::string lost = underWay()[0].at("reqId");
    // Zaps more than once a second until the lost request is dropped.
    ASSERT_TRUE(kit.waitFor(
        [&] {
            kit.ask(Part::frameHost, {"zap", "0:0", "dvb://1.1.2", "dvb://1.1.3"});
            const auto bundles = underWay();
            EXPECT_LE(bundles.size(), 1U);
            return bundles.empty() || bundles[0].at("reqId") != lost;
        },
        dropLimit));
    kit.ask(Part::tvService, {"fault", "mute", "off"});
    kit.ask(Part::frameHost, {"zap", "0:0", stopped});
    const auto isStopped = [&] {
        const auto terminals = kit.ask(Part::frameHost, {"terminals"});
        return !terminals.empty() && terminals[0].at("uri") == stopped && terminals[0].at("state") == "idle";
    };
    EXPECT_TRUE(kit.waitFor(isStopped, dropLimit)); // the next request may be lost, too
    EXPECT_THAT(kit.answersTo(lost), IsEmpty());
}

TEST_F(PlayPath, ARequestThatKeepsOthersWaitingIsShownAsOverdue) {
    kit.ask(Part::tvService, {"fault", "mute", "on"});
    kit.play("0:0", live);
    nlohmann::json bundles;
    ASSERT_TRUE(kit.waitFor(
        [&] {
            kit.play("2:0", live); // which postpones the check of the limit
            bundles = kit.ask(Part::frameHost, {"bundles", "2"});
            return bundles[0].at("overdueMs") > 0;
        },
        dropLimit));
    const std::string overdue = "request " + bundles[0].at("reqId").get<std::string>() + " overdue for ";
    const std::string remedy = " s; is given up after a second without requests";
    EXPECT_THAT(bundles[0].at("state").get<std::string>(), AllOf(StartsWith(overdue), EndsWith(remedy)));
    EXPECT_THAT(bundles[1].at("state").get<std::string>(), HasSubstr(" waits behind: " + overdue));
    const auto terminals = kit.ask(Part::frameHost, {"terminals"});
    EXPECT_THAT(terminals[0].at("state").get<std::string>(), HasSubstr(overdue));
}

TEST_F(PlayPath, TwoReceiversOnOneMachineDoNotInterfere) {
    ReceiverKit other;
    other.start();
    const std::string id = kit.play("0:0", live);
    kit.waitForAnswers(id, 1);
    EXPECT_EQ(other.ask(Part::frameHost, {"answers"}).size(), 0U);
    EXPECT_EQ(other.stop(), "");
    playNow("0:0", film);
}

} // namespace
