// The services that the kit offers to programs of one's own.
#include "support/configuration-folder.h"

#include <host/log-capture.h>
#include <host/message-queue.h>
#include <tvservice-adapter/service/health.h>
#include <tvservice-adapter/service/play-service.h>

#include <conformance/examination.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace services;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

namespace conformance = tvctl::conformance;

namespace {

std::vector<mmservice::MMServiceReq_t> listOf(const std::vector<std::pair<int, std::string>>& idsAndUris) {
    std::vector<mmservice::MMServiceReq_t> requests;
    for (const auto& [id, uri] : idsAndUris) {
        auto& request = requests.emplace_back();
        request.terminal.id = id;
        request.uri = uri;
    }
    return requests;
}

class PlayServiceTest : public ConfigurationFolder {
protected:
    PlayServiceTest() {
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
        configure("");
    }
    // The rules that a service breaks.
    static std::vector<std::string> brokenRules(Service& service, const char* name, const std::string& address) {
        const host::LogCapture quiet({0U});
        host::MessageQueue queue;
        service.offer(queue);
        queue.start();
        conformance::Settings settings;
        settings.quick = true;
        settings.address = address;
        const auto report = conformance::Examination(*conformance::protocolOf(name), settings).run();
        std::vector<std::string> broken;
        for (const auto& finding : report.findings())
            if (finding.outcome != conformance::Outcome::kept)
                broken.push_back(finding.rule->id + (": " + finding.what));
        queue.stop();
        return broken;
    }

    TerminalTable table;
    FaultSwitches faults;
    std::vector<std::string> played;
    std::vector<Terminal> stopped;
    const std::function<std::int32_t(const Terminal&, const std::string&)> play = [this](const Terminal&,
                                                                                         const std::string& uri) {
        if (!uri.starts_with("mine:")) return result::unsupportedUri;
        played.push_back(uri);
        return result::done;
    };
    const std::function<void(const Terminal&)> stop = [this](const Terminal& terminal) { stopped.push_back(terminal); };
};

TEST_F(PlayServiceTest, KeepsTheRulesAsAnMmServiceAndPlaysByCallingAFunction) {
    MmPlayService service(table, faults, play, stop);
    EXPECT_THAT(brokenRules(service, "mmservice", "mine:film"), IsEmpty());
    EXPECT_THAT(played, Each("mine:film"));
    EXPECT_GE(played.size(), 2U);
    EXPECT_GE(stopped.size(), 300U);
    EXPECT_THAT(service.tables(), ElementsAre(Field(&TableCount::name, "delayed answers")));
}

TEST_F(PlayServiceTest, KeepsTheRulesAsATvServiceThatHandlesSomeOtherRequests) {
    class KeyService : public TvPlayService {
    public:
        using TvPlayService::TvPlayService;
        std::vector<std::string> keys;

    private:
        void bindOthers(host::QueueChannel& channel) override {
            bind<tvservice::messages::TvServiceSendKeyReq, &KeyService::take>(channel, *this);
        }
        void take(std::uint64_t client, const std::string& key) {
            keys.push_back(key);
            sender().to<tvservice::messages::TvServiceBroadcastApplictionInfo>(client, 1U);
        }
    };
    KeyService service(table, faults, play, stop);
    EXPECT_THAT(brokenRules(service, "tvservice", "mine:film"), IsEmpty());
    EXPECT_EQ(service.keys.size(), 1U);
}

TEST_F(PlayServiceTest, StopsATerminalThatItHasNoRoomFor) {
    const host::LogCapture quiet({logModule});
    const Terminal last{0, static_cast<int>(bounds::terminalsOfAClient)};
    for (int id = 0; id < last.id; ++id) table.show({0, id}, {"mine:film", "", 1, {}});
    const auto infos = execute<mmservice::MMServiceInfo_t>(
        listOf({{last.id, "mine:film"}, {0, "mine:other"}, {1, tvservice::stopUri}, {2, "other:film"}}), 1, table, play,
        nullptr, stop);
    EXPECT_EQ(infos[0].result, result::noRoom);
    EXPECT_EQ(infos[3].result, result::unsupportedUri);
    EXPECT_THAT(stopped, ElementsAre(last, Terminal{0, 1}));
    EXPECT_EQ(table.count().held, bounds::terminalsOfAClient - 1) << "terminal 2 keeps what it shows";
}

TEST(HealthOfAService, NamesTheMessageThatIsBeingHandled) {
    EXPECT_EQ(health().handling, nullptr);
    {
        const Handling handling("MmServiceReq");
        EXPECT_STREQ(health().handling, "MmServiceReq");
        EXPECT_TRUE(health().isGood());
    }
    EXPECT_EQ(health().handling, nullptr);
    EXPECT_FALSE((Health{"MmServiceReq", handlerLimit}.isGood()));
}

} // namespace
