// What the TV service answers and reports when its media engine takes time, fails, or notices something by itself.
#include "unit/tv-service-fixture.h"

#include <tvservice/values.h>

#include <deque>
#include <gmock/gmock.h>
#include <thread>

namespace {

using namespace tvservicetest;
using media::Outcome;
using media::Terminal;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
namespace result = tvservice::result;

// Opens nothing by itself: a test says what becomes of each source, from a thread of its own.
class ScriptedEngine : public media::Engine {
public:
    const char* name() const override { return "scripted"; }
    void shutDown() override { sources_.clear(); }
    void open(const Terminal&, const media::Source&, media::Events events) override {
        const std::lock_guard lock(mutex_);
        sources_.push_back(std::move(events));
        opened_.notify_all();
    }
    void close(const Terminal&) override {}
    void swap(const Terminal&, const Terminal&) override {}
    std::int32_t choose(const Terminal&, media::TrackKind, std::int32_t) override { return result::unknownTrack; }
    media::Tracks tracks(const Terminal& terminal) const override {
        media::Tracks tracks;
        tracks.audio.terminal = {terminal.type, terminal.id};
        return tracks;
    }
    media::StreamCounts streamCounts(const media::Source&) const override { return {}; }
    std::optional<std::int32_t> rating(const media::Source&) const override {
        const std::lock_guard lock(mutex_);
        return age_;
    }
    tvservice::TvServiceTunerStatusMessage_t tuning(const Terminal&, const media::Source&) const override { return {}; }
    tvservice::TvServiceTunerResult_t signal(const Terminal& terminal) const override {
        tvservice::TvServiceTunerResult_t signal;
        signal.terminal = {terminal.type, terminal.id};
        return signal;
    }
    std::vector<std::uint32_t> usedTuners() const override { return {0, 2}; }
    std::string snapshot(const Terminal&) const override { throw media::Error("no picture"); }
    media::Sound sound(const Terminal&) const override { throw media::Error("no sound"); }

    // Calls an event of the source that was opened after so many others.
    template <class Event, class... Args> void report(std::size_t number, Event event, const Args&... args) {
        std::unique_lock lock(mutex_);
        ASSERT_TRUE(opened_.wait_for(lock, std::chrono::seconds(20), [&] { return sources_.size() > number; }));
        const auto call = sources_[number].*event;
        lock.unlock();
        std::thread(call, args...).join();
    }
    void open(std::size_t number, std::int32_t outcome = result::done) {
        report(number, &media::Events::opened, Outcome{outcome, {}});
    }

    void rate(std::optional<std::int32_t> age) {
        const std::lock_guard lock(mutex_);
        age_ = age;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable opened_;
    std::deque<media::Events> sources_;
    std::optional<std::int32_t> age_;
};

// The answers in TvServiceInfo notifications, as "TYPE:ID RESULT".
std::vector<std::string> answersIn(const std::vector<Received>& all) {
    std::vector<std::string> answers;
    for (const Received& notification : all) {
        if (notification.message != "TvServiceInfo") continue;
        for (const auto& info : notification.arguments["infos"])
            answers.push_back(info["terminal"]["type"].dump() + ':' + info["terminal"]["id"].dump() + ' ' +
                              info["result"].dump());
    }
    return answers;
}

class TvServiceWithAnEngine : public TvServiceWith<ScriptedEngine> {};

TEST_F(TvServiceWithAnEngine, AnswersWhenTheSourceIsShown) {
    requester->play(0, 0, "dvb://1.1.1");
    EXPECT_THAT(namesOf(requester->received()), Not(Contains("TvServiceInfo")));
    engine.open(0);
    EXPECT_THAT(answersIn(requester->receivedUntil("TvServiceInfo")), ElementsAre("0:0 0"));
}

TEST_F(TvServiceWithAnEngine, AnswersWithTheReasonAndShowsNothing) {
    requester->play(0, 0, "dvb://1.1.1");
    engine.open(0, result::noConnection);
    EXPECT_THAT(answersIn(requester->receivedUntil("TvServiceInfo")),
                ElementsAre("0:0 " + std::to_string(result::noConnection)));
    EXPECT_THAT(table.entries(), IsEmpty());
}

TEST_F(TvServiceWithAnEngine, AnswersAListOnceAllItsSourcesAreShownOrHaveFailed) {
    std::vector<tvservice::TvServiceReq_t> requests(2);
    requests[1].terminal = {1, 0};
    for (auto& request : requests) request.uri = "dvb://1.1.1";
    requester->send<messages::TvServiceReq>(requests);
    engine.open(1, result::notMedia);
    EXPECT_THAT(namesOf(requester->received()), Not(Contains("TvServiceInfo")));
    engine.open(0);
    EXPECT_THAT(answersIn(requester->receivedUntil("TvServiceInfo")),
                ElementsAre("0:0 0", "1:0 " + std::to_string(result::notMedia)));
}

TEST_F(TvServiceWithAnEngine, ReportsASourceThatBreaksOffWhereverItIsByThen) {
    requester->play(0, 0, "dvb://1.1.1");
    engine.open(0);
    requester->receivedUntil("TvServiceTeletextInfo");
    requester->send<messages::TvServiceSwapWinReq>(tvservice::TvServiceSwapWinReq_t{3});
    discard();
    engine.report(0, &media::Events::over, Outcome{result::noConnection, {}});
    EXPECT_THAT(answersIn(other->receivedUntil("TvServiceInfo")),
                ElementsAre("3:0 " + std::to_string(result::noConnection)));
    EXPECT_THAT(table.entries(), IsEmpty());
}

TEST_F(TvServiceWithAnEngine, ReportsNewTracksAndAnotherSignalOfATerminalToAll) {
    requester->play(2, 1, "dvb://1.1.1");
    engine.open(0);
    requester->receivedUntil("TvServiceTeletextInfo");
    discard();
    engine.report(0, &media::Events::tracks);
    const auto tracks = other->receivedUntil("TvServiceTeletextInfo");
    EXPECT_THAT(namesOf(tracks), ElementsAre("TvServiceAudioInfo", "TvServiceSubtitleInfo", "TvServiceVideoInfo",
                                             "TvServiceTeletextInfo"));
    EXPECT_EQ(tracks.front().arguments["info"]["terminal"]["type"], 2);
    engine.report(0, &media::Events::signal);
    EXPECT_EQ(other->receivedUntil("TvServiceTunerResult").back().arguments["result"]["terminal"]["id"], 1);
}

TEST_F(TvServiceWithAnEngine, ReportsAConflictOfTunersToAll) {
    requester->play(0, 0, "dvb://1.1.1");
    engine.open(0, result::noTuner);
    const Received conflict = other->receivedUntil("TvServiceConflictInfo").back();
    EXPECT_EQ(conflict.text(), R"(TvServiceConflictInfo {"info":{"uintList1":[0,2],"uintList2":[0,2],"intParam1":0}})");
    EXPECT_THAT(answersIn(requester->receivedUntil("TvServiceConflictInfo")),
                ElementsAre("0:0 " + std::to_string(result::noTuner)));
}

TEST_F(TvServiceWithAnEngine, ShowsOnALockedTerminalOnlyWhatIsKnownToBeForYoungerViewers) {
    tvservice::TvServiceParentalLockInfo_t lock;
    lock.intParam1 = tvservice::lockState::locked;
    lock.intParam2 = 16;
    requester->send<messages::SetParentalLockInfo>(lock);
    const std::string locked = "0:0 " + std::to_string(result::locked);
    const auto answersToAPlay = [&](std::optional<std::int32_t> age) {
        discard();
        engine.rate(age);
        requester->play(0, 0, "dvb://1.1.1");
        return answersIn(requester->receivedUntil("TvServiceInfo"));
    };
    EXPECT_THAT(answersToAPlay(std::nullopt), ElementsAre(locked));
    EXPECT_THAT(answersToAPlay(16), ElementsAre(locked));
    discard();
    engine.rate(15);
    requester->play(0, 0, "dvb://1.1.1");
    engine.open(0);
    EXPECT_THAT(answersIn(requester->receivedUntil("TvServiceInfo")), ElementsAre("0:0 0"));
}

} // namespace
