// The command that makes the TV service send any notification.
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

// A shell with one command, called by the test itself.
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

    void refuses(const std::string& name, const std::string& json, const std::string& why) {
        EXPECT_LT(shell.run(name, json), 0) << name << ' ' << json;
        EXPECT_THAT(shell.output, HasSubstr(why));
        EXPECT_THAT(asker->heard(), IsEmpty());
    }

    services::EmitCommand command{service.sender()};
    OneCommandShell shell;
};

TEST_F(Emit, SendsASampleOfEveryNotificationToEveryClient) {
    for (const std::string& name : notifications) {
        EXPECT_EQ(shell.run(name, ""), 0) << shell.output;
        EXPECT_EQ(shell.output, "sent " + name + '\n');
    }
    const auto heard = asker->heard();
    EXPECT_EQ(namesOf(heard), notifications);
    EXPECT_EQ(textsOf(other->heard()), textsOf(heard));
}

TEST_F(Emit, HasSamplesThatSetEveryArgument) {
    for (const std::string& name : notifications) {
        EXPECT_EQ(shell.run(name, "{}"), 0);
        EXPECT_EQ(shell.run(name, ""), 0);
        const auto heard = asker->heard();
        ASSERT_EQ(heard.size(), 2U);
        for (const auto& [argument, empty] : heard[0].arguments.items())
            EXPECT_NE(heard[1].arguments[argument], empty) << name << ' ' << argument;
    }
}

TEST_F(Emit, SendsTheArgumentsGivenAndNothingForTheRest) {
    shell.json = true;
    EXPECT_EQ(shell.run("TvServiceConflictInfo", R"({"info": {"uintList2": [7, 4294967295]}})"), 0);
    EXPECT_EQ(shell.output, "{\"sent\":\"TvServiceConflictInfo\"}\n");
    EXPECT_EQ(shell.run("TvserviceOadStatusNotify", R"({"text": "half\u0000way"})"), 0);
    EXPECT_THAT(
        textsOf(asker->heard()),
        ElementsAre(R"(TvServiceConflictInfo {"info":{"uintList1":[],"uintList2":[7,4294967295],"intParam1":0}})",
                    R"(TvserviceOadStatusNotify {"status":0,"text":"half\u0000way"})"));
}

TEST_F(Emit, RefusesWhatIsNoNotificationAndNamesThoseThereAre) {
    refuses("TvServiceConflict", "", "no notification \"TvServiceConflict\"; there are: TvServiceInfo, ");
    refuses("TvServiceReq", "", "no notification");
    refuses("", "", "no notification \"\"");
    refuses(std::string(5000, 'N'), "", "N...\"; there are");
    EXPECT_LT(shell.output.size(), 2000U);
}

TEST_F(Emit, RefusesArgumentsThatAreNotThoseOfTheNotification) {
    const auto conflict = [&](const char* json, const char* why) { refuses("TvServiceConflictInfo", json, why); };
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
    refuses("TvServiceInstalledInfo", R"({"info":{"byteParam1":256}})", "256 does not fit into 8 bits");
}

TEST_F(Emit, RefusesArgumentsOfFourKibibytesAndTakesOneByteLess) {
    const auto jsonOf = [](std::size_t size) {
        const std::string head = R"({"info":{"strParam1":")", tail = "\"}}";
        return head + std::string(size - head.size() - tail.size(), 'x') + tail;
    };
    refuses("TvServicePlayInfo", jsonOf(4096), "the JSON has 4096 bytes; fewer than 4096 are allowed");
    EXPECT_EQ(shell.run("TvServicePlayInfo", jsonOf(4095)), 0);
    EXPECT_EQ(asker->heard().size(), 1U);
}

TEST_F(Emit, SaysWhenANotificationCouldNotBeSent) {
    const host::LogCapture log; // keeps the queue's warnings off the output
    asker.reset();
    other.reset();
    queue.stop();
    EXPECT_LT(shell.run("TvServicePlayInfo", ""), 0);
    EXPECT_EQ(shell.output, "TvServicePlayInfo was not sent: ESHUTDOWN, stopped\n");
}

TEST_F(Emit, WorksWhileRequestsAreServed) {
    for (int i = 0; i < 50; ++i) {
        asker->play(0, i % 4, "dvb://1.1.1");
        EXPECT_EQ(shell.run("TvServiceUriLinkageInfo", ""), 0);
    }
    EXPECT_EQ(asker->heard().size(), 50U * 8);
}

} // namespace
