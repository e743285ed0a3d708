// tvctl check-service against the reference services, with and without their faults.
#include "integration/program-run.h"

#include <nlohmann/json.hpp>

namespace {

using namespace program_run;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

constexpr int done = 0, failed = 1, usage = 2, notAvailable = 3;

class CheckService : public Programs {
protected:
    Outcome check(const Words& arguments) const {
        Words words{program("tvctl"), "check-service"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return run(words);
    }
    // Starts a service process. Returns once its shell has a socket, which is after it serves.
    std::unique_ptr<Running> serving(const std::string& name, const Words& options = {}) const {
        Words command{program(name)};
        command.insert(command.end(), options.begin(), options.end());
        auto running = start(command);
        EXPECT_TRUE(eventually([&] { return std::filesystem::exists(runtimeFolder() + '/' + name + ".shell"); }))
            << running->error();
        return running;
    }
    // The rules that a service breaks.
    static std::map<std::string, std::string> brokenRules(const Outcome& outcome) {
        std::map<std::string, std::string> broken;
        const json report = json::parse(outcome.output);
        for (const json& rule : report["rules"]) {
            if (rule["outcome"] != "broken") continue;
            broken[rule["rule"]] = rule["what"];
            EXPECT_NE(rule["remedy"], "") << rule;
        }
        return broken;
    }
};

TEST_F(CheckService, FindsThatTheReferenceServicesKeepAllRules) {
    const auto tv = serving("tvserviced");
    const auto mm = serving("mmserviced");
    for (const char* service : {"tvservice", "mmservice"}) {
        const Outcome outcome = check({service, "--json"});
        EXPECT_EQ(outcome.exitCode, done) << outcome.output;
        EXPECT_EQ(outcome.error, "");
        const json report = json::parse(outcome.output);
        EXPECT_EQ(report["service"], service);
        EXPECT_EQ(report["kept"], report["rules"].size());
    }
    const Outcome quick = check({"tvservice", "--quick"});
    EXPECT_EQ(quick.exitCode, done) << quick.output;
    EXPECT_THAT(quick.output, AllOf(HasSubstr("kept  once "), HasSubstr("\n\n17 kept, 0 broken, 0 not checked\n")));
}

struct FaultCase {
    const char* fault;
    const char* rule;
    const char* what;
};
void PrintTo(const FaultCase& one, std::ostream* out) { *out << one.fault; }

class CheckServiceWithFault : public CheckService, public testing::WithParamInterface<FaultCase> {};

TEST_P(CheckServiceWithFault, ReportsTheRuleThatItBreaks) {
    const auto [fault, rule, what] = GetParam();
    const auto service = serving("mmserviced", {"--fault", fault});
    const Outcome outcome = check({"mmservice", "--quick", "--json"});
    EXPECT_EQ(outcome.exitCode, failed);
    const auto broken = brokenRules(outcome);
    ASSERT_TRUE(broken.contains(rule)) << outcome.output;
    EXPECT_THAT(broken.at(rule), HasSubstr(what));
}
INSTANTIATE_TEST_SUITE_P(Faults, CheckServiceWithFault,
                         testing::Values(FaultCase{"mute=on", "answer", "not answered"},
                                         FaultCase{"wrong=on", "stop", "5 (wrong by fault)"},
                                         FaultCase{"duplicate=on", "once", "2 answers"},
                                         FaultCase{"other-id=on", "request-id", "-other"},
                                         FaultCase{"delay=5200", "in-time", "answered after 5"},
                                         FaultCase{"exit-after=3", "connection", "closed the connection"}),
                         [](const testing::TestParamInfo<FaultCase>& info) {
                             std::string name = info.param.rule;
                             std::erase(name, '-');
                             return name;
                         });

TEST_F(CheckService, SaysThatAServiceDoesNotRun) {
    const Outcome outcome = check({"mmservice"});
    EXPECT_EQ(outcome.exitCode, notAvailable);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr("mmservice does not run"), HasSubstr("start it first")));
}

TEST_F(CheckService, RejectsWrongArguments) {
    for (const Words& arguments :
         {Words{}, Words{"dvb"}, Words{"tvservice", "--terminal", "0:-1"}, Words{"tvservice", "--terminal", "0"}}) {
        const Outcome outcome = check(arguments);
        EXPECT_EQ(outcome.exitCode, usage) << testing::PrintToString(arguments);
        EXPECT_NE(outcome.error, "");
    }
    EXPECT_THAT(check({"dvb"}).error, HasSubstr("no service dvb: tvservice, mmservice"));
}

TEST_F(CheckService, UsesTheAddressAndTheTerminalGiven) {
    const auto service = serving("mmserviced");
    const Outcome outcome =
        check({"mmservice", "--quick", "--json", "--terminal", "3:7", "--address", "file:///no/such/file"});
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(brokenRules(outcome)["play"],
                AllOf(HasSubstr("file:///no/such/file on terminal 3:7"), HasSubstr("3 (cannot open file)")));
}

} // namespace
