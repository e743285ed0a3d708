// What tvctl check-service finds out about services that break a rule.
#include "support/configuration-folder.h"

#include <genrpc/send.h>
#include <host/log-capture.h>
#include <host/message-queue.h>
#include <mmservice/messages.h>
#include <tvservice/core-records.h>
#include <tvservice/results.h>

#include <algorithm>
#include <conformance/examination.h>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace tvctl::conformance;
using testing::HasSubstr;

namespace result = tvservice::result;

using Infos = std::vector<mmservice::MMServiceInfo_t>;

// What a service knows when it answers a list.
struct Situation {
    std::uint64_t client = 0;
    std::set<std::uint64_t> clients; // that have sent a list so far
    unsigned lists = 0;              // so far, with this one
    std::uint64_t undecodable = 0;   // messages so far
    bool refused = false;            // whether an answer could not be sent so far
};

// Changes the answer to a list; returns how often it is sent.
using Fault = std::function<int(Infos&, const Situation&)>;

// An MM service that keeps all rules but for one fault.
class FaultyService {
public:
    explicit FaultyService(Fault fault)
        : fault_(std::move(fault)), channel_(queue_.serve(mmservice::serviceName, mmservice::messageSet(), 16384)) {
        using Request = mmservice::messages::MmServiceReq;
        const frame::MessageHandler handler = [](const frame::MsgMeta&, const frame::TransportInfo& transport,
                                                 const void* payload, void* context) {
            static_cast<FaultyService*>(context)->take(transport, std::get<0>(Request::Body::read(payload)));
            return 0;
        };
        channel_.registerMessageHandler(Request::meta, handler, this, *Request::table());
        queue_.start();
    }
    ~FaultyService() { queue_.stop(); }

private:
    void take(const frame::TransportInfo& transport, const std::vector<mmservice::MMServiceReq_t>& requests) {
        Infos infos;
        for (const auto& request : requests) {
            const bool shown = request.uri == tvservice::stopUri || request.uri.starts_with("http:");
            infos.push_back({request.terminal,
                             shown ? result::done : result::unsupportedUri,
                             request.uri,
                             request.uuid,
                             {},
                             request.reqId});
        }
        situation_.client = transport.connection;
        situation_.clients.insert(transport.connection);
        ++situation_.lists;
        situation_.undecodable = queue_.statistics()[0].undecodable;
        const frame::TransportInfo to{transport.connection, {}};
        for (int times = fault_(infos, situation_); times > 0; --times)
            if (genrpc::send<mmservice::messages::MmServiceInfo>(
                    channel_, {.ids = frame::MsgIds::none, .transport = &to, .firstBytes = 16384}, infos) < 0)
                situation_.refused = true;
    }

    const Fault fault_;
    Situation situation_;
    host::MessageQueue queue_;
    host::QueueChannel& channel_;
};

struct Case {
    const char* rule; // that it breaks
    const char* what; // a part of the finding
    Fault fault;
};
void PrintTo(const Case& one, std::ostream* out) { *out << one.rule << ": " << one.what; }

class ACheckOfAService : public ConfigurationFolder, public testing::WithParamInterface<Case> {
protected:
    ACheckOfAService() {
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
        configure("");
    }
    static std::map<std::string, std::string> examine(Fault fault, bool quick = false) {
        const host::LogCapture quiet({0U});
        const FaultyService service(std::move(fault));
        Settings settings;
        settings.quick = quick;
        settings.timeout = answerLimit;
        std::map<std::string, std::string> broken;
        const Report report = Examination(*protocolOf("mmservice"), settings).run();
        for (const auto& [rule, outcome, what] : report.findings())
            if (outcome == Outcome::broken)
                broken[rule->id] = what;
            else
                EXPECT_EQ(what, "");
        const bool isWhole = report.count(Outcome::notChecked) == 0;
        EXPECT_TRUE(isWhole || !broken.empty()) << "something was not checked, and nothing says why";
        return broken;
    }
};

// Breaks each rule that the fault switches of the reference services do not break.
const Case cases[] = {
    {"entries", "1 requests in a list got 2 entries",
     [](Infos& infos, const Situation&) {
         infos.push_back(infos[0]);
         return 1;
     }},
    {"entries", "no entry repeats terminal 0:0",
     [](Infos& infos, const Situation&) {
         for (auto& info : infos) info.terminal.id ^= 1024; // a sample may be the largest number
         return 1;
     }},
    {"result", "77 has no name",
     [](Infos& infos, const Situation&) {
         for (auto& info : infos)
             if (info.result != result::done) info.result = 77;
         return 1;
     }},
    {"stop", "a stop of terminal 0:0 got the result 8 (nothing shown)",
     [](Infos& infos, const Situation&) {
         for (auto& info : infos)
             if (info.uri == tvservice::stopUri) info.result = result::nothingShown;
         return 1;
     }},
    {"play", "http://media.example/film on terminal 0:0, after a stop, got the result 3 (cannot open file)",
     [](Infos& infos, const Situation&) {
         for (auto& info : infos)
             if (info.uri != tvservice::stopUri) info.result = result::cannotOpenFile;
         return 1;
     }},
    {"refusal", "got the result 0",
     [](Infos& infos, const Situation&) {
         for (auto& info : infos) info.result = result::done;
         return 1;
     }},
    {"order", "not each was answered",
     [](Infos& infos, const Situation&) { return infos.size() == 2 && infos[0].reqId.ends_with('9') ? 0 : 1; }},
    {"many-terminals", "of 300 terminals, 64 were answered",
     [](Infos& infos, const Situation&) {
         infos.resize(std::min<std::size_t>(infos.size(), 64));
         return 1;
     }},
    {"every-request", "after MmServiceReq with sample values",
     [dead = std::make_shared<bool>(false)](Infos& infos, const Situation&) {
         *dead = *dead || infos[0].uri.starts_with("text");
         return *dead ? 0 : 1;
     }},
    {"malformed", "after a list cut to 1 of", [](Infos&, const Situation& now) { return now.undecodable > 0 ? 0 : 1; }},
    {"reconnect", "after 20 clients that left",
     [](Infos&, const Situation& now) { return now.clients.size() > 12 ? 0 : 1; }},
    {"slow-reader", "with a client that does not read",
     [](Infos&, const Situation& now) { return now.refused ? 0 : 1; }},
};

TEST_P(ACheckOfAService, ReportsTheRuleThatItBreaks) {
    const auto broken = examine(GetParam().fault);
    ASSERT_TRUE(broken.contains(GetParam().rule)) << testing::PrintToString(broken);
    EXPECT_THAT(broken.at(GetParam().rule), HasSubstr(GetParam().what));
}
INSTANTIATE_TEST_SUITE_P(Conformance, ACheckOfAService, testing::ValuesIn(cases),
                         [](const testing::TestParamInfo<Case>& info) { return std::to_string(info.index); });

TEST_F(ACheckOfAService, ReportsNothingAboutAServiceThatKeepsThem) {
    const Fault none = [](Infos&, const Situation&) { return 1; };
    EXPECT_EQ(examine(none), (std::map<std::string, std::string>{}));
    EXPECT_EQ(examine(none, true), (std::map<std::string, std::string>{}));
}

TEST(Rules, HaveAnIdOfTheirOwnARemedyAndARowInTheDocument) {
    std::ostringstream document;
    document << std::ifstream(TVCTL_DOCUMENT).rdbuf();
    std::set<std::string> ids;
    for (const Rule& rule : rules) {
        EXPECT_TRUE(ids.insert(rule.id).second) << rule.id;
        EXPECT_STRNE(rule.remedy, "") << rule.id;
        EXPECT_THAT(document.str(), HasSubstr("\n| `" + std::string(rule.id) + "` | " + rule.text + " |\n"));
    }
}

} // namespace
