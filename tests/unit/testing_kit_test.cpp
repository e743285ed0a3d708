// The kit for tests of applications: what its services do, its time, and what it notes.
#include "kit/child-process.h"

#include <tvservice-adapter/testing/main.h>
#include <tvservice-adapter/testing/matchers.h>
#include <tvservice/client-base.h>

#include <boost/make_shared.hpp>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace tvtest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* channel = "dvb://1.1.1";
constexpr const char* film = "file:///film";

class ReceiverTest : public testing::Test {
protected:
    Receiver receiver;
};

// ---- answers ----

TEST_F(ReceiverTest, AnswersAPlayAtOnceWithItsId) {
    EXPECT_EQ(receiver.play("0:0", channel, "mine-1"), 0);
    EXPECT_THAT(receiver.requests(), ElementsAre(To("TV", WithId("mine-1", Play("0:0", channel)))));
    EXPECT_THAT(receiver.answers(), ElementsAre(At(0s, WithId("mine-1", Shown("0:0", channel)))));
}

TEST_F(ReceiverTest, StopsBothServicesBeforeTheMmServicePlays) {
    receiver.play("0:1", film);
    EXPECT_THAT(receiver.requests(),
                ElementsAre(To("MM", Stop("0:1")), To("TV", Stop("0:1")), To("MM", Play("0:1", film))));
    EXPECT_THAT(receiver.mm().requests(), SizeIs(2));
    EXPECT_THAT(receiver.answers(), ElementsAre(Shown("0:1", film)));
}

TEST_F(ReceiverTest, ReportsARequestThatANewerOneSupersedes) {
    receiver.play("0:0", channel);
    receiver.play("0:0", "dvb://2");
    EXPECT_THAT(receiver.answers(), ElementsAre(Superseded("0:0", channel), Shown("0:0", "dvb://2")));
}

// ---- scripts ----

TEST_F(ReceiverTest, UsesEachNextReactionOnceAndThenThoseForAnUriAndForAll) {
    receiver.tv().always(refuses(9));
    receiver.tv().when(channel, answers());
    receiver.tv().next(refuses(2));
    receiver.tv().next(refuses(6));
    for (const char* uri : {channel, channel, channel, "dvb://other"}) {
        receiver.play("0:0", uri);
        receiver.advance(0s);
    }
    EXPECT_THAT(receiver.answers(),
                ElementsAre(Refused("0:0", 2), Refused("0:0", 6), Shown("0:0", channel), Refused("0:0", 9)));
}

TEST_F(ReceiverTest, AnswersAfterADelay) {
    receiver.tv().next(answers().after(4s));
    receiver.play("0:0", channel);
    receiver.advance(4s - 1ns);
    EXPECT_THAT(receiver.answers(), IsEmpty());
    receiver.advance(1ns);
    EXPECT_THAT(receiver.answers(), ElementsAre(At(4s, Shown("0:0", channel))));
}

TEST_F(ReceiverTest, AnswersTwice) {
    receiver.tv().next(answers().twice());
    receiver.play("0:0", channel);
    EXPECT_THAT(receiver.answers(), ElementsAre(Shown("0:0", channel), Shown("0:0", channel)));
}

TEST_F(ReceiverTest, DropsARequestSixSecondsAfterASilentServiceReceivedIt) {
    receiver.tv().next(staysSilent());
    receiver.play("0:0", channel, "lost");
    receiver.play("0:1", channel);
    receiver.advance(6s - 1ns);
    EXPECT_THAT(receiver.dropped(), IsEmpty());
    EXPECT_THAT(receiver.answers(), IsEmpty());
    receiver.advance(1ns);
    EXPECT_THAT(receiver.dropped(), ElementsAre(At(6s, WithId("lost", Dropped("0:0")))));
    EXPECT_THAT(receiver.answers(), ElementsAre(At(6s, Shown("0:1", channel))));
}

TEST_F(ReceiverTest, DropsNothingUntilASecondPassesWithoutARequest) {
    receiver.tv().next(staysSilent());
    for (int i = 0; i < 40; ++i) {
        receiver.play("0:" + std::to_string(i), channel);
        receiver.advance(500ms);
    }
    EXPECT_THAT(receiver.dropped(), IsEmpty());
    EXPECT_THAT(receiver.requests(), SizeIs(1));
    receiver.advance(500ms);
    EXPECT_THAT(receiver.dropped(), ElementsAre(At(20500ms, Dropped("0:0"))));
    EXPECT_THAT(receiver.answers(), SizeIs(39));
}

TEST_F(ReceiverTest, DeliversAnAnswerThatArrivesAfterTheLimit) {
    receiver.tv().next(answers().after(10s));
    receiver.play("0:0", channel, "late");
    receiver.advance(10s);
    EXPECT_THAT(receiver.dropped(), SizeIs(1));
    EXPECT_THAT(receiver.answers(), ElementsAre(At(10s, WithId("late", Shown("0:0", channel)))));
}

TEST_F(ReceiverTest, LosesTheAnswersAndRequestsOfADeadServiceUntilItIsBack) {
    receiver.tv().always(answers().after(1s));
    receiver.play("0:0", channel);
    receiver.advance(500ms);
    receiver.tv().die();
    receiver.advance(6s);
    receiver.play("0:1", channel);
    receiver.advance(7s);
    EXPECT_THAT(receiver.requests(), ElementsAre(Play("0:0", channel)));
    EXPECT_THAT(receiver.dropped(), ElementsAre(Dropped("0:0"), Dropped("0:1")));
    receiver.tv().comeBack();
    receiver.play("0:2", channel);
    receiver.advance(1s);
    EXPECT_THAT(receiver.answers(), ElementsAre(Shown("0:2", channel)));
}

TEST_F(ReceiverTest, LosesAnAnswerOfAServiceThatIsBackBeforeItIsDue) {
    receiver.tv().next(answers().after(2s));
    receiver.play("0:0", channel);
    receiver.advance(1s);
    receiver.tv().die();
    receiver.tv().comeBack();
    receiver.advance(6s);
    EXPECT_THAT(receiver.answers(), IsEmpty());
}

// ---- other messages ----

TEST_F(ReceiverTest, NotesOtherRequestsWithTheirArguments) {
    frame::MsgIds ids;
    receiver.advance(3s);
    EXPECT_EQ(receiver.adapter().tvServiceSendKeyReq(ids, {}, "ok"), 0);
    EXPECT_EQ(receiver.adapter().tvServiceInfoReq(ids, {}), 0);
    EXPECT_THAT(receiver.calls(),
                ElementsAre(At(3s, Named("TvServiceSendKeyReq", R"({"key":"ok"})")), Named("TvServiceInfoReq", "{}")));
}

TEST_F(ReceiverTest, SendsNotificationsOfTheTvServiceToAllClients) {
    receiver.notify(&tvservice::ClientInterface::tvserviceOadProgressNotify, 50);
    receiver.notify(&tvservice::ClientInterface::tvserviceOadStatusNotify, tvservice::NotifyOadStatus_t{2}, "text");
    EXPECT_THAT(receiver.notifications(), ElementsAre(Named("TvserviceOadProgressNotify", R"({"progress":50})"),
                                                      Named("TvserviceOadStatusNotify")));
    receiver.forget();
    receiver.tv().die();
    receiver.notify(&tvservice::ClientInterface::tvserviceOadProgressNotify, 60);
    EXPECT_THAT(receiver.notifications(), IsEmpty());
}

TEST_F(ReceiverTest, RunsTheAdaptersShellCommand) {
    EXPECT_EQ(receiver.command("pathswitch", {"mm"}), "mm");
    EXPECT_THAT(receiver.answers(), SizeIs(3));
    EXPECT_THROW(receiver.command("none"), std::invalid_argument);
}

TEST_F(ReceiverTest, RejectsATerminalThatIsNone) {
    for (const char* name : {"", "0", "0:", ":0", "0:0 ", "a:b", "0:99999999999"})
        EXPECT_THROW(receiver.play(name, channel), std::invalid_argument) << name;
}

// ---- applications ----

std::vector<std::string> steps;

class Application : public frame::AbstractApplication {
public:
    Application(std::string name, int result) : name_(std::move(name)), result_(result) {}
    ~Application() override { steps.push_back("delete " + name_); }

private:
    int performStarting() override {
        steps.push_back("start " + name_);
        return result_;
    }
    int performStopping() override {
        steps.push_back("stop " + name_);
        return 0;
    }
    const std::string name_;
    const int result_;
};

template <int secondResult> void** twoMembers() {
    void** members = static_cast<void**>(std::calloc(3, sizeof(void*)));
    members[0] = static_cast<frame::AbstractProcessMember*>(new Application("first", 0));
    members[1] = static_cast<frame::AbstractProcessMember*>(new Application("second", secondResult));
    return members;
}

TEST_F(ReceiverTest, StartsAnApplicationsMembersInOrderAndStopsThemInReverse) {
    EXPECT_EQ(receiver.start(twoMembers<0>), 0);
    EXPECT_THAT(steps, ElementsAre("start first", "start second"));
    steps.clear();
    receiver.stopApplications();
    EXPECT_THAT(steps, ElementsAre("stop second", "delete second", "stop first", "delete first"));
}

TEST_F(ReceiverTest, UndoesTheStartOfAnApplicationThatFails) {
    EXPECT_EQ(receiver.start(twoMembers<-5>), -5);
    EXPECT_THAT(steps, ElementsAre("start first", "start second", "delete second", "stop first", "delete first"));
    EXPECT_EQ(receiver.start(nullptr), -EINVAL);
}

TEST_F(ReceiverTest, RunsZappersInItsTime) {
    std::vector<Time> droppedAt;
    tvservice::Zapper zapper(receiver.adapter(), [&](const tvservice::ZapOutcome& outcome) {
        if (outcome.kind == tvservice::ZapOutcome::Kind::dropped) droppedAt.push_back(receiver.now());
    });
    tvservice::TvServiceReq_t request;
    request.uri = channel;
    receiver.tv().next(staysSilent());
    zapper.want(request);
    receiver.advance(100s);
    EXPECT_THAT(droppedAt, ElementsAre(testing::AllOf(testing::Ge(6s), testing::Le(6250ms))));
}

// ---- time ----

TEST_F(ReceiverTest, LetsTimePassUntilAConditionHolds) {
    receiver.tv().next(answers().after(3s));
    receiver.play("0:0", channel);
    EXPECT_TRUE(receiver.waitFor([&] { return !receiver.answers().empty(); }));
    EXPECT_EQ(receiver.now(), 3s);
    EXPECT_FALSE(receiver.waitFor([] { return false; }, 20s));
    EXPECT_EQ(receiver.now(), 23s);
}

TEST_F(ReceiverTest, CallsActionsInTheOrderOfTheirTimes) {
    std::vector<std::string> called;
    const auto note = [&](const char* name) { return [&, name] { called.emplace_back(name); }; };
    receiver.after(2s, note("third"));
    receiver.after(1s, note("first"));
    receiver.after(1s, note("second"));
    receiver.advance(2s);
    EXPECT_THAT(called, ElementsAre("first", "second", "third"));
}

// Requests again whenever it is answered.
class Impatient : public tvservice::ClientBase {
public:
    explicit Impatient(Receiver& receiver) : receiver_(receiver) {}
    int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                      const std::vector<tvservice::TvServiceInfo_t>&) override {
        EXPECT_THROW(receiver_.advance(1s), std::logic_error) << "inside a notification";
        return receiver_.play("0:0", channel);
    }

private:
    Receiver& receiver_;
};

TEST_F(ReceiverTest, FailsWhenTimeStandsStill) {
    receiver.adapter().addClient(boost::make_shared<Impatient>(receiver));
    receiver.play("0:0", channel);
    EXPECT_THROW(receiver.advance(1s), std::runtime_error);
    receiver.tv().always(answers().after(1ms));
    receiver.forget();
    receiver.advance(1s);
    EXPECT_THAT(receiver.answers(), SizeIs(testing::Ge(999U)));
}

// ---- processes ----

struct PrivateFolder {
    PrivateFolder() {
        std::string name = testing::TempDir() + "testing_kit_test-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no private folder " + name);
        path = name;
    }
    ~PrivateFolder() { std::filesystem::remove_all(path); }
    std::filesystem::path path;
};

TEST_F(ReceiverTest, IsTheOnlyOneInItsProcess) { EXPECT_THROW(Receiver second, std::logic_error); }

TEST(ReceiverProcess, EndsWithARequestPendingAndLeavesNoFile) {
    testing::FLAGS_gtest_death_test_style = "fast";
    const PrivateFolder folder;
    EXPECT_EXIT(
        {
            setenv("TMPDIR", folder.path.c_str(), 1);
            Receiver receiver;
            receiver.tv().always(staysSilent());
            receiver.play("0:0", channel);
            receiver.advance(10s); // writes a record into the run log
            receiver.play("0:0", channel);
            receiver.play("0:0", channel);
            std::exit(receiver.dropped().size() == 1 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path));
}

// ---- the main for test programs ----

// Set for a child that runs the tests of this suite.
constexpr const char* childVariable = "TESTING_KIT_CHILD";
bool inChild() { return std::getenv(childVariable) != nullptr; }

TEST(TestOfAProgram, PassesBesideTestsThatFail) { Receiver receiver; }
TEST(TestOfAProgram, GetsAReceiverOfItsOwn) { Receiver receiver; }
TEST(TestOfAProgram, FailsWhenItIsRunForTheTestBelow) { EXPECT_FALSE(inChild()); }
TEST(TestOfAProgram, AbortsWhenItIsRunForTheTestBelow) {
    if (inChild()) std::abort();
}

TEST(TestProgram, RunsEachTestInAProcessAndReportsThoseThatFail) {
    const PrivateFolder folder;
    receiver::ChildProcess program({std::filesystem::read_symlink("/proc/self/exe"),
                                    {"--gtest_filter=TestOfAProgram.*"},
                                    {{childVariable, "1"}},
                                    folder.path / "output"});
    program.wait();
    EXPECT_EQ(program.exitCode(), 1);
    std::ostringstream text;
    text << std::ifstream(folder.path / "output").rdbuf();
    const std::string output = text.str();
    for (const char* line :
         {"TestOfAProgram.PassesBesideTestsThatFail: passed\n", "TestOfAProgram.GetsAReceiverOfItsOwn: passed\n",
          "Value of: inChild()\n", "TestOfAProgram.FailsWhenItIsRunForTheTestBelow: failed\n", "ended by signal 6\n",
          "TestOfAProgram.AbortsWhenItIsRunForTheTestBelow: failed\n", "2 tests passed, 2 failed\n"})
        EXPECT_THAT(output, testing::HasSubstr(line));
}

// ---- texts ----

TEST(WhatHappened, IsPrintedForPeople) {
    using testing::PrintToString;
    EXPECT_EQ(PrintToString(Request{"TV", "0:0", channel, "7", 1500ms}),
              "TV: play dvb://1.1.1 on 0:0 (request 7) after 1.5 s");
    EXPECT_EQ(PrintToString(Request{"MM", "0:1", tvservice::stopUri, "", 0s}), "MM: stop 0:1 after 0 s");
    EXPECT_EQ(PrintToString(Answer{"0:0", channel, 0, "7", 0s}), "0:0 shown: dvb://1.1.1 (request 7) after 0 s");
    EXPECT_EQ(PrintToString(Answer{"0:0", tvservice::stopUri, 0, "", 0s}), "0:0 stopped after 0 s");
    EXPECT_EQ(PrintToString(Answer{"0:0", channel, 6, "", 0s}), "0:0 result 6 (locked): dvb://1.1.1 after 0 s");
    EXPECT_EQ(PrintToString(DroppedRequest{"0:0", "7", 6s}), "0:0 dropped (request 7) after 6 s");
    EXPECT_EQ(PrintToString(Message{"TvServiceInfoReq", "{}", 1s}), "TvServiceInfoReq {} after 1 s");
}

} // namespace

int main(int count, char** words) { return runTests(count, words); }
