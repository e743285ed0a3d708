// The command with which the TV service sends any notification.
#include "tv-service-fixture.h"
#include "tvservice/emit.h"

#include <appovshell/server.h>
#include <host/log-capture.h>

#include <gmock/gmock.h>

using namespace tvservicetest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const std::vector<std::string> notifications{
#define TVSERVICE_NAME(service, direction, Name, ...) #Name,
    TVSERVICE_NOTIFICATIONS(TVSERVICE_NAME)
#undef TVSERVICE_NAME
};

// A shell with one command, which the test calls directly.
class OneCommandShell : public appovshell::Server {
public:
    int registerCommand(const std::string& specification, const std::string&, appovshell::CommandHandler handler,
                        void* context) override {
        EXPECT_EQ(specification, "emit :s ...");
        handler_ = handler;
        context_ = context;
        return 0;
    }
    std::string getArgument(unsigned index) override { return arguments_.at(index); }
    void print(const std::string& text) override { output += text; }
    bool wantsJson() override { return json; }

    int run(const std::string& name, const std::string& text) {
        arguments_ = {name, text};
        output.clear();
        return handler_(context_);
    }

    bool json = false;
    std::string output;

private:
    appovshell::CommandHandler handler_ = nullptr;
    void* context_ = nullptr;
    std::vector<std::string> arguments_;
};

class Emit : public TvServiceTest {
protected:
    Emit() { EXPECT_EQ(command.registerWith(shell), 0); }

    void expectError(const std::string& name, const std::string& json, const std::string& why) {
        EXPECT_LT(shell.run(name, json), 0) << name << ' ' << json;
        EXPECT_THAT(shell.output, HasSubstr(why));
        EXPECT_THAT(requester->received(), IsEmpty());
    }

    services::EmitCommand command{service.sender()};
    OneCommandShell shell;
};

TEST_F(Emit, SendsASampleOfEveryNotificationToEveryClient) {
    for (const std::string& name : notifications) {
        EXPECT_EQ(shell.run(name, ""), 0) << shell.output;
        EXPECT_EQ(shell.output, "sent " + name + '\n');
    }
    const auto received = requester->received();
    EXPECT_EQ(namesOf(received), notifications);
    EXPECT_EQ(textsOf(other->received()), textsOf(received));
}

TEST_F(Emit, HasSamplesThatSetEveryArgument) {
    for (const std::string& name : notifications) {
        EXPECT_EQ(shell.run(name, "{}"), 0);
        EXPECT_EQ(shell.run(name, ""), 0);
        const auto received = requester->received();
        ASSERT_EQ(received.size(), 2U);
        for (const auto& [argument, empty] : received[0].arguments.items())
            EXPECT_NE(received[1].arguments[argument], empty) << name << ' ' << argument;
    }
}

TEST_F(Emit, SendsTheGivenArgumentsAndDefaultsForTheRest) {
    shell.json = true;
    EXPECT_EQ(shell.run("TvServiceConflictInfo", R"({"info": {"uintList2": [7, 4294967295]}})"), 0);
    EXPECT_EQ(shell.output, "{\"sent\":\"TvServiceConflictInfo\"}\n");
    EXPECT_EQ(shell.run("TvserviceOadStatusNotify", R"({"text": "half\u0000way"})"), 0);
    EXPECT_THAT(
        textsOf(requester->received()),
        ElementsAre(R"(TvServiceConflictInfo {"info":{"uintList1":[],"uintList2":[7,4294967295],"intParam1":0}})",
                    R"(TvserviceOadStatusNotify {"status":0,"text":"half\u0000way"})"));
}

TEST_F(Emit, RejectsAnUnknownNotificationAndListsTheKnownOnes) {
    expectError("TvServiceConflict", "", "no notification \"TvServiceConflict\"; there are: TvServiceInfo, ");
    expectError("TvServiceReq", "", "no notification");
    expectError("", "", "no notification \"\"");
    expectError(std::string(5000, 'N'), "", "N...\"; there are");
    EXPECT_LT(shell.output.size(), 2000U);
}

TEST_F(Emit, RejectsArgumentsThatDoNotMatchTheNotification) {
    const auto conflict = [&](const char* json, const char* why) { expectError("TvServiceConflictInfo", json, why); };
    conflict("{nope", "the arguments are not JSON: parse error at line 1");
    conflict("{} {}", "the arguments are not JSON");
    conflict("{\"info\":\"\xFF\"}", "the arguments are not JSON");
    conflict("[]", "TvServiceConflictInfo: the value: wanted an object");
    conflict(R"({"inf":{}})", "there is no field \"inf\"");
    conflict(R"({"info":{"intParam2":1}})", "info: there is no field \"intParam2\"");
    conflict(R"({"info":{"intParam1":"1"}})", "info.intParam1: wanted an integer");
    conflict(R"({"info":{"intParam1":1.5}})", "info.intParam1: wanted an integer");
    conflict(R"({"info":{"intParam1":2147483648}})", "info.intParam1: 2147483648 does not fit into 32 bits");
    conflict(R"({"info":{"intParam1":1e99}})", "info.intParam1: wanted an integer");
    conflict(R"({"info":{"uintList1":[1,-1]}})", "info.uintList1[1]: -1 does not fit into 32 bits");
    expectError("TvServiceInstalledInfo", R"({"info":{"byteParam1":256}})", "256 does not fit into 8 bits");
}

TEST_F(Emit, RejectsArgumentsOfFourKibibytesAndAcceptsOneByteLess) {
    const auto jsonOf = [](std::size_t size) {
        const std::string head = R"({"info":{"strParam1":")", tail = "\"}}";
        return head + std::string(size - head.size() - tail.size(), 'x') + tail;
    };
    expectError("TvServicePlayInfo", jsonOf(4096), "the JSON has 4096 bytes; fewer than 4096 are allowed");
    EXPECT_EQ(shell.run("TvServicePlayInfo", jsonOf(4095)), 0);
    EXPECT_EQ(requester->received().size(), 1U);
}

TEST_F(Emit, ReportsThatANotificationCouldNotBeSent) {
    const host::LogCapture log; // hides the queue's warnings
    requester.reset();
    other.reset();
    queue.stop();
    EXPECT_LT(shell.run("TvServicePlayInfo", ""), 0);
    EXPECT_EQ(shell.output, "TvServicePlayInfo was not sent: ESHUTDOWN, stopped\n");
}

TEST_F(Emit, WorksWhileRequestsAreServed) {
    for (int i = 0; i < 50; ++i) {
        requester->play(0, i % 4, "dvb://1.1.1");
        EXPECT_EQ(shell.run("TvServiceUriLinkageInfo", ""), 0);
    }
    EXPECT_EQ(requester->received().size(), 50U * 8);
}

} // namespace
