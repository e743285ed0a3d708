// tvctl record, monitor and capture-info: what they print and write, and how they end.
#include "monitor.h"

#include "capture-info.h"
#include "quantities.h"
#include "record.h"
#include "support/recorded-events.h"

#include <host/environment.h>

#include <chrono>
#include <cstdlib>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <recording/recording-reader.h>
#include <sstream>
#include <string>
#include <vector>

using host::EventKind;
using nlohmann::ordered_json;
using recording::Event;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using namespace std::chrono_literals;

namespace {

constexpr std::int64_t ms = 1'000'000;

// A receiver of two processes, whose events the test gives. Time passes in rounds of 100 ms.
class Rings : public testing::Test {
protected:
    void happens(std::int64_t time, const std::string& text) { events_->push_back(support::lineOf(tv_, time, text)); }
    // A message from the application to the service, and its arrival.
    void sends(std::int64_t time, std::int64_t arrival) {
        const auto& message = support::messageNamed("tvservice", "TvServiceInfoReq");
        const std::string frame = support::frameOf(message.meta, std::string(1, '\0'));
        Event sent = support::eventOf(host_, EventKind::message, time, "tvservice", frame);
        sent.recorded.flags = host::EventFlags::sent;
        hostEvents_->push_back(sent);
        events_->push_back(support::eventOf(tv_, EventKind::message, arrival, "tvservice", frame));
    }
    recording::Surroundings surroundings() {
        const auto appeared = [this] {
            std::vector<std::unique_ptr<recording::EventSource>> sources;
            if (round_ == 0 && hasProcesses_) {
                sources.push_back(std::make_unique<support::GivenEvents>(events_));
                sources.push_back(std::make_unique<support::GivenEvents>(hostEvents_));
            }
            return sources;
        };
        const auto now = [this] { return recording::Moment{"this boot", round_ * 100 * ms}; };
        return {appeared, now, [this] { return ++round_ < rounds_; }};
    }
    std::vector<std::string> lines() const {
        std::vector<std::string> all;
        std::istringstream text(out_.str());
        for (std::string line; std::getline(text, line);) all.push_back(line);
        return all;
    }
    std::vector<std::string> textsIn(const std::string& file) const {
        recording::RecordingReader reader(folder_ / file);
        std::vector<std::string> texts;
        for (Event event; reader.next(event);) texts.push_back(event.recorded.data);
        return texts;
    }

    const std::shared_ptr<const recording::Origin> tv_ = support::processNamed("tvserviced", 11),
                                                   host_ = support::processNamed("frame-host", 12);
    const std::shared_ptr<std::deque<Event>> events_ = std::make_shared<std::deque<Event>>(),
                                             hostEvents_ = std::make_shared<std::deque<Event>>();
    bool hasProcesses_ = true;
    int round_ = 0, rounds_ = 20;
    std::ostringstream out_, errors_;
    const support::RecordingFolder folder_;
};

class Monitor : public Rings {
protected:
    int run() { return tvctl::monitor(options_, surroundings(), out_, errors_); }
    tvctl::MonitorOptions options_;
};

TEST_F(Monitor, PrintsEachEventOnALineInTheOrderOfTheirTimes) {
    happens(1 * ms, "one");
    sends(2 * ms, 3 * ms);
    happens(4 * ms, "two");
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(lines(), ElementsAre("08:00:00.001000 tvserviced line service failure: one",
                                     "08:00:00.002000 frame-host -> tvserviced TvServiceInfoReq (1.000 ms)",
                                     "08:00:00.004000 tvserviced line service failure: two"));
    EXPECT_EQ(errors_.str(), "");
}

TEST_F(Monitor, PrintsAMessageTwiceIfBothEventsAreWanted) {
    options_.both = true;
    sends(2 * ms, 3 * ms);
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(lines(), ElementsAre("08:00:00.002000 frame-host -> tvservice TvServiceInfoReq",
                                     "08:00:00.003000 tvserviced <- tvservice TvServiceInfoReq"));
}

TEST_F(Monitor, PrintsOnlyWhatItsFilterAccepts) {
    options_.filter.where.emplace("text ~ two");
    happens(1 * ms, "one");
    happens(2 * ms, "two");
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(lines(), ElementsAre(HasSubstr("two")));
}

TEST_F(Monitor, PrintsEventsAsJson) {
    options_.receiver.json = true;
    happens(1 * ms, "one");
    EXPECT_EQ(run(), tvctl::exitDone);
    ASSERT_THAT(lines(), SizeIs(1));
    EXPECT_EQ(ordered_json::parse(lines()[0])["text"], "one");
}

TEST_F(Monitor, EndsAfterTheWantedNumber) {
    options_.count = 2;
    for (int i = 1; i <= 5; ++i) happens(i * ms, std::to_string(i));
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(lines(), SizeIs(2));
}

TEST_F(Monitor, TimesOutWhenTooFewEventsHappen) {
    options_.count = 2;
    options_.receiver.timeout = 500ms;
    happens(1 * ms, "one");
    EXPECT_EQ(run(), tvctl::exitTimedOut);
    EXPECT_THAT(lines(), SizeIs(1));
    EXPECT_EQ(errors_.str(), "tvctl: timed out after 1 of 2 events\n");
    EXPECT_EQ(round_, 5);
}

TEST_F(Monitor, CountsAMessageThatStillWaitsWhenTheTimeIsOver) {
    options_.count = 1;
    options_.receiver.timeout = 500ms;
    sends(480 * ms, 2000 * ms);
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(lines(), SizeIs(1));
}

TEST_F(Monitor, SaysHowMuchItLost) {
    happens(1 * ms, "one");
    events_->back().lost = 300;
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(errors_.str(), HasSubstr("300 bytes of what tvserviced recorded were overwritten"));
}

TEST_F(Monitor, PrintsNothingWhenQuiet) {
    options_.receiver.quiet = true;
    options_.count = 1;
    happens(1 * ms, "one");
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_EQ(out_.str(), "");
}

TEST_F(Monitor, FailsWhenItsOutputIsGone) {
    out_.setstate(std::ios::badbit);
    happens(1 * ms, "one");
    EXPECT_EQ(run(), tvctl::exitFailed);
}

// ---- recording ----

class Record : public Rings {
protected:
    void SetUp() override { options_.file = folder_ / "file"; }
    int run() { return tvctl::record(options_, surroundings(), out_, errors_); }
    int runLast() { return tvctl::recordLast(options_, surroundings(), out_, errors_); }
    tvctl::RecordOptions options_{{}, {}, {}, false, {}, {}};
};

TEST_F(Record, WritesWhatHappensUntilItIsEnded) {
    happens(1 * ms, "one");
    sends(2 * ms, 3 * ms);
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(textsIn("file"), SizeIs(3));
    EXPECT_THAT(out_.str(), HasSubstr("/file: 3 events of 2 processes, "));
    EXPECT_EQ(round_, rounds_);
}

TEST_F(Record, EndsAfterTheTime) {
    options_.time = 300ms;
    happens(1 * ms, "one");
    happens(900 * ms, "late");
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(textsIn("file"), ElementsAre("one"));
}

TEST_F(Record, WritesOnlyEventsWithOneOfTheTexts) {
    options_.texts = {"one", "TvServiceInfoReq"};
    happens(1 * ms, "one");
    happens(2 * ms, "two");
    sends(3 * ms, 4 * ms);
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(textsIn("file"), SizeIs(3));
}

TEST_F(Record, HidesTexts) {
    options_.redact = true;
    options_.texts = {"secret"};
    happens(1 * ms, "secret");
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(textsIn("file"), SizeIs(1));
    EXPECT_THAT(folder_.read("file"), testing::Not(HasSubstr("secret")));
}

TEST_F(Record, ReportsWhatItWroteAsJson) {
    options_.receiver.json = true;
    happens(1 * ms, "one");
    events_->back().lost = 5;
    EXPECT_EQ(run(), tvctl::exitDone);
    const auto json = ordered_json::parse(out_.str());
    EXPECT_EQ(json["events"], 1);
    EXPECT_EQ(json["lostBytes"], 5);
}

TEST_F(Record, FailsWhenTheFileCannotBeWritten) {
    options_.file = folder_ / "no/file";
    EXPECT_EQ(run(), tvctl::exitFailed);
    EXPECT_THAT(errors_.str(), HasSubstr("no/file.part: No such file or directory"));
}

TEST_F(Record, TakesTheLastTimeFromWhatTheProcessesHave) {
    options_.time = 1s;
    round_ = 0;
    happens(-1500 * ms, "too old");
    happens(-500 * ms, "recent");
    EXPECT_EQ(runLast(), tvctl::exitDone);
    EXPECT_THAT(textsIn("file"), ElementsAre("recent"));
}

TEST_F(Record, SaysThatNoProcessHasRecordedAnything) {
    hasProcesses_ = false;
    options_.time = 1s;
    EXPECT_EQ(runLast(), tvctl::exitNotAvailable);
    EXPECT_FALSE(folder_.has("file"));
}

// ---- recordings ----

class Recording : public Record {
protected:
    void SetUp() override {
        Record::SetUp();
        happens(1 * ms, "one");
        sends(2 * ms, 3 * ms);
        ASSERT_EQ(run(), tvctl::exitDone);
        out_.str("");
    }
    std::string infoOf(const std::string& file, int exitCode, std::vector<std::string> arguments = {}) {
        arguments.push_back(folder_ / file);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(tvctl::runCaptureInfo({}, arguments), exitCode);
        const auto output = testing::internal::GetCapturedStdout();
        return output + testing::internal::GetCapturedStderr();
    }
    tvctl::MonitorOptions monitor_;
};

TEST_F(Recording, IsPrintedLikeWhatHappens) {
    EXPECT_EQ(tvctl::monitorRecording(monitor_, options_.file, out_, errors_), tvctl::exitDone);
    EXPECT_THAT(lines(), ElementsAre("08:00:00.001000 tvserviced line service failure: one",
                                     "08:00:00.002000 frame-host -> tvserviced TvServiceInfoReq (1.000 ms)"));
}

TEST_F(Recording, IsPrintedAsFarAsItGoes) {
    const std::string whole = folder_.read("file");
    folder_.write("cut", whole.substr(0, whole.size() - 1));
    EXPECT_EQ(tvctl::monitorRecording(monitor_, folder_ / "cut", out_, errors_), tvctl::exitDone);
    EXPECT_THAT(lines(), SizeIs(2));
    EXPECT_THAT(errors_.str(), HasSubstr("the recording is cut off"));
    folder_.write("damaged", whole + std::string(12, '\7'));
    EXPECT_EQ(tvctl::monitorRecording(monitor_, folder_ / "damaged", out_, errors_), tvctl::exitBadData);
    EXPECT_THAT(lines(), SizeIs(4));
}

TEST_F(Recording, IsRejectedWhenItIsNone) {
    folder_.write("text", "some text");
    EXPECT_EQ(tvctl::monitorRecording(monitor_, folder_ / "text", out_, errors_), tvctl::exitBadData);
    EXPECT_EQ(tvctl::monitorRecording(monitor_, folder_ / "missing", out_, errors_), tvctl::exitFailed);
    EXPECT_THAT(infoOf("text", tvctl::exitBadData), HasSubstr("it begins with \"some tex\""));
    EXPECT_THAT(infoOf("missing", tvctl::exitFailed), HasSubstr("No such file or directory"));
}

TEST_F(Recording, IsSummarised) {
    EXPECT_THAT(infoOf("file", tvctl::exitDone),
                AllOf(HasSubstr("3 events"), HasSubstr("tvserviced 11"), HasSubstr("frame-host 12"),
                      HasSubstr("tvservice.TvServiceInfoReq"), HasSubstr("that of this tvctl")));
    const auto json = ordered_json::parse(infoOf("file", tvctl::exitDone, {"--json"}));
    EXPECT_EQ(json["begin"], "2027-01-15T08:00:00.001000Z");
    EXPECT_EQ(json["end"], "2027-01-15T08:00:00.003000Z");
    EXPECT_EQ(json["kinds"]["message"], 2);
    EXPECT_EQ(json["messages"]["tvservice.TvServiceInfoReq"], 2);
    EXPECT_EQ(json["processes"][0]["pid"], 11);
    EXPECT_EQ(json["schemas"][0]["own"], true);
    EXPECT_EQ(json["truncated"], false);
}

// ---- arguments ----

std::string usageErrorOf(int (*run)(const tvctl::Options&, const std::vector<std::string>&),
                         const std::vector<std::string>& arguments) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(run({}, arguments), tvctl::exitUsage) << testing::PrintToString(arguments);
    return testing::internal::GetCapturedStderr();
}

TEST_F(Recording, IsPrintedByTheVerbWithRepeatedOptions) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(tvctl::runMonitor({}, {"--kind", "line", "--kind", "command", options_.file}), tvctl::exitDone);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "08:00:00.001000 tvserviced line service failure: one\n");
}

TEST(MonitorVerb, RejectsWrongArguments) {
    const auto error = [](const std::vector<std::string>& arguments) {
        return usageErrorOf(tvctl::runMonitor, arguments);
    };
    EXPECT_THAT(error({"--where", "a ="}), HasSubstr("--where: wanted ==, !=, <, >, <=, >= or ~, at character 3:"));
    EXPECT_THAT(error({"--where", ""}), HasSubstr("at character 1:"));
    EXPECT_THAT(error({"--message", "TvServiceNix"}), HasSubstr("there is no message TvServiceNix"));
    EXPECT_THAT(error({"--kind", "nix"}), HasSubstr("nix"));
    EXPECT_THAT(error({"--terminal", "0"}), HasSubstr("'0' is not a terminal"));
    EXPECT_THAT(error({"--once", "--count", "2"}), HasSubstr("--count"));
    EXPECT_THAT(error({"one", "two"}), HasSubstr("two"));
}

TEST(RecordVerb, RejectsWrongArguments) {
    const auto error = [](const std::vector<std::string>& arguments) {
        return usageErrorOf(tvctl::runRecord, arguments);
    };
    EXPECT_THAT(error({}), HasSubstr("FILE"));
    EXPECT_THAT(error({"file", "--for", "60"}), HasSubstr("'60' is not a duration"));
    EXPECT_THAT(error({"file", "--for", "1s", "--last", "1s"}), HasSubstr("--for"));
    EXPECT_THAT(error({"file", "--rotate-size", "x"}), HasSubstr("'x' is not a size"));
    EXPECT_THAT(error({"file", "--rotate-size", "10K"}), HasSubstr("--rotate-size: each file has the schema"));
    EXPECT_THAT(error({"file", "--files", "0"}), HasSubstr("--files"));
}

TEST(Duration, IsANumberWithAUnit) {
    EXPECT_EQ(tvctl::durationOf("500ms"), 500ms);
    EXPECT_EQ(tvctl::durationOf("60s"), 60s);
    EXPECT_EQ(tvctl::durationOf("5m"), 5min);
    EXPECT_EQ(tvctl::durationOf("2h"), 2h);
    for (const char* wrong :
         {"", "s", "0s", "-1s", "+1s", "1", "1.5s", "1 s", "1d", "1s ", "99999999999999999999s", "9000h"})
        EXPECT_EQ(tvctl::durationOf(wrong), std::nullopt) << wrong;
}

TEST(Size, IsANumberOfBytesOrOfUnitsOf1024) {
    EXPECT_EQ(tvctl::sizeOf("100"), 100U);
    EXPECT_EQ(tvctl::sizeOf("64K"), 65536U);
    EXPECT_EQ(tvctl::sizeOf("10M"), 10U << 20);
    EXPECT_EQ(tvctl::sizeOf("2G"), 2ULL << 30);
    for (const char* wrong : {"", "K", "0", "-1", "1k", "1.5M", "1MB", "99999999999999999999", "18014398509481984K"})
        EXPECT_EQ(tvctl::sizeOf(wrong), std::nullopt) << wrong;
}

} // namespace
