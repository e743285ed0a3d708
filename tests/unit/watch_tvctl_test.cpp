// tvctl watch: it follows the notifications that a receiver's shell lists.
#include "message-names.h"
#include "shell/shell-server.h"
#include "watch.h"

#include <host/environment.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using nlohmann::ordered_json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// A receiver that has only the command "notifications". The test defines what it does before each poll.
class Receiver {
public:
    explicit Receiver(const std::string& path) {
        server_->registerCommand(
            "notifications [:s]", "", [](void* self) { return static_cast<Receiver*>(self)->list(); }, this);
        server_->open(path, geteuid());
        server_->start();
    }

    void notify(const std::string& message) { notify(message, {{"n", number_ + 1}}); }
    void notify(const std::string& message, const ordered_json& arguments) {
        ++number_;
        list_.push_back({{"number", number_},
                         {"time", run_ + std::to_string(number_)},
                         {"message", message},
                         {"arguments", arguments}});
    }
    void restart(const std::string& run) {
        list_ = ordered_json::array();
        number_ = 0;
        run_ = run;
    }
    void dropOldest() { list_.erase(list_.begin()); }

    // Run one by one before the second and later calls of the command, on the shell's thread.
    std::vector<std::function<void()>> before;
    std::string malformed; // the answer instead of the list, if not empty
    int status = 0;

private:
    int list() {
        if (calls_ > 0 && calls_ <= before.size()) before[calls_ - 1]();
        ++calls_;
        if (!malformed.empty()) server_->print(malformed);
        if (!malformed.empty() || status < 0) return status;
        const std::string after = server_->getArgument(0);
        ordered_json wanted = ordered_json::array();
        for (const auto& notification : list_)
            if (after.empty() || notification["number"] > std::stoi(after)) wanted.push_back(notification);
        server_->print(wanted.dump() + "\n");
        return 0;
    }

    std::unique_ptr<appovshell::ShellServer> server_ = std::make_unique<appovshell::ShellServer>();
    ordered_json list_ = ordered_json::array();
    int number_ = 0;
    std::string run_ = "first-";
    std::size_t calls_ = 0;

public:
    void endSoon() {
        ending_ = std::thread([this] { server_->stop(); });
    }
    ~Receiver() {
        if (ending_.joinable()) ending_.join();
        server_->stop();
    }

private:
    std::thread ending_;
};

struct Watch : testing::Test {
    void SetUp() override {
        char name[] = "/tmp/watch-test-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
        options.receiver.target = "watched";
        path = host::shellEndpointOf("watched");
        receiver = std::make_unique<Receiver>(path);
    }
    void TearDown() override {
        receiver.reset();
        std::filesystem::remove_all(folder); // including the lock file beside the socket
    }
    int run() { return tvctl::watch(options, out, errors); }
    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        std::istringstream text(out.str());
        for (std::string line; std::getline(text, line);) result.push_back(line);
        return result;
    }
    std::function<void()> notifying(const std::string& message) {
        return [this, message] { receiver->notify(message); };
    }

    std::string folder, path;
    std::unique_ptr<Receiver> receiver;
    tvctl::WatchOptions options;
    std::ostringstream out, errors;
};

TEST_F(Watch, PrintsOnlyNewNotifications) {
    receiver->notify("Old");
    options.count = 2;
    receiver->before = {[] {}, notifying("A"), [] {}, notifying("B")};
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(lines(), ElementsAre(R"(first-2 A {"n":2})", R"(first-3 B {"n":3})"));
    EXPECT_THAT(errors.str(), IsEmpty());
}

TEST_F(Watch, PrintsNoTerminalControlSequences) {
    options.count = 1;
    receiver->before = {[this] {
        receiver->notify("A\x7f\n", {{"text",
                                      "\x1b[2J\n\x7f\xc2\x9b"
                                      "31m\xc2\x85 \xc3\xa9"}});
    }};
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_EQ(out.str(), R"(first-1 A\x7f\x0a {"text":"\u001b[2J\n\x7f\xc2\x9b31m\xc2\x85 é"})"
                         "\n");
}

TEST_F(Watch, PrintsAnObjectPerLineAsJson) {
    options.receiver.json = true;
    options.count = 1;
    receiver->before = {notifying("A")};
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_EQ(out.str(), R"({"number":1,"time":"first-1","message":"A","arguments":{"n":1}})"
                         "\n");
}

TEST_F(Watch, PrintsOnlyTheRequestedMessages) {
    options.messages = {"B"};
    options.count = 1;
    receiver->before = {notifying("A"), notifying("B")};
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(lines(), ElementsAre(R"(first-2 B {"n":2})"));
}

TEST_F(Watch, EndsInTheMiddleOfAListWhenItHasEnough) {
    options.count = 1;
    receiver->before = {[this] {
        receiver->notify("A");
        receiver->notify("B");
    }};
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(lines(), ElementsAre(R"(first-1 A {"n":1})"));
}

TEST_F(Watch, FollowsAReceiverWhoseNumbersStartAgain) {
    receiver->notify("Old");
    receiver->notify("Old");
    options.count = 3;
    receiver->before = {[this] { receiver->restart("second-"); }, notifying("A"),
                        [this] {
                            receiver->restart("third-");
                            receiver->notify("B");
                            receiver->notify("C");
                        }};
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(lines(), ElementsAre(R"(second-1 A {"n":1})", R"(third-1 B {"n":1})", R"(third-2 C {"n":2})"));
}

TEST_F(Watch, ReportsHowManyNotificationsItMissed) {
    receiver->notify("Old");
    options.count = 1;
    receiver->before = {[this] {
        for (const char* message : {"A", "B", "C"}) receiver->notify(message);
        for (int i = 0; i < 3; ++i) receiver->dropOldest();
    }};
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(lines(), ElementsAre(R"(first-4 C {"n":4})"));
    EXPECT_THAT(errors.str(), HasSubstr("dropped 2 notifications"));
}

TEST_F(Watch, TimesOutWhenTooFewNotificationsArrive) {
    options.receiver.timeout = std::chrono::seconds(1);
    options.count = 2;
    receiver->before = {notifying("A")};
    EXPECT_EQ(run(), tvctl::exitTimedOut);
    EXPECT_THAT(lines(), ElementsAre(R"(first-1 A {"n":1})"));
    EXPECT_THAT(errors.str(), testing::StartsWith("tvctl: timed out after 1 of 2 notifications"));
}

TEST_F(Watch, ReportsTheNumberReceivedWhenAnAnswerTimesOut) {
    options.receiver.timeout = std::chrono::milliseconds(100);
    options.count = 1;
    const auto over = std::make_shared<std::promise<void>>();
    receiver->before = {[over] { over->get_future().wait(); }};
    EXPECT_EQ(run(), tvctl::exitTimedOut);
    over->set_value();
    EXPECT_EQ(errors.str(), "tvctl: timed out after 0 of 1 notifications; " + path +
                                ": timed out waiting for the answer; process " + std::to_string(getpid()) +
                                " does not answer: see what it is doing, and restart it\n");
}

TEST_F(Watch, EndsWhenTheReceiverEnds) {
    receiver->before = {notifying("A"), [this] { receiver->endSoon(); }};
    EXPECT_EQ(run(), tvctl::exitNotAvailable);
    EXPECT_THAT(lines(), ElementsAre(R"(first-1 A {"n":1})"));
    EXPECT_THAT(errors.str(), HasSubstr(path));
}

TEST_F(Watch, EndsWhenThereIsNoReceiver) {
    receiver.reset();
    EXPECT_EQ(run(), tvctl::exitNotAvailable);
}

TEST_F(Watch, ReportsThatTheReceiverRejectsTheRequest) {
    options.receiver.json = true;
    receiver->status = -5;
    EXPECT_EQ(run(), tvctl::exitFailed);
    EXPECT_EQ(ordered_json::parse(errors.str())["status"], -5);
}

TEST_F(Watch, RejectsAMalformedList) {
    for (const char* malformed : {"no JSON", "1", "{\"number\":1}", "[{\"number\":\"x\"}]", "[1]", "[{}]"}) {
        receiver->malformed = malformed;
        EXPECT_EQ(run(), tvctl::exitBadData) << malformed;
    }
}

// Copying and printing JSON uses stack for each level.
TEST_F(Watch, RejectsAListThatIsNestedTooDeeply) {
    receiver->malformed = std::string(60000, '[') + std::string(60000, ']');
    EXPECT_EQ(run(), tvctl::exitBadData);
    EXPECT_THAT(errors.str(), HasSubstr("nested more than"));
}

TEST_F(Watch, FailsWhenItsOutputIsGone) {
    out.setstate(std::ios::badbit);
    receiver->before = {notifying("A")};
    EXPECT_EQ(run(), tvctl::exitFailed);
}

TEST_F(Watch, PrintsNothingWhenQuiet) {
    options.receiver.quiet = true;
    options.count = 1;
    receiver->before = {notifying("A")};
    EXPECT_EQ(run(), tvctl::exitDone);
    EXPECT_THAT(out.str(), IsEmpty());
}

TEST(NotificationName, IsSpelledAsInTheMessageList) {
    EXPECT_EQ(tvctl::checkNotification("TvServiceAudioInfo"), "");
    EXPECT_EQ(tvctl::checkNotification("TvserviceOadProgressNotify"), "");
}

TEST(NotificationName, IsRejectedWithTheNearestOnes) {
    EXPECT_THAT(tvctl::checkNotification("tvserviceaudioinfo"), HasSubstr("nearest names are TvServiceAudioInfo,"));
    EXPECT_THAT(tvctl::checkNotification("AudioInfo"), HasSubstr("nearest names are TvServiceAudioInfo,"));
    EXPECT_THAT(tvctl::checkNotification("TvServiceAudioReq"),
                HasSubstr("there is no notification TvServiceAudioReq;"));
    EXPECT_THAT(tvctl::checkNotification(""), HasSubstr("nearest names are"));
    EXPECT_LT(tvctl::checkNotification(std::string(4096, 'x')).size(), 300U);
}

TEST(WatchVerb, RejectsUnknownArguments) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(tvctl::runWatch({}, {"TvServiceAudoInfo"}), tvctl::exitUsage);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("TvServiceAudioInfo"));
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--count", "0"},
                                                      {"--count", "x"},
                                                      {"--count"},
                                                      {"--once", "--count", "2"},
                                                      {"--twice"},
                                                      {"--timeout", "-1"},
                                                      {"--count", "-1"}}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(tvctl::runWatch({}, arguments), tvctl::exitUsage) << arguments[0];
        EXPECT_NE(testing::internal::GetCapturedStderr(), "") << arguments[0];
    }
}

TEST(WatchVerb, HasHelpWithItsOwnDefaults) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(tvctl::runWatch({}, {"--help"}), tvctl::exitDone);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), AllOf(HasSubstr("--once"), HasSubstr("=no limit")));
}

} // namespace
